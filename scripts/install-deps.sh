#!/bin/sh
# Installs what is missing, from the packages of Debian or Ubuntu:
#
#   install-deps.sh [GROUP]...     (build when none is given)
#
#   build     compiler, CMake, ACE, jsoncpp     corba     omniORB, for the CORBA example
#   test      GoogleTest                        coverage  gcovr
#   check     clang-format, clang-tidy          package   what makes a .deb
#   bench     google-benchmark                  docs      doxygen
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
        want_package libace-dev libjsoncpp-dev
        want_gbk
        ;;
    test)
        want_command pkg-config pkg-config
        want_package libgtest-dev libgmock-dev
        ;;
    check)
        want_command clang-format clang-format
        want_command clang-tidy clang-tidy
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
    bench) want_package libbenchmark-dev ;;
    docs) want_command doxygen doxygen ;;
    *) fail "unknown group '$1' (build test check corba coverage package bench docs)" ;;
    esac
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
    # shellcheck disable=SC2086  # a list of words
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing ||
        fail "apt-get could not install:$missing"
}

[ "${ZO_SKIP_DEPS:-}" != 1 ] || exit 0
[ $# -gt 0 ] || set -- build
for group; do want_group "$group"; done
[ -z "$missing" ] || install_missing
