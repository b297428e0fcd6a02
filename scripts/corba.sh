# shellcheck shell=sh
# Sourced by run.sh: the naming service and the event service that the CORBA side of the
# agent needs, on free ports of 127.0.0.1, with their data in build/run; or such as run
# already.

# Whether the agent was built with its CORBA side and the two services are installed.
have_corba() {
    PATH=$PATH:/usr/sbin
    [ -f "$build/bundles/libzo_corba_bundle.so" ] && command -v omniNames >/dev/null && command -v omniEvents >/dev/null
}

# serve <name> <file> <command> [<argument>...]: starts a service and waits until it says
# in the file that it is ready; fails when it ends instead, for example because somebody
# else has its port.
serve() {
    name=$1
    file=$2
    shift 2
    start "$name" "$@"
    tries=100
    while [ $tries -gt 0 ] && kill -0 "${pids%% *}" 2>/dev/null; do
        ! grep -q 'Checkpointing completed' "$file" 2>/dev/null || return 0
        sleep 0.1
        tries=$((tries - 1))
    done
    return 1
}

serve_names() {
    mkdir -p "$run/names"
    serve omniNames "$run/omniNames.out" omniNames -start "$1" -always -datadir "$run/names" -nohostname \
        -ORBendPoint "giop:tcp:127.0.0.1:$1"
}

# It has no option for its address, but takes that of the name that it is given for this
# host. UTF-8 is what the alarms are in.
serve_events() {
    mkdir -p "$run/events"
    serve omniEvents "$run/omniEvents.trace" env OMNIORB_USEHOSTNAME=127.0.0.1 omniEvents -f -p "$1" \
        -l "$run/events" -t "$run/omniEvents.trace" -ORBnativeCharCodeSet UTF-8 \
        -ORBInitRef "NameService=corbaloc::127.0.0.1:$names_port/NameService"
}

# on_free_port <function>: calls it with one port after the other until it succeeds, and
# leaves that port in $port. Below 32768: the system gives those above to clients.
on_free_port() {
    port=$((15000 + $$ % 15000))
    tried=0
    until "$1" "$port"; do
        tried=$((tried + 1))
        [ $tried -lt 20 ] || fail "cannot start the CORBA services, see $run/omniNames.out and $run/omniEvents.out"
        port=$((15000 + (port - 15000 + 7) % 15000))
    done
}

# set_item <name> <value>: changes an item of the run's corba_start.cfg.
set_item() {
    sed -i "s/^$1=.*/$1=$2/" "$prefix/share/conf/corba_start.cfg"
}

# ZO_CORBA_PORTS="<naming service> <event service>": ports of 127.0.0.1 where they run
# already. A run with these leaves them as it has found them.
start_corba() {
    if [ -n "${ZO_CORBA_PORTS:-}" ]; then
        step "using the naming and event service on ports $ZO_CORBA_PORTS"
        names_port=${ZO_CORBA_PORTS%% *}
        port=${ZO_CORBA_PORTS##* }
    else
        step "starting omniNames and omniEvents"
        on_free_port serve_names
        names_port=$port
        on_free_port serve_events
    fi
    set_item NamingServicePort "$names_port"
    set_item NotifyServicePort "$port"
    sed -i 's/^#\(Bundle.*=zo_corba_bundle\)/\1/' "$prefix/etc/oss_cfg/nbi/conf/bundlemgr.cfg"
}
