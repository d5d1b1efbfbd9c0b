#!/usr/bin/env bash
# Installs the build into a scratch prefix, then configures, builds and runs a project that
# uses find_package(PanelQuotesManage).
set -euo pipefail
build_dir=$1
source_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build_dir" --prefix "$scratch/prefix" >/dev/null
cmake -S "$source_dir/tests/package/consumer" -B "$scratch/consumer" \
    -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib:${LD_LIBRARY_PATH:-}" QT_QPA_PLATFORM=offscreen \
    "$scratch/consumer/consumer"
echo "find_package(PanelQuotesManage): consumer built and ran"
