#!/bin/sh
# Builds a preset and runs its tests: test.sh [PRESET [<argument of ctest>...]]
# PRESET is debug (when none is given), asan, tsan or coverage.
. "$(dirname "$0")/common.sh"

preset=${1:-debug}
[ $# -eq 0 ] || shift

# ThreadSanitizer dies on kernels that randomise more address bits than it knows.
without_randomisation() {
    bits=$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)
    if [ "$preset" = tsan ] && [ "$bits" -gt 28 ] && setarch -R true 2>/dev/null; then
        setarch -R "$@"
    else
        "$@"
    fi
}

"$root/scripts/install-deps.sh" build test
build_preset "$preset"

step "testing build/$preset"
log=$root/build/$preset/test.log
began=$(date +%s)
status=0
# More at once than there are processors, for many tests mostly wait.
(cd "$root" && without_randomisation ctest --preset "$preset" --parallel "$((jobs * 2))" --output-log "$log" "$@") ||
    status=$?

verdict=$(sed -n 's/^\([0-9]*% tests passed.*\)$/\1/p' "$log" | tail -n 1)
skipped=$(grep -c '\*\*\*Skipped' "$log" || true)
step "$preset: ${verdict:-no test ran}, $skipped skipped, $(($(date +%s) - began)) s"
exit "$status"
