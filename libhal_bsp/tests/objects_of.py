#!/usr/bin/env python3
"""The objects that a library exports, a line each: name, size in bytes, and the first 160 bytes of
those that stand in the file, where a pointer, which the loader puts there, is shown as zeros.
Usage: objects_of.py LIBRARY"""
import struct
import sys

elf = bytearray(open(sys.argv[1], "rb").read())
table, entry, count = struct.unpack_from("<Q", elf, 40)[0], *struct.unpack_from("<HH", elf, 58)
sections = [struct.unpack_from("<IIQQQQIIQQ", elf, table + i * entry) for i in range(count)]
RELA, NOBITS, DYNSYM, ALLOCATED, OBJECT = 4, 8, 11, 2, 1


def place_of(address):  # in the file
    for _, kind, flags, begin, offset, size, *_ in sections:
        if flags & ALLOCATED and kind != NOBITS and begin <= address < begin + size:
            return offset + address - begin
    return None


for _, kind, _, _, offset, size, *_ in sections:
    for at in range(offset, offset + size, 24) if kind == RELA else ():
        place = place_of(*struct.unpack_from("<Q", elf, at))
        if place is not None:
            elf[place : place + 8] = bytes(8)

symbols = next(section for section in sections if section[1] == DYNSYM)
names = sections[symbols[6]][4]
for at in range(symbols[4], symbols[4] + symbols[5], 24):
    name, info, _, section, value, size = struct.unpack_from("<IBBHQQ", elf, at)
    if info & 15 != OBJECT or section == 0:
        continue
    start = names + name
    line = f"{elf[start:elf.index(0, start)].decode()} {size}"
    place = place_of(value)
    if place is not None:
        line += " " + elf[place : place + min(size, 160)].hex()
    print(line)
