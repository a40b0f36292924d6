#!/bin/bash
# Decodes the pictures that source packages of Debian carry for their tests, and compares every pixel with what other
# decoders make of them: djpeg, dwebp, netpbm for what it writes itself, ImageMagick for the rest. One line a
# difference, and a summary a format. Needs the network once; what it fetches stays in the build directory. Usage:
# suites.sh BUILD_DIRECTORY [EXTENSION...]
set -u
build=$(realpath "$1") here=$(dirname "$(realpath "$0")")
shift
wanted=" $* "
pictra=$build/bin/pictra suites=$build/suites work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
packages='libpng1.6 libjpeg-turbo tiff giflib golang-golang-x-image pillow'

# The archives by the package manager, which checks their sums, with lists of its own beside the system's.
fetch() {
    mkdir -p "$suites"/{apt/lists/partial,apt/cache/archives/partial,apt/sources,archives} || return
    local file
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
        case $file in
        *.sources) sed 's/^Types:.*/Types: deb-src/' "$file" ;;
        *.list) sed -n 's/^deb /deb-src /p' "$file" ;;
        *) continue ;;
        esac >"$suites/apt/sources/${file##*/}"
    done 2>/dev/null
    printf '%s;\n' 'Dir::Etc::sourcelist "/dev/null"' "Dir::Etc::sourceparts \"$suites/apt/sources\"" \
        "Dir::State::lists \"$suites/apt/lists\"" "Dir::Cache \"$suites/apt/cache\"" \
        'APT::Sandbox::User "root"' >"$suites/apt/conf"
    export APT_CONFIG=$suites/apt/conf
    apt-get -qq update || return
    # shellcheck disable=SC2086
    (cd "$suites/archives" && apt-get -qq source --download-only --tar-only $packages)
}

unpack() {
    local archive kind
    local -a patterns
    for kind in png jpg jpeg gif bmp dib ico cur tif tiff webp tga qoi; do patterns+=("*.$kind"); done
    for archive in "$suites"/archives/*.orig.tar.*; do
        tar -C "$suites" -xf "$archive" --wildcards "${patterns[@]}" 2>/dev/null
    done
    # Nobody ships a suite of QOI files, but somebody writes them.
    mkdir "$suites/qoi"
    for archive in "$here"/../examples/pictures/*.png; do
        pngtopam -alphapam "$archive" 2>/dev/null | pamtoqoi >"$suites/qoi/$(basename "$archive" .png).qoi"
    done
    touch "$suites/complete"
}

ours() { # FILE KIND: pixels without a header
    local as=pam format=argb8888he
    [ "$2" = jpg ] && as=ppm format=rgb888
    "$pictra" convert "$1" "$work/ours.$as" --format $format --orient off 2>"$work/message" || return
    size=$("$pictra" info "$work/ours.$as" | awk '{ print $3 "x" $5 }')
    pixels "$work/ours.$as" >"$work/ours"
}

theirs() { # FILE KIND
    case $2 in
    jpg) djpeg -rgb -outfile "$work/theirs.pnm" "$1" && pixels "$work/theirs.pnm" ;;
    webp) dwebp -quiet -pam "$1" -o "$work/theirs.pnm" && pixels "$work/theirs.pnm" ;;
    qoi) qoitopam "$1" | convert pam:- -depth 8 rgba:- ;;
    gif) convert "gif:$1[0]" -coalesce -depth 8 rgba:- ;;
    tga) convert "tga:$1" -auto-orient -depth 8 rgba:- ;;
    *) convert "$2:$1[0]" -set colorspace sRGB -depth 8 rgba:- ;;
    esac >"$work/theirs" 2>/dev/null
    [ -s "$work/theirs" ]
}

pixels() { # FILE: what is behind the header of a PAM, or of a PPM of three lines
    if [ "$(head -c 2 "$1")" = P7 ]; then sed '1,/^ENDHDR$/d' "$1"; else tail -n +4 "$1"; fi
}

# Compares one picture; says what differs, and counts.
compare() { # FILE KIND
    local file=$1 name=${1#"$suites"/} difference
    if ! ours "$file" "$2"; then
        if theirs "$file" "$2"; then
            echo "$name: refused: $(sed 's/.*: //' "$work/message")"
            count refused
        else
            count 'refused by all'
        fi
    elif ! theirs "$file" "$2"; then
        echo "$name: read by nobody else"
        count 'read by nobody else'
    elif [ "$(stat -c %s "$work/ours")" != "$(stat -c %s "$work/theirs")" ]; then
        echo "$name: another size, here $size"
        count 'of another size'
    else
        difference=$(cmp -l "$work/ours" "$work/theirs" | awk '
            function value(octal) { return int(octal / 100) * 64 + int(octal % 100 / 10) * 8 + octal % 10 }
            { d = value($2) - value($3); if (d < 0) d = -d; if (d > most) most = d }
            END { print NR, most + 0 }')
        case $difference in
        '0 0') count same ;;
        *' 1') count 'same but for rounding' ;;
        *) echo "$name: $difference of $(stat -c %s "$work/ours")" |
            sed 's/: \([0-9]*\) \([0-9]*\) of/: samples differ by up to \2, \1 of/'
            count different ;;
        esac
    fi
}

declare -A counts
count() { counts[$1]=$((${counts[$1]:-0} + 1)); }

[ -e "$suites/complete" ] || { fetch && unpack; } || { echo 'suites: the packages could not be fetched'; exit 1; }
known=:$("$pictra" codecs | tr -c '[:alnum:]' ':'):
summary=
for kind in png jpg gif bmp ico cur tif webp tga qoi; do
    [ "$wanted" = '  ' ] || [[ $wanted == *" $kind "* ]] || continue
    [[ $known == *:$kind:* ]] || { summary+="$kind: skipped, there is no codec"$'\n'; continue; }
    counts=()
    while read -r file; do compare "$file" "$kind"; done < <(
        find "$suites" -type f \( -name "*.$kind" -o -name "*.${kind/jpg/jpeg}" -o -name "*.${kind/tif/tiff}" \) | sort)
    summary+="$kind:"
    for what in "${!counts[@]}"; do summary+=" ${counts[$what]} $what,"; done
    summary=${summary%,}$'\n'
done
echo -n "$summary"
