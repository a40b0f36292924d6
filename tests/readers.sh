#!/bin/bash
# Another reader sees the same pixels: in the example pictures, and in what the program writes in each format.
# Usage: readers.sh BUILD_DIRECTORY PICTURES
set -u
build=$1 pictures=$2 pictra=$1/bin/pictra
. "${0%/*}/harness.sh"
python=$(need python3 '^Pillow (9|[1-9][0-9])\.' -c 'import PIL; print("Pillow", PIL.__version__)') || exit $skipped

# What the other reader makes of a file, as a PAM of red, green, blue and alpha.
theirs() {
    "$python" - "$1" >theirs.pam 2>message <<'END' || fail "the other reader refuses $1: $(tail -n 1 message)"
import sys
from PIL import Image
picture = Image.open(sys.argv[1]).convert('RGBA')
header = 'P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n' % picture.size
sys.stdout.buffer.write(header.encode() + picture.tobytes())
END
}

agrees() {
    theirs "$1"
    expect 0 'equal' "$pictra" compare "$1" theirs.pam
}

for picture in "$pictures"/*.p[nbg]*; do
    agrees "$picture"
done
for row in {png,tif,tga,webp}:{photo,alpha} {bmp,jpg,pnm}:photo {png,tif}:bilevel png:palette-alpha {png,gif}:palette-key
do
    written=${row#*:}.${row%:*} option=
    [ "${row%:*}" != webp ] || option='--option lossless=on'
    # shellcheck disable=SC2086 -- one option in two words
    expect 0 '' "$pictra" convert "$pictures/${row#*:}.png" "$written" $option
    agrees "$written"
done
finish
