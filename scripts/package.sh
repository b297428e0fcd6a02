#!/bin/sh
# Makes a Debian package of the library in build/package.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build package
build_preset release
out=$root/build/package
rm -rf "$out"
(cd "$root/build/release" && cpack -G DEB -B "$out")
rm -rf "$out/_CPack_Packages"
for package in "$out"/*.deb; do step "made $package"; done
