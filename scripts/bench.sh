#!/bin/sh
# Builds and runs the benchmarks, or those whose names are given.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build bench
build_preset bench
found=0
for program in "$root"/build/bench/bench/*_bench; do
    [ -x "$program" ] || continue
    if [ $# -gt 0 ]; then
        case " $* " in *" $(basename "$program") "*) ;; *) continue ;; esac
    fi
    found=1
    step "$(basename "$program")"
    "$program"
done
[ $found = 1 ] || fail "no such benchmark"
