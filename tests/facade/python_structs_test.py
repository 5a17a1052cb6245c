#!/usr/bin/env python3
"""Holds the structs of examples/python/vantamo.py to those of vantamo_c.h.

usage: python_structs_test.py VANTAMO_C_H
"""

import ctypes
import re
import sys

import vantamo

STRUCT = re.compile(r"typedef struct (vantamo_\w+) \{\n  size_t size;[^\n]*\n(.*?)\n\} \1;", re.S)
MEMBER = re.compile(r"^  ([\w ]+?[ *]+)(\w+);", re.M)
KINDS = {
    "const char*": (ctypes.c_char_p, ctypes.c_void_p),
    "char*": (ctypes.c_void_p,),  # to be given back
    "uint64_t": (ctypes.c_uint64,),
    "int64_t": (ctypes.c_int64,),
    "int32_t": (ctypes.c_int32,),
    "vantamo_outcome": (ctypes.c_int32,),
    "vantamo_device_idiom": (ctypes.c_int32,),
    "size_t": (ctypes.c_size_t,),
    "bool": (ctypes.c_bool,),
    "vantamo_list": (vantamo._List,),
    "vantamo_optional_count": (vantamo._OptionalCount,),
    "vantamo_screen_size": (vantamo._ScreenSize,),
    "vantamo_transport": (vantamo._Transport,),
    "vantamo_log_sink": (vantamo._Callback,),
    "vantamo_wall_clock": (vantamo._Callback,),
}
NOT_OFFERED = {"vantamo_http_request", "vantamo_http_response"}


def main():
    with open(sys.argv[1], encoding="utf-8") as header:
        structs = dict(STRUCT.findall(header.read()))
    kinds = {kind.__name__: kind for kind in ctypes.Structure.__subclasses__()}
    faults = 0
    for name, body in structs.items():
        if name in NOT_OFFERED:
            continue
        members = MEMBER.findall(body)
        kind = kinds.get(name.removeprefix("vantamo_"))
        fields = kind._fields_[1:] if kind else []
        if [member for _, member in members] != [field for field, _ in fields] or not all(
                made in KINDS[written.strip()] for (written, _), (_, made) in zip(members, fields)):
            print(f"{name}: the header has {members}, the module {fields}")
            faults += 1
    print(f"{len(structs)} structs, {faults} faults")
    return 1 if faults or len(structs) < 14 else 0


if __name__ == "__main__":
    sys.exit(main())
