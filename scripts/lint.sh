#!/bin/sh
# Runs the static checks of .clang-tidy over our sources and headers.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build check
commands=$root/build/lint
step "configuring build/lint"
cmake -S "$root" -B "$commands" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
    -DZO_BUILD_TESTS=OFF >/dev/null
cmake --build "$commands" --target zo_generated_sources >/dev/null
# The checker reads the command lines as clang would, which does not know this one.
sed 's/ -fno-gnu-unique//g' "$commands/compile_commands.json" >"$commands/compile_commands.tmp"
mv "$commands/compile_commands.tmp" "$commands/compile_commands.json"

step "checking"
log=$commands/lint.log
status=0
run-clang-tidy -quiet -j "$jobs" -p "$commands" "$root/(src|examples|tools)/.*\.cpp" >"$log" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
    # Without colours, command lines and the counts of what other people's headers hold.
    sed 's/\x1b\[[0-9;]*m//g' "$log" | grep -vE '^[0-9]+ (warnings|errors?)|^clang-tidy|^Suppressed|^$' >&2 || true
    fail "findings above; the full output is in $log"
fi
step "no findings"
