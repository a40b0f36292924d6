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
assert odd["path"] == "a\n\"\ufffd", odd' || fail 'info --json'
finish
