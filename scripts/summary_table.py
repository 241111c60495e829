#!/usr/bin/env python3
"""Prints the compact summary of a forecast run (an ensemble member) as the plain long table it
stands for: one header line, then year, the key cells and the value, a row per key and year
(a key with `always` 0 only where its value is not 0).

usage: summary_table.py summary_<table>_keys.csv <member>_<table>.bin

The key table has a header line and a row per key of a year: the key cells, then `always`
(1 or 0). The values file: "VELDSUM1", the number K of keys (uint64), the FNV-1a hash of the key
table's bytes (uint64), then per year the year (int64) and K values (float64), little-endian.
"""
import struct
import sys


def number(x):
    if x == 0:
        return "0"
    if x == int(x) and abs(x) < 1e15:
        return str(int(x))
    return repr(x)


def fnv1a(data):
    h = 0xcbf29ce484222325
    for c in data:
        h = ((h ^ c) * 0x100000001b3) & 0xFFFFFFFFFFFFFFFF
    return h


def main():
    keys_path, values_path = sys.argv[1:3]
    raw = open(keys_path, "rb").read()
    lines = raw.decode("utf-8").split("\n")
    header, rows = lines[0], [r for r in lines[1:] if r]
    keys = [r.rsplit(",", 1) for r in rows]
    data = open(values_path, "rb").read()
    if data[:8] != b"VELDSUM1":
        sys.exit(f"{values_path}: not a summary")
    count, digest = struct.unpack_from("<QQ", data, 8)
    if count != len(keys) or digest != fnv1a(raw):
        sys.exit(f"{values_path}: {count} keys of another key table than {keys_path} ({len(keys)} keys)")
    value_column = "population" if header.startswith("area,group") else "value"
    print("year," + header.rsplit(",", 1)[0] + "," + value_column)
    block = 8 * (count + 1)
    for at in range(24, len(data) - block + 1, block):
        year = struct.unpack_from("<q", data, at)[0]
        values = struct.unpack_from(f"<{count}d", data, at + 8)
        for (cells, always), x in zip(keys, values):
            if always == "1" or x != 0:
                print(f"{year},{cells},{number(x)}")


if __name__ == "__main__":
    main()
