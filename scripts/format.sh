#!/bin/sh
# Formats our C++ files in place, or with --check only says which need it.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" check
if [ "${1:-}" = --check ]; then
    set -- --dry-run -Werror
    done='all files are formatted'
else
    set -- -i
    done='formatted'
fi
cd "$root"
find . \( -path './build*' -o -path './.*' \) -prune -o \( -name '*.h' -o -name '*.cpp' \) -type f -exec clang-format "$@" {} +
step "$done"
