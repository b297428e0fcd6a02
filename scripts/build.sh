#!/bin/sh
# Builds a preset: build.sh [PRESET [<argument of cmake>...]], release when none is given.
. "$(dirname "$0")/common.sh"

[ $# -gt 0 ] || set -- release
"$root/scripts/install-deps.sh" build
build_preset "$@"
step "done, the library is build/$1/lib/libzo_bundlemgr.so"
