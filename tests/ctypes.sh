#!/bin/bash
# The example in Python, which calls the library through its C interface. Usage: ctypes.sh BUILD_DIRECTORY
# SOURCE_DIRECTORY
set -u
build=$1 examples=$2/examples pictra=$1/bin/pictra
. "${0%/*}/harness.sh"
python=$(need_python3 ctypes) || exit $skipped
export PICTRA_CFGFILE=$build/etc/pictra/img.conf PICTRA_LIBRARY=$build/lib/libpictra.so

photo=$examples/pictures/photo.png
expect 0 '241 x 161, the first pixel is (' "$python" "$examples/ctypes_load.py" "$photo" by-example.ppm
expect 0 '' "$pictra" rotate "$photo" by-program.ppm --by 90
same by-example.ppm by-program.ppm
expect 1 'Traceback' "$python" "$examples/ctypes_load.py" no.png x.png
finish
