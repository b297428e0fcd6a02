#!/bin/sh
# Builds and runs the benchmarks, or those whose names are given (log_bench), and shows what
# they say: a table, build/bench/results.json and plots beside it.
#
# ZO_BENCH_REPETITIONS sets how often each is measured; the medians are shown. Repetitions of
# ours and of the peers take turns in random order.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build bench
build_preset bench -DZO_BENCH_PEERS=ON

directory=$root/build/bench
raw=$directory/raw
rm -rf "$raw"
mkdir -p "$raw"

# Records are echoed to standard output, which a daemon has on /dev/null.
run_program() {
    name=$(basename "$1")
    step "$name"
    case $name in
    lifecycle_bench) "$1" >"$raw/$name.jsonl" ;;
    memory_bench) "$1" 3>"$raw/$name.jsonl" >/dev/null ;;
    *)
        "$1" --benchmark_repetitions="${ZO_BENCH_REPETITIONS:-11}" --benchmark_enable_random_interleaving=true \
            --benchmark_out="$raw/$name.json" --benchmark_out_format=json >/dev/null 2>"$raw/$name.err" ||
            { cat "$raw/$name.err" >&2; fail "$name failed"; }
        ;;
    esac
}

# The one that can draw, when there are several.
python() {
    for candidate in python3 /usr/bin/python3; do
        if "$candidate" -c 'import matplotlib' 2>/dev/null; then
            printf '%s\n' "$candidate"
            return
        fi
    done
    printf 'python3\n'
}

found=0
for program in "$directory"/bench/*_bench; do
    [ -x "$program" ] || continue
    if [ $# -gt 0 ]; then
        case " $* " in *" $(basename "$program") "*) ;; *) continue ;; esac
    fi
    found=1
    run_program "$program"
done
[ $found = 1 ] || fail "no such benchmark"

step "results: $directory/results.json"
"$(python)" "$root/bench/report.py" "$directory"
