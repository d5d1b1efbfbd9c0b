#!/usr/bin/env bash
# Builds and runs the quote-source console. Without a display (over SSH, say) it renders every
# panel and dialog to PNG files instead (out/screenshots), whatever the arguments. Arguments are
# passed to the console.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=${JOBS:-2}
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
target=quotes-console
cmake --build build -j"$jobs" --target "$target"

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    mkdir -p out/screenshots
    QT_QPA_PLATFORM=offscreen build/bin/$target "$@" --screenshot out/screenshots
    echo "No display: screenshots written to $(pwd)/out/screenshots"
    ls out/screenshots
else
    exec build/bin/$target "$@"
fi
