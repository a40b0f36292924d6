#!/bin/bash
# What the documents tell people to type is typed: every indented line and sh block of start.md, and the lines of other
# pages that begin with the program's name. A line whose comment says "fails with N" has to.
# Usage: documents.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -u
build=$1 source=$2
unset PICTRA_CFGFILE
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH=$build/bin:$PATH XDG_CACHE_HOME=$work/cache
failed=0

# Types the lines of standard input in the directory; a cd among them counts for those that follow.
type_lines() ( # PAGE DIRECTORY
    page=$1 count=0 failures=0
    cd "$2" || exit 1
    while IFS= read -r line; do
        case $line in *'make demo'* | '') continue ;; *python3*) command -v python3 >/dev/null || continue ;; esac
        count=$((count + 1))
        [[ $line =~ fails\ with\ ([0-9]+) ]] && wanted=${BASH_REMATCH[1]} || wanted=0
        eval "${line//\/tmp\/pictures/$work/pictures}" </dev/null >"$work/said" 2>&1
        got=$?
        [ $got = $wanted ] && continue
        echo "FAILED: $page: exit $got instead of $wanted: $line"
        cat "$work/said"
        failures=$((failures + 1))
    done
    [ $count -gt 0 ] || echo "FAILED: $page: no lines"
    [ $count -gt 0 ] && [ $failures = 0 ]
)

# A clone, as far as readers touch it, with the programs of the page in the files that their blocks are named after.
mkdir -p "$work/clone/build"
ln -s "$build" "$work/clone/build/release"
ln -s "$source/include" "$source/examples" "$work/clone"
awk -v to="$work/clone/" '/^```/ { name = $2; next } name { print >(to name) }' "$source/docs/start.md"
awk '/^```/ { block = $1; next } block == "```sh" { print } block ~ /^(```)?$/ && sub(/^    /, "") { print }' \
    "$source/docs/start.md" >"$work/lines"
type_lines start.md "$work/clone" <"$work/lines" || failed=1

for page in README.md docs/tool.md; do
    mkdir "$work/$(basename $page)"
    cp "$source"/examples/pictures/*.png "$work/$(basename $page)"
    cp "$source/examples/pictures/photo.png" "$work/$(basename $page)/in.png"
    sed -n 's/^    \(pictra [a-z]\)/\1/p' "$source/$page" >"$work/lines"
    type_lines $page "$work/$(basename $page)" <"$work/lines" || failed=1
done

[ $failed = 0 ] && echo 'documents: ok'
exit $failed
