#!/bin/sh
# Installs what is missing, from the packages of Debian or Ubuntu:
#
#   install-deps.sh [GROUP]...     (build when none is given)
#
#   build     compiler, CMake, ACE, jsoncpp,    corba     omniORB, for the CORBA example
#             CLI11 for the example programs
#   test      GoogleTest                        coverage  gcovr
#   check     clang and its tools, abidw        package   what makes a .deb
#   bench     google-benchmark, what it is held docs      doxygen
#             against, and what plots           valgrind  what counts instructions
#
# A machine that has everything installs nothing and needs no root. With
# ZO_SKIP_DEPS=1 nothing is looked at, for systems with other packages.
set -eu

missing=

fail() {
    printf 'install-deps.sh: %s\n' "$*" >&2
    exit 1
}

# want_command <command> <package that has it>
want_command() {
    command -v "$1" >/dev/null 2>&1 || missing="$missing $2"
}

want_package() {
    for package; do
        case "$(dpkg-query --show --showformat='${Status}' "$package" 2>/dev/null || true)" in
        *' installed') ;;
        *) missing="$missing $package" ;;
        esac
    done
}

# Newer releases keep the C library's less common character sets in a package of
# its own, which small containers lack.
want_gbk() {
    printf a | iconv -f GBK -t UTF-8 >/dev/null 2>&1 || missing="$missing libc-gconv-modules-extra"
}

want_group() {
    case $1 in
    build)
        want_command c++ g++
        want_command cmake cmake
        command -v make >/dev/null 2>&1 || want_command ninja ninja-build
        want_package libace-dev libjsoncpp-dev libcli11-dev
        want_gbk
        ;;
    test)
        want_command pkg-config pkg-config
        want_package libgtest-dev libgmock-dev
        ;;
    check)
        want_command clang++ clang
        want_command clang-format clang-format
        want_command clang-tidy clang-tidy
        want_command abidw abigail-tools
        ;;
    corba)
        want_command omniidl omniidl
        want_command omniNames omniorb-nameserver
        want_package omniorb omnievents libomniorb4-dev libomnievents-dev
        ;;
    coverage) want_command gcovr gcovr ;;
    package)
        want_command dpkg-shlibdeps dpkg-dev
        want_command file file  # cpack asks it which files are libraries
        ;;
    bench)
        want_command python3 python3
        want_package libbenchmark-dev python3-matplotlib
        want_package libspdlog-dev liblog4cplus-dev libgoogle-glog-dev libboost-log-dev libpoco-dev libinih-dev
        ;;
    valgrind) want_command valgrind valgrind ;;
    docs) want_command doxygen doxygen ;;
    *) fail "unknown group '$1' (build test check corba coverage package bench valgrind docs)" ;;
    esac
}

# The packages of omniNames and omniEvents bring services of the system that would start
# at once and with each boot, for whoever connects. Here the programs are needed only.
policy=/usr/sbin/policy-rc.d
new_servers=

find_new_servers() {
    for package in omniorb-nameserver omnievents; do
        case "$missing " in *" $package "*) new_servers="$new_servers $package" ;; esac
    done
}

# What stands in the policy for services below, and in nobody else's.
signature='By install-deps.sh of zo_bundlemgr, while it installs packages.'

# Not one that this script has left behind when it was killed.
is_policy_of_system() {
    { [ -e "$policy" ] || [ -L "$policy" ]; } && ! grep -qF "$signature" "$policy" 2>/dev/null
}

# While they are installed the system's policy for services, if there is one, is asked
# about all others only.
deny_servers() {
    if is_policy_of_system && [ ! -e "$policy.kept" ]; then
        $as_root mv "$policy" "$policy.kept"
    fi
    trap restore_policy EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    patterns=
    case "$new_servers " in *" omniorb-nameserver "*) patterns="*' omniorb'*nameserver*" ;; esac
    case "$new_servers " in *" omnievents "*) patterns="${patterns:+$patterns | }*' omniorb'*eventservice*" ;; esac
    $as_root tee "$policy" >/dev/null <<EOF
#!/bin/sh
# $signature
case " \$*" in $patterns) exit 101 ;; esac
[ ! -x $policy.kept ] || exec $policy.kept "\$@"
EOF
    $as_root chmod 755 "$policy"
}

restore_policy() {
    if [ -e "$policy.kept" ] || [ -L "$policy.kept" ]; then
        $as_root mv "$policy.kept" "$policy"
    else
        $as_root rm -f "$policy"
    fi
}

services_of() {
    dpkg --listfiles "$1" |
        sed -n -e 's|^/.*lib/systemd/system/\(.*\)\.service$|\1|p' -e 's|^/etc/init\.d/||p' | sort -u
}

# As a package that removes itself does it: deb-systemd-helper works for packages only, but
# also where systemd is not installed yet.
disable_servers() {
    for package in $new_servers; do
        for service in $(services_of "$package"); do
            $as_root env DPKG_MAINTSCRIPT_PACKAGE="$package" deb-systemd-helper disable "$service.service" || true
            [ ! -e "/etc/init.d/$service" ] || $as_root update-rc.d "$service" disable 2>/dev/null || true
            printf '==> %s: the service of the system is neither started nor enabled\n' "$service"
        done
    done
    if [ -n "$new_servers" ] && [ -d /run/systemd/system ]; then $as_root systemctl daemon-reload || true; fi
}

install_missing() {
    command -v apt-get >/dev/null 2>&1 ||
        fail "missing:$missing, and there is no apt-get; install them, then set ZO_SKIP_DEPS=1"
    as_root=
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null 2>&1 ||
            fail "missing:$missing, and neither root nor sudo; as root run: apt-get install$missing"
        as_root=sudo
    fi
    printf '==> installing%s\n' "$missing"
    # An index that cannot be refreshed may still be good enough.
    $as_root apt-get update -q || printf 'install-deps.sh: apt-get update failed, trying the known packages\n' >&2
    find_new_servers
    [ -z "$new_servers" ] || deny_servers
    # shellcheck disable=SC2086  # a list of words
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing ||
        fail "apt-get could not install:$missing"
    disable_servers
}

[ "${ZO_SKIP_DEPS:-}" != 1 ] || exit 0
[ $# -gt 0 ] || set -- build
for group; do want_group "$group"; done
[ -z "$missing" ] || install_missing
