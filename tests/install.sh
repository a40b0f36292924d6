#!/bin/bash
# An installation below a prefix, and applications in C and in C++ built against it with CMake and with pkg-config, by
# the commands of the page about it. Usage: install.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work
unset PICTRA_CFGFILE DESTDIR CMAKE_PREFIX_PATH PKG_CONFIG_PATH

fail() { echo "install: $*" >&2; exit 1; }

# Types the commands of the page's blocks in the directory; build/release is what is built already.
typed() { # DIRECTORY BLOCK...
    local directory=$1
    shift
    "$source/tests/commands.sh" "$source/docs/install.md" "$@" | grep -v '^cmake --preset\|^cmake --build --preset' |
        sed "s|build/release|\"$build\"|" >"$work/typed"
    (cd "$directory" && sh -eu "$work/typed") >"$work/log" 2>&1 || { cat "$work/log"; fail "a command of '$*'"; }
}

# The applications do not see this tree: the directory is all that they get.
typed "$source" source
cp -r "$source/tests/consumer" "$work/consumer"
prefix=$work/pictra
libdir=$(dirname "$(find "$prefix" -name libpictra.so)")
export CMAKE_PREFIX_PATH=$prefix PKG_CONFIG_PATH=$libdir/pkgconfig
typed "$work/consumer" cmake pkg-config
for kind in cmake pkg-config; do
    for row in consumer:241x161 consumer-cpp:120x80; do
        told=$("$work/consumer/$kind/build/${row%:*}" "$source/examples/pictures/photo.png")
        [ "${told// /}" = "${row#*:}pixels" ] || fail "$kind, ${row%:*}: $told"
    done
done
[ -e "$(pkg-config --variable=codecdir pictra)/png.so" ] || fail 'codecdir: no module there'
cmp "$(pkg-config --variable=configfile pictra)" "$prefix/etc/pictra/img.conf"
cmp <("$prefix/bin/pictra" config generate) "$prefix/etc/pictra/img.conf"

typed "$work" moved

# A staged installation holds the paths of the final place, and nothing lands outside of the stage.
DESTDIR=$work/stage cmake --install "$build" --prefix "$work/final" >/dev/null
grep -q "^\[$work/final/.*/png.so]" "$work/stage$work/final/etc/pictra/img.conf" || fail 'stage: wrong paths'
[ ! -e "$work/final" ] || fail 'DESTDIR: files outside of it'
