#!/bin/bash
# Installs the packages in a fresh Debian 12 and uses them there: the program, a module removed and added again, an
# edited configuration, applications, by the commands of docs/install.md. Everything is in a directory that goes in the
# end. Usage: try.sh DIRECTORY_OF_PACKAGES   (as root)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
debs=$(cd "$1" && pwd)
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
[ "$(id -u)" = 0 ] || { echo "try: a chroot needs root" >&2; exit 1; }

root=$(mktemp -d)
chmod 755 "$root" # apt fetches as a user of its own
finish() {
    umount "$root/dev" "$root/proc" 2>/dev/null || true
    if grep -q " $root/" /proc/mounts; then echo "try: still mounted below $root" >&2; else rm -rf "$root"; fi
}
trap finish EXIT
inside() {
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"
}
fail() { echo "try: $*" >&2; exit 1; }
config=$root/etc/system/config/img.conf

# Types the commands of the page's blocks in a directory of root's.
typed() { # DIRECTORY BLOCK...
    local directory=$1
    shift
    "$here/tests/commands.sh" "$here/docs/install.md" "$@" >"$root/root/typed"
    inside sh -euxc "cd /root/$directory && . /root/typed" >"$root/root/log" 2>&1 ||
        { tail -n 40 "$root/root/log"; fail "a command of '$*'"; }
}

start=$SECONDS
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$root.log" || { cat "$root.log"; exit 1; }
rm -f "$root.log"
mount --bind /proc "$root/proc"
mount --bind /dev "$root/dev"
echo "== debootstrap: $((SECONDS - start)) s"

start=$SECONDS
mkdir "$root/root/debs"
cp "$debs"/*.deb "$root/root/debs"
cp -r "$here/examples/pictures" "$here/tests/consumer" "$root/root"
inside apt-get -qq update
typed debs packages
echo "== installed: $((SECONDS - start)) s; $(inside dpkg-query -W -f '${Package} ${Installed-Size} KiB, ' '*pictra*')"

echo '== the program'
inside pictra codecs --check | grep -c 'opens *yes' | sed 's/$/ codecs open/'
inside pictra config generate | cmp - "$config"
inside pictra info /root/pictures/photo.png
inside pictra convert /root/pictures/photo.png /root/photo.jpg
inside pictra thumbnail --size 64 /root/photo.jpg -o '/root/{stem}-small.png'
inside pictra info /root/photo.jpg /root/photo-small.png
[ -e "$root/usr/share/man/man1/pictra.1.gz" ] && [ -s "$root/usr/share/bash-completion/completions/pictra" ]

echo '== a package comes and goes, and its sections with it'
cp "$config" "$root/root/full.conf"
for package in $(inside dpkg-query -W -f '${Package} ' 'pictra-codec-*' 2>/dev/null || true); do
    format=${package#pictra-codec-}
    inside dpkg --remove "$package" >/dev/null
    ! grep -q "/$format.so]" "$config" || fail "$package left its section"
    inside pictra codecs --check >/dev/null
    inside sh -c "dpkg --install /root/debs/${package}_*.deb" >/dev/null
    cmp "$config" "$root/root/full.conf" || fail "$package did not come back to its place"
    echo "$package: out and in again"
done

echo '== what an administrator changes'
typed . sections
! grep -q '/tga.so]' "$config" || fail 'tga was to be left out'
rm -r "$root/etc/pictra"
inside pictra-update-codecs
cmp "$config" "$root/root/full.conf"
printf '[/opt/own.so]\next = own\n' >>"$config"
inside pictra-update-codecs
grep -q own.so "$config" || fail 'an edited configuration was overwritten'
cp "$root/root/full.conf" "$config"

echo '== applications, with CMake and with pkg-config, in C and in C++'
inside apt-get -qq -y --no-install-recommends install cmake make g++ pkg-config >/dev/null 2>&1
typed consumer cmake pkg-config
for kind in cmake pkg-config; do
    for program in consumer consumer-cpp; do
        inside "/root/consumer/$kind/build/$program" /root/pictures/photo.png | sed "s/^/$kind, $program: /"
    done
done
inside sh -euc 'cd /root
    cc /usr/share/doc/libpictra-dev/examples/write_buffer.c $(pkg-config --cflags --libs pictra) &&
    ./a.out drawn.png && pictra info drawn.png'

echo '== all goes'
inside sh -c 'dpkg-query -W -f "\${Package}\n" "*pictra*" | xargs dpkg --purge' >/dev/null
left=$(cd "$root" && find . -xdev \( -path ./root -o -path ./proc -o -path ./dev \) -prune -o \
    \( -path '*pictra*' -o -path ./etc/system \) -print)
[ -z "$left" ] || fail "left behind: $left"
echo "nothing of it is left; $SECONDS s in all"
