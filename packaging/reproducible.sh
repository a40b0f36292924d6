#!/bin/bash
# Builds the packages of the current commit twice, in directories of different names and at different times, and
# compares them byte by byte. Usage: reproducible.sh
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
commit=$(git rev-parse HEAD) # commits may be added meanwhile
export SOURCE_DATE_EPOCH
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")

for tree in one another/and/deeper; do
    mkdir -p "$work/$tree"
    git archive "$commit" | tar -x -C "$work/$tree"
    find "$work/$tree" -exec touch {} + # as a fresh clone: the time of the day, not of the commit
    (
        cd "$work/$tree"
        cmake --preset packages >/dev/null
        cmake --build --preset packages >/dev/null
        cd build/packages
        cpack >/dev/null 2>&1
        rm -rf debs/_CPack_Packages
    ) || { echo "reproducible: the build in $tree failed" >&2; exit 1; }
done

one=$work/one/build/packages another=$work/another/and/deeper/build/packages
status=0
for file in $(cd "$one" && find lib debs -type f | sort); do
    if cmp -s "$one/$file" "$another/$file"; then
        echo "equal: $file $(sha256sum "$one/$file" | cut -c1-16)"
    else
        echo "differs: $file"
        status=1
    fi
done
exit $status
