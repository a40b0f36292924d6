#!/bin/sh
# Prints the commands of a page: those of its blocks that open with ```sh NAME. So what a page tells is what is run.
# Usage: commands.sh PAGE NAME...
set -eu
page=$1
shift
for name; do
    commands=$(awk -v opening="\`\`\`sh $name" \
        '$0 == opening { inside = 1; next } /^```/ { inside = 0 } inside' "$page")
    [ -n "$commands" ] || { echo "commands: no block '$name' in $page" >&2; exit 1; }
    printf '%s\n' "$commands"
done
