#!/bin/sh
# link_parts.sh <compiler> <object> <kind> <count> <directory> <library>...
# Links the object <count> times, as lib<kind>000.so and so on, each with factories of its own.
set -e
compiler=$1 object=$2 kind=$3 count=$4 directory=$5
shift 5
mkdir -p "$directory"
export compiler object kind directory
seq -f %03.0f 0 $((count - 1)) | xargs -P 2 -I {} sh -c '
    name=$kind$1
    shift
    case $kind in far | poco) ;; *)
        for k in 0 1 2 3; do set -- "$@" "-Wl,--defsym=_make_${name}s$k=_make_part$k"; done ;;
    esac
    exec "$compiler" -shared -o "$directory/lib$name.so" "$object" "$@"' link {} "$@"
