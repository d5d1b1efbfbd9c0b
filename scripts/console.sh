#!/usr/bin/env bash
# Builds and runs the quote-source console. Without a display it renders every panel and dialog
# to PNG files instead (out/screenshots). Arguments are passed to the console.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=${JOBS:-2}
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
target=quotes-console
cmake --build build -j"$jobs" --target "$target"

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ $# -eq 0 ]; then
    mkdir -p out/screenshots
    QT_QPA_PLATFORM=offscreen build/bin/$target --screenshot out/screenshots
    echo "No display: screenshots written to $(pwd)/out/screenshots"
    ls out/screenshots
else
    exec build/bin/$target "$@"
fi
