#!/bin/sh
# Runs the example agent for a few seconds on an installation root of its own,
# build/run/root, and shows what it logged. ZO_RUN_SECONDS sets how long.
. "$(dirname "$0")/common.sh"

seconds=${ZO_RUN_SECONDS:-5}
groups=build
case "${1:-}" in
--corba) groups="build corba" ;;
'') ;;
*) fail "unknown argument '$1' (--corba)" ;;
esac

build=$root/build/release
run=$root/build/run
prefix=$run/root
pids=

# start <name> <command> [<argument>...]: runs a program beside the others until this
# script ends; what it prints goes to build/run/<name>.out.
start() {
    name=$1
    shift
    "$@" >"$run/$name.out" 2>&1 &
    pids="$! $pids"
}

# Ends what still runs, the last started first: asked first, killed after 5 seconds.
stop_all() {
    for pid in $pids; do
        kill "$pid" 2>/dev/null || continue
        tries=50
        while kill -0 "$pid" 2>/dev/null && [ $tries -gt 0 ]; do
            sleep 0.1
            tries=$((tries - 1))
        done
        kill -9 "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    pids=
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# Directories as an installed system has them, with the examples' configuration.
lay_out_root() {
    rm -rf "$run"
    mkdir -p "$prefix/nbi" "$prefix/log"
    cp -R "$root/examples/conf/." "$prefix/"
}

show_log() {
    log=$(find "$prefix/log" -name 'pnbi_sys_*.log' | sort | tail -n 1)
    [ -n "$log" ] || fail "the agent wrote no log below $prefix/log; its output is in $run/zo_agent.out"
    step "the last records of its log"
    tail -n 20 "$log"
    step "the whole log: $log"
    step "what it printed: $run/zo_agent.out"
}

# shellcheck disable=SC2086  # a list of words
"$root/scripts/install-deps.sh" $groups
build_preset release
lay_out_root

export KORU_SERVER_PATH="$prefix"
export APP_ROOT="$prefix"
export _APP_SHARE_DIR="$prefix/share"
export _APP_LOG_DIR="$prefix/log"
export LD_LIBRARY_PATH="$build/bundles:$build/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

step "running the agent for $seconds seconds on $prefix"
start zo_agent "$build/bin/zo_agent" --root "$prefix" --conf conf --for "$seconds"
agent=$!
status=0
wait "$agent" || status=$?
if [ "$status" -ne 0 ]; then
    tail -n 20 "$run/zo_agent.out" >&2
    fail "the agent ended with status $status; its output is in $run/zo_agent.out"
fi
show_log
