#!/bin/sh
# Builds and installs the library, its headers and its CMake package under PREFIX
# (/usr/local when unset), below DESTDIR if that is set.
. "$(dirname "$0")/common.sh"

prefix=${PREFIX:-/usr/local}
"$root/scripts/build.sh" release
cmake --install "$root/build/release" --prefix "$prefix"
if [ -z "${DESTDIR:-}" ] && [ "$(id -u)" -eq 0 ]; then ldconfig; fi
step "installed under ${DESTDIR:-}$prefix"
