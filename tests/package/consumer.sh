#!/usr/bin/env bash
# Configures, builds and runs a project that uses find_package(PanelQuotesManage) from an
# installed prefix: consumer.sh PREFIX SOURCE_DIR WORK_DIR.
set -euo pipefail
prefix=$1
source_dir=$2
work_dir=$3
cmake -S "$source_dir/tests/package/consumer" -B "$work_dir" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work_dir" >/dev/null
# The libraries are in the multiarch directory, as Debian keeps them.
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
LD_LIBRARY_PATH="$prefix/lib/$multiarch:${LD_LIBRARY_PATH:-}" QT_QPA_PLATFORM=offscreen \
    "$work_dir/consumer"
