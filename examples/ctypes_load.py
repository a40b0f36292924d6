#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Loads a picture through ctypes, turns it by a quarter and writes it: ./ctypes_load.py PICTURE TARGET.
PICTRA_LIBRARY names the library where the system does not find it."""

import ctypes
import os
import sys

RGB888 = 0x1001018
FORMAT, DIRECT = 0x2, 0x10
ANGLE_90 = 0x1921F


class Record(ctypes.Structure):
    """img_record. Of its unions, the members for pixels in a buffer."""

    _fields_ = [
        ("data", ctypes.c_void_p),
        ("stride", ctypes.c_void_p),  # as wide as the union that it is in
        ("width", ctypes.c_uint32),
        ("height", ctypes.c_uint32),
        ("format", ctypes.c_uint32),
        ("ncolors", ctypes.c_uint32),
        ("palette", ctypes.POINTER(ctypes.c_uint32)),
        ("flags", ctypes.c_uint32),
        ("transparency", ctypes.c_uint32),
        ("user", ctypes.c_uint64),
    ]

    def row(self, y):
        stride = ctypes.c_uint32.from_buffer(self, Record.stride.offset).value
        return ctypes.string_at(self.data + y * stride, self.width * (self.format & 0x7F) // 8)


pictra = ctypes.CDLL(os.environ.get("PICTRA_LIBRARY", "libpictra.so.0"))
libc = ctypes.CDLL(None)
POINTER, TEXT, RECORD = ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(Record)
pictra.img_lib_attach.argtypes = [ctypes.POINTER(POINTER)]
pictra.img_lib_detach.argtypes = [POINTER]
pictra.img_load_file.argtypes = [POINTER, TEXT, POINTER, RECORD]
pictra.img_write_file.argtypes = [POINTER, TEXT, POINTER, RECORD]
pictra.img_rotate_ortho.argtypes = [RECORD, RECORD, ctypes.c_uint32]
libc.free.argtypes = [POINTER]


def check(name, status):
    if status != 0:
        raise OSError(f"{name}: status {status}")


def main(source, target):
    library, picture, turned = POINTER(), Record(format=RGB888, flags=FORMAT), Record()
    try:
        check("attach", pictra.img_lib_attach(library))
        check(source, pictra.img_load_file(library, os.fsencode(source), None, picture))
        print(f"{picture.width} x {picture.height}, the first pixel is {tuple(picture.row(0)[:3])}")
        check("rotate", pictra.img_rotate_ortho(picture, turned, ANGLE_90))
        check(target, pictra.img_write_file(library, os.fsencode(target), None, turned))
    finally:
        for record in (picture, turned):
            if record.flags & DIRECT:  # what the library allocated is ours
                libc.free(record.data)
        pictra.img_lib_detach(library)


if __name__ == "__main__":
    main(*sys.argv[1:])
