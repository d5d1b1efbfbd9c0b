#!/usr/bin/env bash
# Installs the build into a scratch prefix, then configures, builds and runs a project that
# uses find_package(PanelQuotesManage).
set -euo pipefail
build_dir=$1
source_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build_dir" --prefix "$scratch/prefix" >/dev/null
bash "$source_dir/tests/package/consumer.sh" "$scratch/prefix" "$source_dir" "$scratch/consumer"
echo "find_package(PanelQuotesManage): consumer built and ran"
