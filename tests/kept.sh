#!/bin/sh
# Compares the oddities that docs/kept.md lists with those that comments in the code mark: the bold sentence of an entry is
# the first sentence after "Kept:". Usage: kept.sh SOURCE_DIR
set -eu
cd "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Sentences, one a line: without backticks, in lower case, up to the first full stop that ends one.
sentences() { tr -d '`' | tr '[:upper:]' '[:lower:]' | sed 's/\.\( .*\)*$/./' | LC_ALL=C sort -u; }

# A comment goes on in the lines after it that hold nothing but a comment.
find core io convert codec geometry scale loading simd -name '*.h' -o -name '*.cpp' 2>/dev/null | LC_ALL=C sort | xargs awk '
    FNR == 1 || !/^ *\/\// { if (open) print text; open = 0 }
    open { sub(/^ *\/\/ */, ""); if (!/Kept: /) { text = text " " $0; next } }
    /Kept: / { if (open) print text; sub(/.*Kept: /, ""); text = $0; open = 1 }
    END { if (open) print text }' | sentences >"$work/code"
awk '/^- \*\*/ { open = 1; text = "" } open { sub(/^ +/, ""); text = text (text ? " " : "") $0 }
    open && /\*\*.*\*\*|[^*]\*\*/ && gsub(/\*\*/, "&", text) >= 2 { sub(/^- \*\*/, "", text); sub(/\*\*.*/, "", text); print text; open = 0 }' \
    docs/kept.md | sentences >"$work/list"
[ -s "$work/list" ] || { echo "no entries found"; exit 1; }
if ! diff "$work/code" "$work/list" >"$work/differences"; then
    echo "in the code (<) or in docs/kept.md (>) alone:"
    grep '^[<>]' "$work/differences"
    exit 1
fi
