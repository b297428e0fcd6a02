#!/bin/sh
# Runs the example agent for a few seconds on an installation root of its own,
# build/run/root, feeds it alarms, and shows what its clients saw and what it logged.
# With its CORBA side if omniORB is there; --corba installs it. ZO_RUN_SECONDS sets how
# long, ZO_CORBA_PORTS with which naming and event service (see corba.sh).
. "$(dirname "$0")/common.sh"
. "$root/scripts/corba.sh"

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
    mkdir -p "$prefix/nbi" "$prefix/log" "$prefix/var"
    cp -R "$root/examples/conf/." "$prefix/"
}

# wait_for <text> <file or directory>: until the text stands there.
wait_for() {
    until grep -rqs "$1" "$2"; do
        if ! kill -0 "$agent" 2>/dev/null; then
            agent_ended
            fail "the agent ended before '$1' stood in $2"
        fi
        sleep 0.1
    done
}

# Fails unless the agent has ended in order.
agent_ended() {
    status=0
    wait "$agent" || status=$?
    [ "$status" -ne 0 ] || return 0
    tail -n 20 "$run/zo_agent.out" >&2
    fail "the agent ended with status $status; its output is in $run/zo_agent.out"
}

# show <title> <name>: the beginning and the end of what a client printed.
show() {
    step "$1"
    if [ "$(wc -l <"$run/$2.out")" -le 10 ]; then
        cat "$run/$2.out"
    else
        head -n 5 "$run/$2.out"
        echo "..."
        tail -n 5 "$run/$2.out"
    fi
    step "the whole of it: $run/$2.out"
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

if have_corba; then
    corba=yes
    start_corba
else
    corba=no
    step "leaving the CORBA side out, for omniORB is not there (make run-corba installs it)"
fi

step "running the agent for $seconds seconds on $prefix"
start zo_agent "$build/bin/zo_agent" --root "$prefix" --conf conf --for "$seconds"
agent=$!
wait_for 'zo_agent: ready' "$run/zo_agent.out"

start zo_ascii_client "$build/bin/zo_ascii_client" --port-file "$prefix/var/ascii.port" --from GBK SUBSCRIBE
wait_for END "$run/zo_ascii_client.out"
if [ $corba = yes ]; then
    wait_for 'zo/AlarmChannel is bound' "$prefix/log"
    start zo_nms "$build/bin/zo_nms" --naming "127.0.0.1:$names_port" --list --watch
    wait_for WATCHING "$run/zo_nms.out"
fi

step "feeding it examples/data/alarms.gbk, which begins like this"
head -n 5 "$root/examples/data/alarms.gbk" | iconv -f GBK -t UTF-8
cat "$root/examples/data/alarms.gbk" >>"$prefix/var/alarms.feed"
agent_ended

show "what a text client saw" zo_ascii_client
[ $corba = no ] || show "what a CORBA client saw" zo_nms
show_log
