#!/usr/bin/env bash
# Renders every panel and dialog of the demo console under Xvfb and keeps the pictures as the
# screenshot test's new references (tests/auto/screens/references). Look at them before you
# commit them: `git diff --stat tests/auto/screens/references`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=${JOBS:-2}
# Ninja for a new build tree: a rebuild that changes little starts at once.
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs" --target quotes-console tst_screens_screenshots
QT_QPA_PLATFORM=offscreen QUOTES_SOURCE_DIR="$(pwd)" QUOTES_BINARY_DIR="$(pwd)/build" \
    QUOTES_UPDATE_REFERENCES=1 build/bin/tst_screens_screenshots
ls tests/auto/screens/references
