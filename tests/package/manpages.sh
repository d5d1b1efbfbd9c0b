#!/usr/bin/env bash
# Every option a program's --help names is in its manual page (quotesctl's page is made from its
# command table and compared by its own test; these pages are written by hand).
set -uo pipefail
build_dir=$1
source_dir=$2
failures=0
check() {
    local program=$1 page=$2 help options documented
    help=$(QT_QPA_PLATFORM=offscreen "$build_dir/bin/$program" --help 2>&1) ||
        { echo "$program --help failed" >&2; failures=$((failures + 1)); return; }
    options=$(grep -o -- '--[a-z][a-z0-9-]*[a-z0-9]' <<<"$help" | sort -u)
    # groff writes a dash as \-.
    documented=$(sed 's/\\-/-/g' "$source_dir/packaging/man/$page")
    for option in $options; do
        if ! grep -q -- "$option\\b" <<<"$documented"; then
            echo "$program: $option is in --help, not in $page" >&2
            failures=$((failures + 1))
        fi
    done
}
check quotesd quotesd.8
check quotes-console quotes-console.1
[ $failures -eq 0 ] && echo "every option of quotesd's and quotes-console's --help is in its manual page"
exit $((failures > 0))
