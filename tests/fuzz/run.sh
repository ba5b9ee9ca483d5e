#!/bin/sh
# A long fuzzing campaign by hand, after `cmake --workflow --preset fuzz`:
#
#   tests/fuzz/run.sh [SECONDS [TARGET...]]
#
# runs each target (all five by default) for SECONDS (default 3600) on its
# corpus in build/fuzz/tests/fuzz/corpus, which grows from run to run. Any
# crash, hang (10 s), leak or single allocation above 64 MiB stops the target
# and leaves its input as crash-*, timeout-*, leak-* or malloc-limit-* in
# build/fuzz/tests/fuzz/findings. The last lines of each log give the count
# of executions. MURVIO_FUZZ_JOBS=N runs N fuzzing processes of each target
# side by side on the shared corpus (logs findings/TARGET/fuzz-K.log); the
# scratch files of the targets that write go to /dev/shm unless TMPDIR says
# otherwise.
set -eu
seconds=${1:-3600}
[ $# -gt 0 ] && shift
targets=${*:-read_file write_calls codec text csv_import}
root=$(cd "$(dirname "$0")/../.." && pwd)
bin=$root/build/fuzz/tests/fuzz
mkdir -p "$bin/findings" "$bin/seeds"
"$bin/murvio_fuzz_seeds" "$bin/seeds"
jobs=${MURVIO_FUZZ_JOBS:-1}
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
status=0
for t in $targets; do
    mkdir -p "$bin/corpus/$t"
    extra=
    [ "$t" = read_file ] && extra=$bin/seeds
    [ -d "$root/tests/fuzz/regressions/$t" ] && extra="$extra $root/tests/fuzz/regressions/$t"
    logs=$bin/findings/$t.log
    parallel=
    if [ "$jobs" -gt 1 ]; then
        mkdir -p "$bin/findings/$t"
        logs=$bin/findings/$t/fuzz-*.log
        parallel="-jobs=$jobs -workers=$jobs"
    fi
    echo "== $t for $seconds s (log: $logs)"
    (
        [ "$jobs" -gt 1 ] && cd "$bin/findings/$t"
        ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "$bin/fuzz_$t" $parallel -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=64 \
            -print_final_stats=1 -artifact_prefix="$bin/findings/" "$bin/corpus/$t" $extra
    ) > "$bin/findings/$t.log" 2>&1 || status=1
    # (shell globbing expands the per-process logs)
    # shellcheck disable=SC2086
    grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb|ERROR|SUMMARY' $logs || true
done
exit $status
