#!/bin/bash
# The main job on the example pictures, with the program that was built: tells what they are, converts them, compares,
# and leaves a picture to look at in the build directory. Usage: demo.sh [BUILD_DIRECTORY]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build/release}" && pwd)
pictures=$root/examples/pictures
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
unset PICTRA_CFGFILE
export PATH=$build/bin:$PATH

show() {
    echo "  \$ $*"
    "$@" | sed 's/^/    /'
}

equal() {
    cmp "$1" "$2" || { echo "demo: $1 and $2 differ" >&2; exit 1; }
    echo "    $1 and $2 are equal"
}

echo 'What the example pictures are:'
(cd "$pictures" && show pictra info ./*.png ./*.p[bg]m)

echo 'A photograph to PPM, back to PNG, and to PPM again:'
show pictra convert "$pictures/photo.png" photo.ppm
show pictra convert photo.ppm photo.png
show pictra convert photo.png again.ppm
equal photo.ppm again.ppm

echo 'Every picture to PAM and back to PNG, seen with all its transparency:'
for picture in "$pictures"/*.png; do
    name=$(basename "$picture" .png)
    pictra convert "$picture" "$name.pam"
    pictra convert "$name.pam" "$name.png"
    pictra convert "$picture" before.pam --format argb8888he
    pictra convert "$name.png" after.pam --format argb8888he
    cmp before.pam after.pam || { echo "demo: $name.png changed on its way" >&2; exit 1; }
    told=$(pictra info "$picture" | awk '{ $1 = ""; print substr($0, 2) }')
    echo "    $name.png: $told -> PAM -> PNG: the same picture"
done

echo 'Through pipes, with 16 bits a pixel on the way:'
echo '  $ pictra convert - - --to png --format rgb565he < photo.png | pictra convert - few.ppm'
pictra convert - - --to png --format rgb565he <"$pictures/photo.png" | pictra convert - few.ppm
pictra convert few.ppm twice.ppm --format rgb565he
equal few.ppm twice.ppm

echo 'Cropped, mirrored, enlarged, and made small:'
show pictra convert "$pictures/photo.png" card.png --crop 200x150+20+5 --flip horizontal --resize 480x
show pictra info card.png
show pictra thumbnail --size 64 "$pictures"/{photo,alpha,palette-key}.png -o '{stem}-small.png' -j 2
show pictra info photo-small.png alpha-small.png palette-key-small.png
echo 'Four quarter turns:'
show pictra convert "$pictures/photo.png" turned.ppm --rotate 90 --rotate 90 --rotate 90 --rotate 90
equal photo.ppm turned.ppm

echo 'What cannot be is said, and leaves no file:'
if pictra convert "$pictures/alpha.png" alpha.ppm 2>message; then
    echo 'demo: alpha went into a PPM' >&2
    exit 1
fi
sed 's/^/    /' message
[ ! -e alpha.ppm ]

[ ! -t 1 ] || pictra show card.png
cp card.png "$build/demo.png"
echo "demo: everything went as it should; look at $build/demo.png"
