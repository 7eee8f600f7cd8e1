#!/usr/bin/env python3
"""Installs a bundle on the first connected pen: install.py BUNDLE CERTIFICATE

The libraries are found as the loader finds them; set LD_LIBRARY_PATH to try a build that is not installed.
"""
import ctypes as c
import sys


class Config(c.Structure):
    _fields_ = [("flags", c.c_uint32), ("certificates", c.POINTER(c.c_char_p)),
                ("certificateCount", c.c_int32), ("group", c.c_char_p)]


class Info(c.Structure):
    _fields_ = [("result", c.c_int32), ("penId", c.c_uint64), ("packageFile", c.c_char_p),
                ("packageName", c.c_char_p), ("guid", c.c_char_p), ("version", c.c_char_p), ("action", c.c_char_p),
                ("fileType", c.c_char_p), ("transferOrder", c.c_int32), ("properties", c.c_void_p),
                ("propertyCount", c.c_int32), ("bundleFile", c.c_char_p), ("groupName", c.c_char_p),
                ("doneCount", c.c_uint64), ("totalCount", c.c_uint64), ("itemDone", c.c_uint64),
                ("itemTotal", c.c_uint64), ("startTime", c.c_int64)]


Callback = c.CFUNCTYPE(c.c_int32, c.c_int32, c.POINTER(Info), c.c_void_p)
FIRMWARE, APPS = 1, 2


@Callback
def on_progress(pen, info, context):
    info = info.contents
    name = (info.packageName or b"").decode()
    if info.result:
        print(f"{name}: failed with {info.result}", file=sys.stderr)
        return 1
    print(f"{name}: {info.itemDone} of {info.itemTotal} bytes")
    return 0


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    pens = c.CDLL("libTessvik.so", mode=c.RTLD_GLOBAL)
    quarvel = c.CDLL("libQuarvel.so.1")
    pen = c.c_int32()
    if pens.pcGetPenHandles(c.byref(pen), 1) < 1:
        sys.exit("no pen is connected")
    with open(sys.argv[2], "rb") as file:
        certificates = (c.c_char_p * 1)(file.read())
    config = Config(FIRMWARE | APPS, certificates, 1, None)
    result = quarvel.insStartInstallFile(c.byref(pen), sys.argv[1].encode(), c.byref(config), on_progress, None)
    print(f"result {result}")
    return 1 if result < 0 else 0


if __name__ == "__main__":
    sys.exit(main())
