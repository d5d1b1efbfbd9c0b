#!/usr/bin/env bash
# The server and the command-line client must install on a machine without a display: neither
# they nor the libraries they load may need Qt Widgets, Qt Gui or X11.
set -euo pipefail
build_dir=$1
status=0
for binary in bin/quotesd bin/quotesctl lib/libQuotesHostCore.so; do
    libraries=$(ldd "$build_dir/$binary")
    if grep -E 'libQt5Widgets|libQt5Gui|libX11|libxcb|libQuotesHost\.so' <<<"$libraries"; then
        echo "$binary loads a widget or display library" >&2
        status=1
    fi
done
[ $status -eq 0 ] && echo "quotesd, quotesctl and libQuotesHostCore load no widget or display library"
exit $status
