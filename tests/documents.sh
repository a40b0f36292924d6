#!/bin/bash
# Types what the documents tell readers to type, indented lines and sh blocks, in a clone that is built. A line whose
# comment says "fails with N" has to fail with that exit code. Usage: documents.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -u
build=$1 source=$2
. "${0%/*}/harness.sh"
python=$(need_python3 json) || exit $skipped
mkdir "$work/bin"
ln -s "$python" "$work/bin/python3"
export PATH=$work/bin:$build/bin:$PATH XDG_CACHE_HOME=$work/cache

# Types the lines of standard input; a cd or an export among them counts for those that follow.
type_lines() ( # PAGE
    page=$1 count=0 failures=0
    while IFS= read -r line; do
        [ -n "$line" ] || continue
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

# A clone, as far as readers touch it, with the programs of the pages in the files that their blocks are named after.
mkdir -p "$work/clone/build"
cd "$work/clone" || exit 1
ln -s "$build" build/release
ln -s "$source/include" "$source/examples" .
cp examples/pictures/*.png .
cp photo.png in.png
for page in README.md docs/start.md docs/tool.md examples/README.md; do
    awk '/^```/ { name = $2; next } name { print >name }' "$source/$page"
    awk '/^```/ { block = $1; next } block == "```sh" { print } block ~ /^(```)?$/ && sub(/^    /, "") { print }' \
        "$source/$page" | grep -v '^make \|^apt-get \|^cmake --preset \|^pictra VERB' >"$work/lines"
    type_lines $page <"$work/lines" || fail "$page"
done

finish
