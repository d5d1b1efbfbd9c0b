#!/usr/bin/env bash
# Builds and runs the whole test suite: once in the normal build, once with
# AddressSanitizer + UndefinedBehaviorSanitizer (LeakSanitizer on). Prints each stage's seconds.
set -euo pipefail
cd "$(dirname "$0")/.."

# Runs one stage and prints how long it took, whether it passed or failed.
stage() {
    local name=$1
    shift
    local start=$SECONDS status=0
    "$@" || status=$?
    echo "stage ${name}: $((SECONDS - start)) s" >&2
    return $status
}

jobs=${JOBS:-2}
# Ninja for a new build tree: a rebuild that changes little starts at once.
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
export QT_QPA_PLATFORM=offscreen

stage setup bash scripts/setup.sh
stage configure cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOTES_WERROR=ON
stage build cmake --build build -j"$jobs"
# No production function over 80 lines but the listed exceptions (clang-tidy, cached per file).
# It runs beside the tests and the packages, which mostly wait, on the processor they leave.
stage tidy bash scripts/tidy.sh build &
tidy=$!
stage test bash -c "cd build && ctest --output-on-failure -j$jobs"
# The Debian packages from that build: lintian, the systemd unit, quotesd and quotesctl unpacked.
stage package bash tests/package/debian.sh build
wait "$tidy"

stage asan-configure cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DQUOTES_SANITIZE=ON \
    -DQUOTES_WERROR=ON -DQUOTES_BUILD_BENCH=OFF
stage asan-build cmake --build build-asan -j"$jobs"
stage asan-test bash -c "cd build-asan && ctest --output-on-failure -j$jobs"

# The libFuzzer targets replay their corpora and run from a fixed seed (clang, build-fuzz).
stage fuzz bash scripts/fuzz.sh
