#!/usr/bin/env bash
# The function-size check: no production function longer than 80 lines, except the ones
# listed with their reason in scripts/tidy-exceptions.txt. Runs clang-tidy 14 with
# readability-function-size alone over the production sources (host/, model/, panels/, dialogs/,
# service/, remote/, app/ and their headers; not tests, benchmarks, fuzz targets or generated
# code), as the build compiles them (BUILD/compile_commands.json), JOBS files at a time.
#
#   bash scripts/tidy.sh [BUILD]      (default: build, configured already)
#
# Parsing dominates (the check itself is a sixth of the time), so each file's findings are kept
# in BUILD/tidy-cache under a hash of the file, of the production headers it includes and of this
# script: only what changed since the last run is parsed again.
set -euo pipefail
script=$(readlink -f "$0")
cd "$(dirname "$script")/.."
root=$PWD
build=${1:-build}
jobs=${JOBS:-2}
limit=80
exceptions=scripts/tidy-exceptions.txt
dirs=(host model panels dialogs service remote app)
production="^$root/($(
    IFS='|'
    echo "${dirs[*]}"
))/"

tidy=$(command -v clang-tidy-14 || command -v clang-tidy || true)
if [ -z "$tidy" ]; then
    echo "tidy: clang-tidy is not installed (bash scripts/setup.sh)" >&2
    exit 2
fi
if [ ! -f "$build/compile_commands.json" ]; then
    echo "tidy: $build/compile_commands.json is missing: configure $build first" >&2
    exit 2
fi

# CMake writes one "file": line per compiled source.
mapfile -t sources < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$build/compile_commands.json" |
    grep -E "$production" | sort -u)
if [ ${#sources[@]} -eq 0 ]; then
    echo "tidy: no production source in $build/compile_commands.json" >&2
    exit 2
fi

# The build's commands without its precompiled headers: they are GCC's, which clang cannot read
# (the headers themselves are included as the sources include them).
database=$(mktemp -d)
trap 'rm -rf "$database"' EXIT
sed -e 's| -include [^ ]*/cmake_pch\.hxx||g' -e 's| -Winvalid-pch||g' \
    "$build/compile_commands.json" >"$database/compile_commands.json"

# One YAML text for --config (its quotes are YAML's).
# shellcheck disable=SC2089,SC2090
config="{Checks: '-*,readability-function-size', CheckOptions: [
    {key: readability-function-size.LineThreshold, value: '$limit'}]}"
cache=$build/tidy-cache
mkdir -p "$cache"
common=$({
    "$tidy" --version
    cat "$script"
} | sha256sum | cut -c1-64)

# The production headers each source includes, from the build's dependency log (Ninja lists an
# object's source first, then what it includes, relative to the build directory).
declare -A headers_of=()
while read -r source included; do
    headers_of[$source]+=" $included"
done < <(ninja -C "$build" -t deps 2>/dev/null | awk -v build="$(readlink -f "$build")" \
    -v production="$production" '
    function resolved(path,    n, part, i, depth, out) {
        if (path !~ /^\//)
            path = build "/" path
        n = split(path, part, "/")
        depth = 0
        for (i = 1; i <= n; ++i) {
            if (part[i] == "..")
                depth = depth > 0 ? depth - 1 : 0
            else if (part[i] != "." && part[i] != "")
                kept[++depth] = part[i]
        }
        out = ""
        for (i = 1; i <= depth; ++i)
            out = out "/" kept[i]
        return out
    }
    /^[^ ]/ { if (line != "") print line; line = ""; first = 1; next }
    /^    / {
        path = resolved($1)
        if (first) {
            first = 0
            line = path ~ production ? path : ""
        } else if (line != "" && path ~ production) {
            line = line " " path
        }
    }
    END { if (line != "") print line }')

# A file's findings depend on it and on the production headers it includes (system headers
# aside); a file the build has not compiled yet depends on every production header.
every_header=
keys=()
pending=()
for source in "${sources[@]}"; do
    if [ -n "${headers_of[$source]:-}" ]; then
        read -r -a included <<<"${headers_of[$source]}"
    else
        [ -n "$every_header" ] || every_header=$(find "$root" -regextype posix-extended \
            -regex "${production}.*\.h" | sort)
        mapfile -t included <<<"$every_header"
    fi
    key=$({
        echo "$common $source"
        cat "$source"
        printf '%s\n' "${included[@]}" | sort -u | xargs -r cat
    } | sha256sum | cut -c1-64)
    keys+=("$key")
    [ -f "$cache/$key" ] || pending+=("$key" "$source")
done

# One clang-tidy per file; its findings are kept only when it parsed the file.
# Headers are checked too: a header's functions are reported by every file that includes it.
# shellcheck disable=SC2317  # run by xargs
check_one() {
    local key=$1 source=$2
    if "$tidy" -p "$database" --quiet --config="$config" --header-filter="$production" \
        --extra-arg=-Wno-everything "$source" >"$cache/$key.part" 2>/dev/null; then
        mv "$cache/$key.part" "$cache/$key"
    else
        mv "$cache/$key.part" "$cache/$key.failed"
        return 1
    fi
}
export -f check_one
# shellcheck disable=SC2090
export tidy database config production cache
status=0
if [ ${#pending[@]} -gt 0 ]; then
    printf '%s\0' "${pending[@]}" | xargs -0 -n 2 -P "$jobs" bash -c 'check_one "$@"' _ || status=$?
fi
if [ $status -ne 0 ]; then
    # A file clang-tidy cannot parse is not checked at all: that fails the check too.
    cat "$cache"/*.failed | grep -E 'error: ' | sort -u >&2 || true
    rm -f "$cache"/*.failed
    echo "tidy: clang-tidy failed (status $status)" >&2
    exit 1
fi
# Forget the findings of files as they were before.
declare -A current=()
for key in "${keys[@]}"; do current[$key]=1; done
for entry in "$cache"/*; do
    [ -n "${current[${entry##*/}]:-}" ] || rm -f "$entry"
done

# "FILE:LINE:COL: warning: function 'NAME' exceeds ..." and its note "N lines including ...":
# one line "FILE:NAME LINES LINE" per long function, FILE relative to the checkout.
long=$(printf "$cache/%s\n" "${keys[@]}" | xargs cat | awk -v root="$root/" '
    / warning: function .* exceeds recommended size\/complexity thresholds/ {
        split($0, at, ":")
        file = substr(at[1], 1, length(root)) == root ? substr(at[1], length(root) + 1) : at[1]
        line = at[2]
        match($0, /function \047[^\047]*\047/)
        name = substr($0, RSTART + 10, RLENGTH - 11)
        next
    }
    / note: [0-9]+ lines including whitespace and comments/ && name != "" {
        match($0, /note: [0-9]+ lines/)
        print file ":" name " " substr($0, RSTART + 6, RLENGTH - 12) " " line
        name = ""
    }' | sort -u)

declare -A listed=() found=()
while read -r function _; do
    [ -n "$function" ] && listed[$function]=1
done < <(sed -e 's/#.*//' "$exceptions" 2>/dev/null)
failed=0
while read -r function lines line; do
    [ -n "$function" ] || continue
    found[$function]=1
    [ -z "${listed[$function]:-}" ] || continue
    echo "tidy: ${function%%:*}:$line: ${function#*:} has $lines lines (at most $limit;" \
        "split it, or list it in $exceptions with the reason)" >&2
    failed=1
done <<<"$long"

# Exceptions that no longer apply: the function was split (or renamed); the list only shrinks.
for function in "${!listed[@]}"; do
    [ -n "${found[$function]:-}" ] ||
        echo "tidy: note: $function is within $limit lines now: remove it from $exceptions" >&2
done

count=$(grep -c . <<<"$long" || true)
echo "tidy: ${#sources[@]} files ($((${#pending[@]} / 2)) parsed), $count functions over" \
    "$limit lines" >&2
exit $failed
