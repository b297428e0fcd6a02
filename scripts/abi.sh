#!/bin/sh
# Compares the exported interface with the baseline in abi/, which bundles in the field were
# compiled against; a difference is an error. With --update it records the present interface.
. "$(dirname "$0")/common.sh"

"$root/scripts/install-deps.sh" build test check
baseline=$root/abi/libzo_bundlemgr.abi
present=$root/build/debug/libzo_bundlemgr.abi
configure_preset debug --log-level=WARNING
cmake --build "$root/build/debug" --target zo_bundlemgr --parallel "$jobs"
abidw --suppressions "$root/abi/ignore.ini" --headers-dir "$root/include" --drop-private-types \
    --exported-interfaces-only --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed \
    --no-parameter-names --out-file "$present" "$root/build/debug/lib/libzo_bundlemgr.so"

if [ "${1:-}" = --update ]; then
    cp "$present" "$baseline"
    step "recorded: $baseline"
    exit 0
fi

# The place of each virtual function and the size of each class: abidiff does not see two pure
# virtual functions change places.
layout() {
    awk -F"'" '
        function field(name,   i) {
            for (i = 1; i < NF; i += 2) if ($i ~ " " name "=$") return $(i + 1)
            return ""
        }
        /<class-decl / && field("size-in-bits") != "" { print $2, "has", field("size-in-bits"), "bits" }
        /<member-function / { slot = field("vtable-offset") }
        /<function-decl / { if (slot != "") print field("mangled-name"), "is virtual", slot; slot = "" }
    ' "$1" | LC_ALL=C sort -u
}

step "comparing with the baseline"
status=0
layout "$baseline" >"$present.was"
layout "$present" >"$present.is"
diff -u --label baseline --label present "$present.was" "$present.is" || status=1
abidiff --suppressions "$root/abi/ignore.ini" "$baseline" "$present" || status=1
[ "$status" -eq 0 ] ||
    fail "the exported interface has changed (above); CONTRIBUTING.md says how a wanted addition is recorded"
step "the exported interface is that of the baseline"
