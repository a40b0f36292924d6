#!/bin/bash
# The program as its user meets it: results, messages, exit codes, and what is left behind.
# Usage: tool.sh BUILD_DIRECTORY PICTURES
set -u
build=$1 pictures=$2 pictra=$1/bin/pictra
. "${0%/*}/harness.sh"

# ---- Usage
expect 0 'convert' "$pictra" --help
expect 0 'pictra 0.' "$pictra" --version
expect 2 'subcommand' "$pictra"
expect 2 'FILE is required' "$pictra" info
expect 2 'argb8888he' "$pictra" convert "$pictures/dot.png" x.png --format rgb
expect 2 '--to png' "$pictra" convert "$pictures/dot.png" -

# ---- info
expect 0 'photo.png png 241 x 161 rgb888' "$pictra" info "$pictures/photo.png"
expect 0 'pal4 palette of 16, colour key 0' "$pictra" info "$pictures/palette-key.png"
expect 0 'pal8 palette of 32 with alpha' "$pictra" info "$pictures/palette-alpha.png"
expect 0 'colour key #ff00ff' "$pictra" info "$pictures/rgb-key.png"
expect 0 'argb8888he alpha' "$pictra" info "$pictures/alpha.png"
expect 1 'dot.png png 1 x 1' "$pictra" info missing.png "$pictures/dot.png"
expect 9 'missing.png: No such file' "$pictra" info missing.png
expect 9 'directory' "$pictra" info "$pictures"
: >empty.png
for input in empty.png -; do # by its name, through a file, through a pipe
    expect 4 "it is empty; get it again" "$pictra" info "$input" <empty.png
    expect 4 "it is empty; get it again" "$pictra" convert "$input" x.png --sandbox off < <(:)
done
expect 4 'standard input: it is empty; get it again' "$pictra" info - < <(:)
echo 'a letter' >letter.png
expect 1 'no codec recognises' "$pictra" info letter.png
head -c 1000 "$pictures/photo.png" >cut.png
expect 0 'cut.png png 241 x 161 rgb888' "$pictra" info cut.png
expect 4 'cut.png: the data is damaged' "$pictra" info --verify cut.png
expect 0 'colour key #ff00ff, whole' "$pictra" info --verify "$pictures/rgb-key.png"

# ---- convert: there and back. Whatever can hold a picture gives back what PNG shows of it in colours and alpha.
for picture in "$pictures"/*.p[nbg]*; do
    expect 0 '' "$pictra" convert "$picture" direct.pam --format argb8888he
    for kind in png pam pnm; do
        expect 0 '' "$pictra" convert "$picture" "there.$kind"
        expect 0 '' "$pictra" convert "there.$kind" back.pam --format argb8888he
        same direct.pam back.pam
    done
done
expect 0 '' "$pictra" convert "$pictures/photo.png" photo.ppm
expect 0 '' "$pictra" convert photo.ppm photo.png
expect 0 '' "$pictra" convert photo.png again.ppm
same photo.ppm again.ppm
expect 0 '' "$pictra" convert "$pictures/bilevel.png" bilevel.pbm
expect 0 '' "$pictra" convert "$pictures/bilevel.pbm" original.pbm
same bilevel.pbm original.pbm
expect 0 '' "$pictra" convert "$pictures/photo.png" grey.pgm
expect 0 'g8' "$pictra" info grey.pgm
expect 0 '' "$pictra" convert "$pictures/photo.png" few.png --format FMT_RGB565HE
expect 0 'rgb888' "$pictra" info few.png

# ---- convert: what a name promises
expect 2 'holds no transparency' "$pictra" convert "$pictures/alpha.png" x.ppm
expect 2 'holds no transparency' "$pictra" convert "$pictures/rgb-key.png" x.ppm
expect 0 '' "$pictra" convert "$pictures/rgb-key.png" x.ppm --format rgb888
[ "$(head -c 2 x.ppm)" = P6 ] || fail 'x.ppm is no P6'
expect 2 'black and white only' "$pictra" convert "$pictures/photo.png" x.pbm
expect 3 "extension 'xyz'" "$pictra" convert "$pictures/photo.png" x.xyz
expect 2 'cannot become pal8' "$pictra" convert "$pictures/photo.png" x.png --format pal8
expect 2 'cannot hold a8; use --format with one of pal1' "$pictra" convert "$pictures/alpha.png" y.png --format a8
expect 9 'check that its directory exists' "$pictra" convert "$pictures/photo.png" none/x.png
ls x.pbm x.xyz y.png none 2>/dev/null && fail 'something was left of a refused conversion'

expect 2 'holds no transparency' "$pictra" convert "$pictures/rgb-key.png" x.jpg
expect 0 '' "$pictra" convert "$pictures/rgb-key.png" x.jpg --format rgb888
expect 2 'cannot hold rgb888' "$pictra" convert "$pictures/photo.png" x.gif

# ---- convert: every pair of formats; what loses nothing shows the same
for kind in jpg gif webp tif bmp tga qoi; do
    picture=photo format=rgb888 option=
    case $kind in gif) picture=palette-key format= ;; webp) option='--option lossless=on' ;; esac
    # shellcheck disable=SC2086
    expect 0 '' "$pictra" convert "$pictures/$picture.png" "one.$kind" ${format:+--format $format} $option
    expect 0 "one.$kind " "$pictra" info "one.$kind"
    expect 0 '' "$pictra" convert "one.$kind" one.png
    if [ $kind = jpg ]; then
        expect 1 'PSNR 3' "$pictra" compare "$pictures/photo.png" one.png
    else
        expect 0 'equal' "$pictra" compare "$pictures/$picture.png" one.png
    fi
done

# ---- convert: options and metadata; orientation is applied once
expect 2 'it takes 1 to 100' "$pictra" convert photo.png x.jpg --quality 101
expect 2 'there are: strict' "$pictra" convert photo.png x.jpg --option qualty=90
[ -e x.jpg ] && [ "$("$pictra" info x.jpg | awk '{ print $3 }')" = 31 ] || fail 'a wrong option cost the target'
printf '\377\330\377\341\0\42Exif\0\0MM\0\52\0\0\0\10\0\1\1\22\0\3\0\0\0\1\0\6\0\0\0\0\0\0' >turned.jpg
tail -c +3 one.jpg >>turned.jpg
expect 0 '"width":241,"height":161' "$pictra" info --json turned.jpg
expect 0 '"orientation":6' "$pictra" info --json turned.jpg
for kind in png jpg webp tif; do
    expect 0 '' "$pictra" convert turned.jpg "upright.$kind"
    expect 0 '"width":161,"height":241' "$pictra" info --json "upright.$kind"
    expect 0 '"orientation":1' "$pictra" info --json "upright.$kind"
    expect 0 '' "$pictra" convert turned.jpg "stored.$kind" --orient off
    expect 0 '"orientation":6' "$pictra" info --json "stored.$kind"
    expect 0 '' "$pictra" convert turned.jpg "bare.$kind" --orient off --keep none
    expect 0 '"orientation":6' "$pictra" info --json "bare.$kind" # it belongs to the pixels
done
# The eight orientations, by their pixels: a TIFF of two rows, abc and def.
entry() { printf "\\$1\\1\\3\\0\\1\\0\\0\\0\\$2\\0\\0\\0"; } # a tag above 255, and its number
orientation=0
for upright in '3 2 255 abcdef' '3 2 255 cbafed' '3 2 255 fedcba' '3 2 255 defabc' \
    '2 3 255 adbecf' '2 3 255 daebfc' '2 3 255 fcebda' '2 3 255 cfbead'; do
    orientation=$((orientation + 1))
    { printf 'II*\0\16\0\0\0abcdef\12\0' && entry 0 3 && entry 1 2 && entry 2 10 && entry 3 1 && entry 6 1 &&
        entry 21 10 && entry 22 "$(printf %o $orientation)" && entry 25 1 && entry 26 2 && entry 27 6 && printf '\0\0\0\0'; } >turned.tif
    expect 0 '' "$pictra" convert turned.tif stored.png --orient off
    for turned in turned.tif stored.png; do
        got=$("$pictra" convert $turned - --to pgm | tail -n +2 | tr '\n' ' ')
        [ "$got" = "$upright" ] || fail "orientation $orientation of $turned: '$got' instead of '$upright'"
    done
done
expect 0 '' "$pictra" convert cut.png kept.png --on-damage keep
expect 0 'kept what arrived' "$pictra" convert cut.png kept.png --on-damage keep

# ---- convert: standard input and output, also in small pieces
"$pictra" convert - - --to ppm <"$pictures/photo.png" | cat >piped.ppm
same photo.ppm piped.ppm
(head -c 3 photo.ppm; sleep 0.1; tail -c +4 photo.ppm | head -c 20; sleep 0.1; tail -c +24 photo.ppm) |
    "$pictra" convert - pieces.ppm || fail 'a slow pipe'
same photo.ppm pieces.ppm
expect 4 'standard input: the data is damaged' "$pictra" convert - x.png <cut.png

# ---- convert: a target survives, and nothing is left beside it
mkdir targets
echo precious >targets/kept.png
expect 4 'damaged' "$pictra" convert cut.png targets/kept.png
expect 9 'disk is full or a limit' bash -c "ulimit -f 4; '$pictra' convert photo.ppm targets/kept.png"
[ "$(cat targets/kept.png)" = precious ] || fail 'the target did not survive'
[ "$(ls -A targets)" = kept.png ] || fail "left behind: $(ls -A targets)"
ls targets >before
"$pictra" convert photo.ppm targets/long.png --resize 9000x9000 2>/dev/null &
until find "/proc/$!/fd" -lname "$work/targets/*" 2>/dev/null | grep -q . || ! kill -0 $! 2>/dev/null; do sleep 0.02; done
temporary=$(ls -A targets | grep -c pictra-) # none where the file system knows files without names
kill -KILL $! || fail 'a long conversion was too short to be killed'
wait $! 2>/dev/null
[ "$temporary" = 1 ] || [ "$(ls -A targets)" = "$(cat before)" ] || fail "killed, and left: $(ls -A targets)"
rm -f targets/.pictra-*
chmod 640 targets/kept.png
ln -s targets/kept.png link.png
expect 0 '' "$pictra" convert photo.ppm link.png
[ -L link.png ] && [ "$(stat -c %a targets/kept.png)" = 640 ] || fail 'link or rights were not kept'
ln -s ../targets/there.png targets/dangling.png && ln -s targets/dangling.png chain.png && ln -sf loop.png loop.png
for link in chain loop; do # they lead nowhere, so they are replaced where they are, and nothing is written elsewhere
    expect 0 '' "$pictra" convert --fsync photo.ppm "$link.png"
    [ ! -L "$link.png" ] && [ -L targets/dangling.png ] && [ ! -e targets/there.png ] || fail "$link.png was followed"
done
(umask 027 && "$pictra" convert photo.ppm targets/new.png)
[ "$(stat -c %a targets/new.png)" = 640 ] || fail "a new file has rights $(stat -c %a targets/new.png)"
expect 9 'disk is full' "$pictra" convert photo.ppm /dev/full --to png
[ -c /dev/full ] || fail 'a device was replaced'
expect 0 '' "$pictra" convert photo.ppm /dev/null --to png
[ -c /dev/null ] || fail 'a device was replaced'

# ---- operations: sizes and places by hand, in the order given; what goes round comes back
look() { "$pictra" convert "$1" "$2" --format argb8888he || fail "looking at $1"; }
for picture in "$pictures"/*.png; do
    look "$picture" before.pam
    expect 0 '' "$pictra" convert "$picture" round.png --rotate 90 --flip vertical --rotate 90 --flip vertical \
        --rotate 180 --flip horizontal --rotate 180 --flip horizontal
    look round.png after.pam
    same before.pam after.pam
    [ "$("$pictra" info "$picture" | awk '{ $1 = ""; print }')" = "$("$pictra" info round.png | awk '{ $1 = ""; print }')" ] ||
        fail "$picture is no longer what it was: $("$pictra" info round.png)"
done
printf 'P5 3 2 255\nabcdef' >letters.pgm
grey() { # grey RESULT ARGUMENT...: the pixels after its operations
    local result=$1 got
    shift
    got=$("$pictra" "${@:1:1}" letters.pgm - --to pgm "${@:2}" | tail -n +2 | tr '\n' ' ') || fail "$*"
    [ "$got" = "$result" ] || fail "'$got' from $*"
}
grey '2 3 255 daebfc' rotate --by 90
grey '3 2 255 fedcba' rotate --by 180
grey '2 3 255 cfbead' rotate --by 270
grey '3 2 255 cbafed' flip --horizontal
grey '3 2 255 defabc' flip --vertical
grey '2 1 255 ef' crop --rect 2x1+1+1
grey '1 2 255 eb' convert --crop 2x2+1+0 --rotate 180 --crop 1x2+1+0
grey '2 1 255 bc' convert --crop 2x1+1+0
expect 0 '120 x 80' bash -c "'$pictra' resize '$pictures/photo.png' r.png --size 120x && '$pictra' info r.png"
expect 0 '120 x 80' bash -c "'$pictra' resize '$pictures/photo.png' r.png --size x80 && '$pictra' info r.png"
expect 0 '7 x 500' bash -c "'$pictra' resize '$pictures/palette-key.png' r.png --size 7x500 && '$pictra' info r.png"
expect 0 '13 x 7 pal1' bash -c "'$pictra' crop '$pictures/bilevel.pbm' r.pbm --rect 13x7+3+5 && '$pictra' info r.pbm"
expect 11 'exceeds the picture, which is 241 x 161' "$pictra" crop "$pictures/photo.png" x.png --rect 200x100+42+0
{ printf 'P5 4 4000 255\n' && head -c 16000 /dev/zero; } >narrow.pgm # proportions alone may not cost gigabytes
expect 2 '600 x 600000, more than' "$pictra" resize narrow.pgm x.pgm --size 600x
expect 2 '2000 x 2000000, more than' "$pictra" resize narrow.pgm x.pgm --size 2000x
for wrong in 'resize --size x' 'resize --size 0x4' 'resize --size 4x4x' 'crop --rect 1x1+1' 'rotate --by 45' 'flip' \
    'flip --horizontal --vertical' 'convert --flip diagonal' 'thumbnail --size 0' 'convert -j 0' 'convert third.png'; do
    # shellcheck disable=SC2086
    expect 2 '' "$pictra" ${wrong%% *} "$pictures/photo.png" x.png ${wrong#"${wrong%% *}"}
    [ -e x.png ] && fail "$wrong wrote a file"
done

# ---- thumbnails: within the square, never larger, transparent where the picture is
thumb() { expect 0 "$1" bash -c "'$pictra' thumbnail --size 64 '$pictures/$2' t.png && '$pictra' info t.png"; }
thumb '64 x 43 rgb888' photo.png
thumb '64 x 64 argb8888he' palette-key.png
thumb '31 x 29 argb8888he' rgb-key.png
thumb '64 x 43 g8' grey.png
thumb '1 x 1 rgb888' dot.png
thumb '64 x 43 rgb888' bilevel.png
head -c -30 "$pictures/photo.png" >end.png # damaged at its end only
for verb in convert 'thumbnail --size 64' 'thumbnail --size 64 --sandbox off'; do
    # shellcheck disable=SC2086
    expect 4 'end.png: the data is damaged or cut short; get the file again' "$pictra" $verb end.png x.png
done

# ---- several pictures
mkdir many
expect 0 '' "$pictra" convert "$pictures"/{photo,alpha,grey}.png -o 'many/{stem}-{ext}.pam' -j 3
[ "$(ls many | tr '\n' ' ')" = 'alpha-png.pam grey-png.pam photo-png.pam ' ] || fail "many: $(ls many)"
expect 1 '2 of 4 pictures failed' "$pictra" thumbnail --size 9 cut.png "$pictures/photo.png" missing.png \
    "$pictures/grey.png" -o 'many/{stem}.png' -j 2
[ "$(ls many/*.png | tr '\n' ' ')" = 'many/grey.png many/photo.png ' ] || fail "many: $(ls many)"
expect 2 'would both become' "$pictra" convert a.png b.png -o 'many/x.png'
mkdir -p stems/out && cp photo.png stems/...png && cp photo.png stems/-.png && cp photo.png stems/bare && cp photo.png stems/.png
expect 2 'outside of its folder' "$pictra" convert stems/...png -o 'stems/out/{stem}/x.png'
expect 2 'outside of its folder' "$pictra" convert stems/bare -o '{ext}/x.png'
expect 2 'outside of its folder' "$pictra" frames stems/...png -o 'stems/out/{stem}/{n}.png'
expect 0 '' "$pictra" convert stems/...png stems/.png -o 'stems/out/{stem}.png'
[ "$(ls -A stems/out | tr '\n' ' ')" = '...png .png.png ' ] || fail "stems: $(ls -A stems/out)"
(cd stems && expect 0 '' "$pictra" convert -o '{stem}' --to png ./-.png && [ -s ./- ]) || fail 'a stem of - is no file'
expect 2 'unknown placeholder' "$pictra" convert a.png -o 'many/{name}.png'
expect 2 'name one input and one output' "$pictra" convert a.png b.png c.png

# ---- Ctrl-C stops a long resize and takes its temporary file along
(cd many && exec setsid bash -c "trap - INT; exec '$pictra' resize ../photo.ppm stopped.png --size 10000x10000") &
sleep 0.2
kill -INT $! && wait $!
[ $? = 130 ] || fail 'an interrupted resize does not say so'
ls -A many | grep -E 'stopped|pictra-' && fail 'an interrupted resize leaves something behind'

# ---- names of files drive no terminal and forge no rows
odd=$(printf 'a\nb.png png 1 x 1\033[2J\302\233\342\200\256\377.png')
shown='a\nb.png png 1 x 1\x1b[2J\x9b\u{202e}\xff.png'
cp "$pictures/dot.png" "$odd"
expect 0 "$shown" "$pictra" info "$odd"
[ "$("$pictra" info "$odd" | wc -l)" = 1 ] || fail 'a name makes two rows'
head -c 60 "$odd" >"cut$odd"
expect 4 "cut$shown: the data is damaged" "$pictra" convert "cut$odd" x.png
expect 2 "$shown" "$pictra" formats "$odd"
mkdir -p odd && cp "$build/lib/pictra/png.so" odd/"$(printf 'x\n[evil].so')"
expect 1 'x\n[evil].so: left out' "$pictra" config generate odd

# ---- configuration and codecs
expect 0 'opens yes' "$pictra" codecs --check
PICTRA_CFGFILE=none.conf expect 7 'none.conf: No such file' "$pictra" info photo.png
printf '\n# note\next = png\n[%s/lib/pictra/png.so]\n' "$build" >key.conf
PICTRA_CFGFILE=key.conf expect 7 'key.conf:3: a key stands before' timeout 10 "$pictra" info photo.png
printf ' [ %s/lib/pictra/png.so ] \next=png\ncolour = red\n\nnote\n' "$build" >odd.conf
PICTRA_CFGFILE=odd.conf expect 0 "odd.conf:3: warning: unknown key 'colour'" "$pictra" info photo.png
PICTRA_CFGFILE=odd.conf expect 0 'odd.conf:5: warning' "$pictra" info photo.png
printf '\n' >blank.conf
PICTRA_CFGFILE=blank.conf expect 7 'lists no codec module' "$pictra" info photo.png
printf '[/none/such.so]\next = png\n[%s/lib/libpictra.so]\n' "$build" >bad.conf
PICTRA_CFGFILE=bad.conf expect 1 'such.so: cannot open shared object' "$pictra" codecs --check
PICTRA_CFGFILE=bad.conf expect 0 'entry no' "$pictra" codecs
PICTRA_CFGFILE=bad.conf expect 8 'codecs --check' "$pictra" info photo.png

# ---- limits
expect 10 '--max-pixels 1000' "$pictra" info --max-pixels 1000 photo.png
expect 0 '' "$pictra" info --max-pixels 38801 --max-memory 100 --timeout 10 photo.png

# ---- compare, frames, formats
expect 0 'equal' "$pictra" compare photo.png photo.ppm
expect 1 '38801 pixels differ, by at most' "$pictra" compare photo.png few.png
expect 1 'sizes differ' "$pictra" compare photo.png "$pictures/dot.png"
cat "$pictures/bilevel.pbm" letters.pgm >two.pnm
expect 0 '1: 3 x 2, g8' "$pictra" frames two.pnm
expect 0 '' "$pictra" frames two.pnm -o '{stem}-{n}.pgm'
[ "$(tail -c 6 two-1.pgm)" = abcdef ] || fail 'the second picture of two.pnm'
expect 2 'put {n} into it' "$pictra" frames two.pnm -o 'x.pgm'
[ "$("$pictra" show photo.png | wc -lL | tr -s ' ')" = ' 23 69' ] || fail "show: $("$pictra" show photo.png | wc -lL)"
[ "$("$pictra" show --as blocks photo.png | tr -cd '\n' | wc -c)" = 23 ] || fail 'show --as blocks'
# shellcheck disable=SC1090
completed() { (eval "$("$pictra" completion bash)"; COMP_WORDS=(pictra "$@"); COMP_CWORD=$#; _pictra; echo "${COMPREPLY[*]}"); }
[ "$(completed co)" = 'convert compare codecs config completion' ] || fail "completion: $(completed co)"
[ "$(completed flip --v)" = '--vertical' ] || fail "completion: $(completed flip --v)"
expect 2 'bash, zsh and fish' "$pictra" completion tcsh
expect 2 'kitty, sixel' "$pictra" show --as crayons photo.png
[ "$("$pictra" formats | wc -l)" = 21 ] || fail 'not 21 formats'
expect 1 'cannot open shared object' env PICTRA_CFGFILE=bad.conf "$pictra" config check
expect 1 'unknown key' env PICTRA_CFGFILE=odd.conf "$pictra" config check
expect 0 'all in order' "$pictra" config check
"$pictra" config show | tail -n +2 >again.conf && PICTRA_CFGFILE=again.conf expect 0 '' "$pictra" config check

[ "$("$pictra" config generate)" = "$(cat "$build/etc/pictra/img.conf")" ] || fail 'config generate is not what the build made'
mkdir modules && cp "$build"/lib/pictra/{png,tga}.so modules && cp modules/png.so modules/other.so && : >modules/broken.so
expect 1 'broken.so: left out' "$pictra" config generate modules
"$pictra" config generate modules 2>/dev/null | grep -v '^mime' | sed "s|$PWD/modules/||" | tr -d '\n' >output
[ "$(cat output)" = '[other.so]ext = other[tga.so]ext = tga:icb:vda:vst:targa[png.so]ext = png' ] || fail "$(cat output)"

# ---- thumbnails of the desktop: where the standard wants them, telling what they are of, and made once
export XDG_CACHE_HOME=$work/cache
mkdir 'of ü' && cp photo.png 'of ü/[1] a+b~#.png' && touch -d @1234567890 'of ü/[1] a+b~#.png'
uri="file://$PWD/of%20%C3%BC/%5B1%5D%20a+b~%23.png"
thumbnail=$(printf %s "$uri" | md5sum | cut -c 1-32).png
expect 0 "$work/cache/thumbnails/large/$thumbnail" "$pictra" thumbnail --xdg --size 256 'of ü/[1] a+b~#.png'
thumbnail=$work/cache/thumbnails/large/$thumbnail
for text in "Thumb::URI$uri" Thumb::MTime1234567890 Thumb::Image::Width241 "Thumb::Size$(stat -c %s photo.png)"; do
    tr -d '\0' <"$thumbnail" | grep -qaF "tEXt$text" || fail "thumbnail without $text"
done
expect 0 'argb8888he' "$pictra" info "$thumbnail"
[ "$(stat -c %a "$thumbnail" "${thumbnail%/*}" cache | xargs)" = '600 700 700' ] || fail "rights: $(stat -c %a "$thumbnail")"
made=$(stat -c %i "$thumbnail")
expect 0 "$thumbnail" "$pictra" thumbnail --xdg --size 256 'of ü/[1] a+b~#.png'
[ "$made" = "$(stat -c %i "$thumbnail")" ] || fail 'a thumbnail that is right was made again'
touch 'of ü/[1] a+b~#.png'
expect 0 "$thumbnail" "$pictra" thumbnail --xdg --size 256 'of ü/[1] a+b~#.png'
[ "$made" != "$(stat -c %i "$thumbnail")" ] || fail 'a thumbnail that is out of date stays'
expect 4 'cut.png' "$pictra" thumbnail --xdg cut.png
failure=cache/thumbnails/fail/pictra-0.1.0/$(printf %s "file://$PWD/cut.png" | md5sum | cut -c 1-32).png
expect 0 '1 x 1' "$pictra" info "$failure"
cp photo.png cut.png
expect 0 'normal/' "$pictra" thumbnail --xdg cut.png
[ ! -e "$failure" ] || fail 'the mark of a failure stays'
expect 11 'a thumbnail itself' "$pictra" thumbnail --xdg "$thumbnail"
expect 2 '128, 256, 512 or 1024' "$pictra" thumbnail --xdg --size 100 photo.png

# ---- modules show their entry alone; an installation works where it is put
for module in "$build"/lib/pictra/*.so; do
    [ "$(nm -D --defined-only --format=posix "$module" | cut -d' ' -f1)" = img_codec_getfuncs ] ||
        fail "$module exports more than its entry"
done
cmake --install "$build" --prefix "$work/installed" >/dev/null || fail 'cmake --install'
expect 0 "$work/installed/etc/pictra/img.conf" "$work/installed/bin/pictra" codecs --check
expect 0 "$work/installed/lib" "$work/installed/bin/pictra" codecs --check
expect 0 '241 x 161' "$work/installed/bin/pictra" info "$pictures/photo.png"

finish
