#!/bin/sh
# What the library shows the world: the names in exports.txt and nothing else, and a need for the C library alone.
# Usage: exports.sh LIBRARY LIST
set -eu
exported=$(${NM:-nm} -D --defined-only --format=posix "$1" | cut -d' ' -f1 | LC_ALL=C sort)
listed=$(LC_ALL=C sort "$2")
if [ "$exported" != "$listed" ]; then
    echo "exported (<) and listed (>) names differ:"
    printf '%s\n' "$exported" >exported.txt
    printf '%s\n' "$listed" | diff exported.txt - | grep '^[<>]'
    exit 1
fi
needed=$(${READELF:-readelf} -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
soname=$(${READELF:-readelf} -d "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$needed" = libc.so.6 ] || { echo "needs: $needed"; exit 1; }
[ "$soname" = libpictra.so.0 ] || { echo "soname: $soname"; exit 1; }
# Not its fortified double: whoever collects messages with a syslog of their own gets ours.
imported=$(${NM:-nm} -D --undefined-only --format=posix "$1" | cut -d' ' -f1 | grep -i syslog) || imported=nothing
[ "${imported%%@*}" = syslog ] || { echo "logs through: $imported"; exit 1; }
