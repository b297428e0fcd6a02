#!/bin/sh
# Builds the library with clang, which checks that each lock is held where the annotations of
# include/bundlemgr/detail/mutex.h say that it is.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build check
build=$root/build/threadsafety
step "configuring build/threadsafety"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_CXX_FLAGS='-Wthread-safety -Wthread-safety-beta -Werror' \
    -DZO_BUILD_TESTS=OFF -DZO_BUILD_EXAMPLES=OFF -DZO_BUILD_TOOLS=OFF >/dev/null
step "checking"
cmake --build "$build" --target zo_bundlemgr --parallel "$jobs" || fail "findings above"
step "no findings"
