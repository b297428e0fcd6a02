#!/bin/sh
# Counts the instructions of the hot paths and compares them with bench/instructions.txt:
#
#   instructions.sh            fails where a path takes over 5 % more
#   instructions.sh --update   writes the file anew, with the reason in the commit
#
# Unlike times these counts are the same on a busy machine. They depend on the compiler and
# the C library; where these are others than the file names, the counts are shown only.
. "$(dirname "$0")/common.sh"

baseline=$root/bench/instructions.txt
tolerance=5
paths='record_immediate record_buffered record_drained event_1_handler event_10_handlers
    lookup_cached keyvalue_line codeset_40_bytes setdirty_path'

"$root/scripts/install-deps.sh" build valgrind
configure_preset bench -DZO_BENCH_PEERS=OFF
step "building the counted program"
cmake --build "$root/build/bench" --parallel "$jobs" --target instructions

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

toolchain() {
    printf '# %s, glibc %s\n' "$(c++ --version | head -n 1)" "$(getconf GNU_LIBC_VERSION | cut -d ' ' -f 2)"
}

# count <path>: instructions a time. The environment is always the same: a record looks for TZ in it.
count() {
    mkdir -p "$directory/$1"
    env -i PATH="$PATH" valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$directory/$1.out" \
        "$root/build/bench/bench/instructions" "$1" "$directory/$1" >/dev/null 2>"$directory/$1.err" ||
        { cat "$directory/$1.err" >&2; fail "$1 failed"; }
    awk '/^(totals|summary):/ { total = $2 } END { if (!total) exit 1; print int(total / 1000) }' \
        "$directory/$1.out" || fail "$1: nothing was counted"
}

toolchain >"$directory/counts"
for path in $paths; do printf '%s %s\n' "$path" "$(count "$path")" >>"$directory/counts"; done

if [ "${1:-}" = --update ]; then
    cp "$directory/counts" "$baseline"
    cat "$baseline"
    exit 0
fi

compared=1
[ "$(head -n 1 "$baseline")" = "$(toolchain)" ] || compared=0
awk -v tolerance=$tolerance -v compared=$compared '
    /^#/ { next }
    NR == FNR { before[$1] = $2; next }
    {
        verdict = ""
        if (!($1 in before)) { verdict = "not in the baseline"; failed = 1 }
        else if ($2 > before[$1] * (1 + tolerance / 100)) { verdict = "SLOWER"; failed = 1 }
        else if ($2 < before[$1] * (1 - tolerance / 100)) { verdict = "faster: update the baseline" }
        printf "%-20s %7d before, %7d now  %s\n", $1, before[$1], $2, verdict
        ++count
    }
    END {
        if (!compared) { print "another compiler or C library: not compared"; exit 0 }
        exit failed || count == 0
    }' "$baseline" "$directory/counts" || fail "more instructions than bench/instructions.txt allows"
