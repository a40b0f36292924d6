#!/bin/bash
# Compares the interface of the library that was built with that of the last tag, and fails where a program built with
# the tag would break. Usage: abi.sh
set -euo pipefail
cd "$(dirname "$0")/.."
tag=$(git describe --tags --abbrev=0 2>/dev/null) || { echo 'abi: skipped, there is no tag to compare with'; exit 0; }
command -v abidiff >/dev/null || { echo 'abi: there is no abidiff (package abigail-tools)' >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
git archive "$tag" | tar -x -C "$work/source"

# Types are in the debug information only, so both are built with it.
build() { # source, build
    cmake -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g \
        -DPICTRA_MODULES=OFF -DPICTRA_TESTS=OFF >/dev/null
    cmake --build "$2" --target pictra >/dev/null
}
build "$work/source" "$work/then"
build . "$work/now"

# What is added breaks nobody, and neither does what the headers do not show. All else that is reported is a break.
abidiff --no-added-syms --headers-dir1 "$work/source/include" --headers-dir2 include \
    "$work/then/lib/libpictra.so" "$work/now/lib/libpictra.so" || { echo "abi: not compatible with $tag" >&2; exit 1; }
echo "abi: programs built with $tag run with this"
