#!/bin/bash
# What --json prints is JSON to another program. Usage: json.sh BUILD_DIRECTORY PICTURES
set -u
build=$1 pictures=$2 pictra=$1/bin/pictra
. "${0%/*}/harness.sh"
python=$(need_python3 json) || exit $skipped

"$pictra" info --json "$pictures/photo.png" missing.png "$(printf 'a\n"\377')" | "$python" -c '
import json, sys
photo, missing, odd = (json.loads(line) for line in sys.stdin)
assert (photo["status"], photo["width"], photo["height"], photo["format"]) == (0, 241, 161, "png"), photo
assert missing["status"] == 9 and "No such file" in missing["message"] and "width" not in missing, missing
assert photo["confined"] == (photo["unconfined"] == "") and "whole" not in photo, photo
assert odd["path"] == "a\n\"\ufffd", odd' || fail 'info --json'
cat "$pictures/bilevel.pbm" "$pictures/bilevel.pbm" >two.pnm
head -c 1000 "$pictures/photo.png" >cut.png
"$pictra" info --json --verify two.pnm cut.png | "$python" -c '
import json, sys
two, cut = (json.loads(line) for line in sys.stdin)
assert (two["whole"], two["pictures"], cut["whole"], cut["status"]) == (True, 2, False, 4), (two, cut)' ||
    fail 'info --json --verify'
finish
