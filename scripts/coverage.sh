#!/bin/sh
# Runs the tests on an instrumented build and reports the coverage of the library.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build test coverage
# Counts of an earlier run would be added to.
find "$root/build/coverage" -name '*.gcda' -delete 2>/dev/null || true
"$root/scripts/test.sh" coverage "$@"
cd "$root"
gcovr --root . --filter 'src/' --filter 'include/' --exclude-throw-branches --print-summary \
    --html-details build/coverage/report.html build/coverage
step "the lines one by one: build/coverage/report.html"
