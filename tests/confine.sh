#!/bin/bash
# Codecs that a file has taken over, in the program's cage, and systems that do not let it build one.
# Usage: confine.sh BUILD_DIRECTORY PICTURES
set -u
build=$1 pictures=$2 pictra=$1/bin/pictra
. "$(dirname "$0")/harness.sh"

# ---- what takes over a codec gets nowhere
printf '[%s/tests/hostile_module.so]\next = x\n' "$build" >hostile.conf
export PICTRA_CFGFILE=$PWD/hostile.conf
echo keep me >precious
for letter in a c d e h l m p w z; do echo "$letter" >"$letter.x"; done
expect 5 'is not supported' "$pictra" info --sandbox on e.x
[ -e precious ] && [ ! -e escaped ] || fail 'a confined codec reached the file system'
expect 42 'status 42' "$pictra" info --sandbox off e.x
[ -e escaped ] || fail 'the hostile codec is not hostile'
expect 5 'is not supported' "$pictra" info --sandbox on d.x 7<precious
expect 42 'status 42' "$pictra" info --sandbox off d.x
expect 5 'is not supported' "$pictra" info --sandbox on - <>w.x
[ "$(cat w.x)" = w ] || fail 'standard input was written to'
expect 6 'memory ran out' "$pictra" info --sandbox on --max-memory 300 m.x
expect 4 'crashed (signal 11)' "$pictra" info --sandbox on c.x
expect 1 'crashed' "$pictra" info c.x e.x
expect 1 'status 256' "$pictra" info z.x

# ---- nor does what takes over a codec that writes; the target stays as it was
printf '[%s/lib/pictra/pnm.so]\next = pgm\n[%s/tests/hostile_module.so]\next = x\n' "$build" "$build" >writing.conf
PICTRA_CFGFILE=$PWD/writing.conf
echo precious >kept.x
for letter in c d e h z; do printf "P5 1 1 255\n$letter" >$letter.pgm; done
rm -f escaped
expect 5 'kept.x' "$pictra" convert --sandbox on e.pgm kept.x
[ -e precious ] && [ ! -e escaped ] || fail 'a confined codec that writes reached the file system'
expect 5 'kept.x' "$pictra" convert --sandbox on d.pgm kept.x
expect 4 'crashed (signal 11) while it was written' "$pictra" convert --sandbox on c.pgm kept.x
expect 10 'than --timeout 1 ' timeout 20 "$pictra" convert --sandbox on --timeout 1 h.pgm kept.x
expect 1 'status 256' "$pictra" convert z.pgm kept.x
[ "$(cat kept.x)" = precious ] || fail 'a codec that was taken over cost the target'
PICTRA_CFGFILE=$PWD/hostile.conf

# ---- limits: of each picture, with a cage and without
expect 10 'than --timeout 1 ' timeout 20 "$pictra" info --sandbox on --timeout 1 h.x
expect 10 'than --timeout 1 ' timeout 20 "$pictra" info --verify --sandbox off --timeout 1 p.x
expect 10 'more pictures than --max-pictures 4' timeout 30 "$pictra" frames --sandbox on --timeout 2 --max-pictures 4 l.x
[ "$(wc -l <output)" = 4 ] || fail 'an animation that takes longer than a picture may'
expect 10 'more pictures than --max-pictures 50' timeout 100 "$pictra" frames --sandbox on --max-pictures 50 a.x
unset PICTRA_CFGFILE
(printf 'P6 2000 2000 255\n' && head -c 12000000 /dev/zero) >large.ppm
for sandbox in on off; do
    expect 10 'takes 12 MB, more than --max-memory 5' "$pictra" convert --sandbox $sandbox --max-memory 5 large.ppm x.ppm
    expect 0 '' "$pictra" convert --sandbox $sandbox --max-memory 20 large.ppm x.ppm
    expect 10 'more than --max-pixels 1000' "$pictra" info --sandbox $sandbox --max-pixels 1000 large.ppm
done

# ---- systems that refuse a call: `on` fails and names it, `auto` says so once and goes on
for call in close_range prctl seccomp memfd_create socketpair prlimit64:setrlimit; do
    refuse=("$build/tests/refuse" "${call%:*}")
    expect 12 "confined (${call#*:}: " "${refuse[@]}" "$pictra" info --sandbox on "$pictures/dot.png"
    expect 0 'without full confinement' "${refuse[@]}" "$pictra" info "$pictures/dot.png" "$pictures/grey.png"
    [ "$("${refuse[@]}" "$pictra" info "$pictures/dot.png" "$pictures/grey.png" 2>&1 | grep -c confinement)" = 1 ] ||
        fail "$call: not said once"
    expect 0 'without full confinement' "${refuse[@]}" "$pictra" convert "$pictures/dot.png" dot.ppm
    expect 0 '1 x 1' "${refuse[@]}" "$pictra" info --sandbox off "$pictures/dot.png"
done
expect 0 '1 x 1' "$pictra" info --sandbox on "$pictures/dot.png"
mkdir bin lib && cp "$pictra" bin && cp -P "$build"/lib/libpictra.so* lib && export PICTRA_CFGFILE=$build/etc/pictra/img.conf
expect 12 'pictra-worker: No such file' bin/pictra info --sandbox on "$pictures/dot.png"
expect 0 '1 x 1' bin/pictra info "$pictures/dot.png"
finish
