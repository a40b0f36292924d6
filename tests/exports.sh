#!/bin/sh
# What a library shows the world: the names in the list and nothing else, and a need for these libraries alone.
# Usage: exports.sh LIBRARY LIST SONAME NEEDED...
set -eu
library=$1 list=$2 wanted=$3
shift 3
exported=$(${NM:-nm} -D --defined-only --format=posix "$library" | cut -d' ' -f1 | LC_ALL=C sort)
listed=$(LC_ALL=C sort "$list")
if [ "$exported" != "$listed" ]; then
    echo "exported (<) and listed (>) names differ:"
    printf '%s\n' "$exported" >exported.txt
    printf '%s\n' "$listed" | diff exported.txt - | grep '^[<>]'
    exit 1
fi
needed=$(${READELF:-readelf} -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort)
soname=$(${READELF:-readelf} -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$needed" = "$(printf '%s\n' "$@" | LC_ALL=C sort)" ] || { echo "needs: $needed"; exit 1; }
[ "$soname" = "$wanted" ] || { echo "soname: $soname"; exit 1; }
# Not its fortified double: whoever collects messages with a syslog of their own gets ours.
imported=$(${NM:-nm} -D --undefined-only --format=posix "$library" | cut -d' ' -f1 | grep -i syslog) || imported=syslog
[ "${imported%%@*}" = syslog ] || { echo "logs through: $imported"; exit 1; }
