#!/bin/sh
# Writes the reference of the public headers; a comment that leaves something out is an error.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build docs
step "configuring build/docs"
(cd "$root" && cmake --preset docs)
cmake --build "$root/build/docs" --target zo_docs
step "the reference: build/docs/docs/html/index.html"
