#!/bin/bash
# Every binary looks for libraries beside itself and in the system's folders: an empty or relative element would be the
# current directory, an absolute one would be of one machine. Usage: runpaths.sh DIRECTORY
set -u
directory=$1
. "${0%/*}/harness.sh"

count=0
while read -r file; do
    dynamic=$(${READELF:-readelf} -d "$file" 2>/dev/null) || continue
    count=$((count + 1))
    path=$(sed -n 's/.*(R\(UN\)\?PATH).*\[\(.*\)\]/\2/p' <<<"$dynamic")
    [[ -z $path || $path =~ ^\$ORIGIN(/[^:]*)?(:\$ORIGIN(/[^:]*)?)*$ ]] || fail "$file looks for libraries in '$path'"
done < <(find "$directory" -name CMakeFiles -prune -o -type f \( -perm -u+x -o -name '*.so*' \) -print)
[ $count -gt 10 ] || fail "only $count binaries in $directory"
finish
