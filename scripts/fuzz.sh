#!/usr/bin/env bash
# The libFuzzer targets of fuzz/, built with clang in build-fuzz (only they and what they link).
#
#   bash scripts/fuzz.sh             CI: replay each seed corpus, then a fixed number of runs
#                                    from seed 1 (deterministic, about 20 s a target); prints the
#                                    executions of each target
#   bash scripts/fuzz.sh long [SECONDS] [TARGET...]
#                                    fuzz longer by hand (default 600 s a target); inputs that
#                                    reach new code are merged into fuzz/corpus/<target>
#
# A crash, a leak or undefined behaviour fails; its input is left in build-fuzz/artifacts/
# (once fixed, copy it into the target's corpus so that CI replays it from then on).
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-ci}
build=${FUZZ_BUILD_DIR:-build-fuzz}
jobs=${JOBS:-2}
# Runs of each target in CI, measured at about 20 s each on a busy two-core machine.
declare -A runs=(
    [fuzz_import_document]=${FUZZ_RUNS_IMPORT:-25000}
    [fuzz_source_validator]=${FUZZ_RUNS_VALIDATOR:-200000}
    [fuzz_database_url]=${FUZZ_RUNS_URL:-150000}
    [fuzz_quotesctl_args]=${FUZZ_RUNS_ARGS:-100000}
    [fuzz_record_codec]=${FUZZ_RUNS_CODEC:-200000}
)
all=(fuzz_import_document fuzz_source_validator fuzz_database_url fuzz_quotesctl_args
     fuzz_record_codec)

export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUOTES_BUILD_FUZZ=ON -DQUOTES_BUILD_TESTS=OFF -DQUOTES_BUILD_BENCH=OFF \
    > "$build.configure.log" || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j"$jobs" --target fuzz_targets

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/fuzz/lsan.supp:print_suppressions=0
artifacts=$build/artifacts
mkdir -p "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

if [[ $mode == ci ]]; then
    for target in "${all[@]}"; do
        start=$SECONDS
        mkdir -p "$scratch/$target"
        # New inputs go to the scratch directory: the committed corpus stays as it is.
        "$build/bin/$target" -seed=1 -runs="${runs[$target]}" -close_fd_mask=3 \
            -artifact_prefix="$artifacts/$target-" -print_final_stats=1 \
            "$scratch/$target" "fuzz/corpus/$target" 2> "$scratch/$target.log" || {
            tail -n 60 "$scratch/$target.log"
            echo "fuzz: $target failed; its input is in $artifacts" >&2
            exit 1
        }
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$scratch/$target.log")
        echo "fuzz $target: $executions executions in $((SECONDS - start)) s"
    done
elif [[ $mode == long ]]; then
    seconds=${2:-600}
    shift $(($# < 2 ? $# : 2))
    targets=("$@")
    [[ ${#targets[@]} -gt 0 ]] || targets=("${all[@]}")
    for target in "${targets[@]}"; do
        mkdir -p "$scratch/$target"
        "$build/bin/$target" -max_total_time="$seconds" -close_fd_mask=3 -print_final_stats=1 \
            -artifact_prefix="$artifacts/$target-" "$scratch/$target" "fuzz/corpus/$target"
        # Keep only what reaches code the corpus does not reach yet.
        "$build/bin/$target" -merge=1 -close_fd_mask=3 "fuzz/corpus/$target" "$scratch/$target"
    done
else
    echo "usage: scripts/fuzz.sh [ci | long [SECONDS] [TARGET...]]" >&2
    exit 2
fi
