#!/usr/bin/env bash
# Builds and runs the whole test suite: once in the normal build, once with
# AddressSanitizer + UndefinedBehaviorSanitizer (LeakSanitizer on).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=${JOBS:-2}
export QT_QPA_PLATFORM=offscreen

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOTES_WERROR=ON
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DQUOTES_SANITIZE=ON -DQUOTES_WERROR=ON \
    -DQUOTES_BUILD_BENCH=OFF
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure -j"$jobs")
