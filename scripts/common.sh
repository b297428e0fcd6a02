# shellcheck shell=sh
# Sourced by the other scripts: where things are, and how a preset is built.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}

# A make that runs inside ours must not inherit its flags.
unset MAKEFLAGS MFLAGS MAKELEVEL

# Faster where they are installed, never required.
if [ -z "${CMAKE_GENERATOR:-}" ] && command -v ninja >/dev/null 2>&1; then
    export CMAKE_GENERATOR=Ninja
fi
if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null 2>&1; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
# Without it ccache refuses every file that uses a precompiled header.
export CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS:-pch_defines,time_macros,include_file_mtime,include_file_ctime}"

step() { printf '==> %s\n' "$*"; }

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# configure_preset <preset> [<argument of cmake>...]: configures build/<preset>.
# Warnings are errors in CI only: a newer compiler must not stop a user.
configure_preset() {
    preset=$1
    shift
    werror=OFF
    [ "${CI:-}" != true ] || werror=ON
    step "configuring build/$preset"
    (cd "$root" && cmake --preset "$preset" -DZO_WERROR=$werror "$@")
}

# build_preset <preset> [<argument of cmake>...]: configures and builds build/<preset>.
build_preset() {
    configure_preset "$@"
    step "building build/$preset"
    cmake --build "$root/build/$preset" --parallel "$jobs"
}
