#!/bin/bash
# The examples, each as its user runs it. Usage: examples.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -u
build=$1 examples=$2/examples
. "${0%/*}/harness.sh"
export PATH=$build/examples:$build/bin:$PATH PICTRA_CFGFILE=$build/etc/pictra/img.conf
cp "$examples"/pictures/*.p?m "$examples"/pictures/*.png .

expect 0 'dot.png: 1 x 1, 24 bits a pixel' show dot.png
expect 0 'palette-key.png: 96 x 96, 4 bits a pixel, 16 colours, transparent in places' show palette-key.png
expect 1 'no.png: No such file or directory' show no.png
[ "$(show photo.png | tail -n +2 | sort -u | wc -l)" -gt 10 ] || fail "show draws no picture: $(show photo.png)"

mkdir small
echo no picture >text.txt
expect 0 './text.txt: no codec' thumbnails . small 40
expect 0 'small/photo.png.png png 40 x 27 rgb888' pictra info small/photo.png.png
expect 0 'small/text.pgm.png png 17 x 13 g8' pictra info small/text.pgm.png
[ "$(ls small | wc -l)" = "$(ls ./*.p?m ./*.png | wc -l)" ] || fail "not one for each picture: $(ls small)"

expect 0 '' write_buffer drawn.ppm
expect 0 'drawn.ppm pnm 256 x 64 rgb888' pictra info drawn.ppm
[ "$(od -An -tu1 -j 209 -N 3 drawn.ppm | xargs)" = '65 0 128' ] || fail 'the 66th pixel'
expect 1 'drawn.none: status 3' write_buffer drawn.none

expect 0 "$(printf '8 bits a sample in the file\nthe codec offers')" callouts photo.png
expect 0 'dark 84, middle 70, light 67' tail -n 1 <(callouts text.pgm)
expect 0 'stopped after 5 rows' grep stopped <(callouts photo.png 5)

{ head -c 1000 /dev/zero; cat photo.png; echo more; } >archive
size=$(stat -c %s photo.png)
expect 0 '241 x 161 pixels' stream_backend archive 1000 "$size"
expect 1 'archive: status 4' stream_backend archive 1000 $((size / 2))
expect 1 'archive: status 1' stream_backend archive 0 "$size"

finish
