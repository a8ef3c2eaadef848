#!/usr/bin/python3
"""Makes an empty HFS+ volume, as Apple's Technical Note TN1150 lays it out.

Usage: make_hfsplus.py DEVICE             HFS+, which ignores case
       make_hfsplus.py --case DEVICE      HFSX, which does not
       make_hfsplus.py --journal DEVICE   says of the volume there that it has a journal
"""

import os
import struct
import sys
import time

BLOCK = 4096
NAME = "Laboratory".encode("utf-16-be")
EPOCH = 2082844800  # seconds from 1904 to 1970
UNMOUNTED, JOURNALED = 1 << 8, 1 << 13
BIG_KEYS, VARIABLE_INDEX_KEYS = 2, 4
FOLD_CASE, BINARY = 0xCF, 0xBC
HEADER_NODE, LEAF_NODE = 1, -1


def node(size, kind, height, records):
    """A node: its descriptor, the records, and their offsets from the end backwards."""
    body, offsets = struct.pack(">IIbBHH", 0, 0, kind, height, len(records), 0), []
    for record in records:
        offsets.append(len(body))
        body += record
    offsets.append(len(body))
    table = b"".join(struct.pack(">H", offset) for offset in reversed(offsets))
    return body + bytes(size - len(body) - len(table)) + table


def tree(size, node_size, key_length, attributes, compare=0, records=()):
    """A tree's file of `size` bytes, whose records fit one leaf."""
    nodes, leaf = size // node_size, 1 if records else 0
    header = struct.pack(">HIIIIHHIIHIBBI64x", leaf, leaf, len(records), leaf, leaf, node_size,
                         key_length, nodes, nodes - 1 - leaf, 0, size, 0, compare, attributes)
    used = bytearray(node_size - 14 - 106 - 128 - 8)
    used[0] = 0xC0 if leaf else 0x80
    content = node(node_size, HEADER_NODE, 0, [header, bytes(128), bytes(used)])
    if records:
        content += node(node_size, LEAF_NODE, 1, records)
    return content.ljust(size, b"\0")


def root_folder(now):
    """The two records of the catalog: the root folder, and the thread that leads to it."""
    name = struct.pack(">H", len(NAME) // 2) + NAME
    permissions = struct.pack(">IIBBHI", 0, 0, 0, 0, 0o40755, 0)
    folder = struct.pack(">HHIIIIIII", 1, 0, 0, 2, now, now, now, now, 0) + permissions + bytes(40)
    thread = struct.pack(">HHI", 3, 0, 1) + name
    return [struct.pack(">HI", 4 + len(name), 1) + name + folder,
            struct.pack(">HIH", 6, 2, 0) + thread]


def fork(content, first):
    blocks = len(content) // BLOCK
    return struct.pack(">QIIII56x", len(content), len(content), blocks, first if blocks else 0, blocks)


def make(device, case):
    size = device.seek(0, os.SEEK_END) // BLOCK * BLOCK
    blocks = size // BLOCK
    now = int(time.time()) + EPOCH
    bitmap_size = -(-blocks // (8 * BLOCK)) * BLOCK
    megabyte = 1 << 20
    files = [bytes(bitmap_size),
             tree(megabyte, 4096, 10, BIG_KEYS),
             tree(4 * megabyte, 8192, 516, BIG_KEYS | VARIABLE_INDEX_KEYS,
                  BINARY if case else FOLD_CASE, root_folder(now)),
             tree(4 * megabyte, 8192, 266, BIG_KEYS | VARIABLE_INDEX_KEYS)]
    starts, following = [], 1
    for content in files:
        starts.append(following)
        following += len(content) // BLOCK
    bitmap = bytearray(bitmap_size)
    for block in (*range(following), blocks - 1):  # the last one holds the second header
        bitmap[block // 8] |= 0x80 >> block % 8
    files[0] = bytes(bitmap)

    header = struct.pack(
        ">2sHI4sIIIIIIIIIIIIIIIQ32x", b"HX" if case else b"H+", 5 if case else 4, UNMOUNTED, b"10.0",
        0, now, now, 0, now, 0, 0, BLOCK, blocks, blocks - following - 1, following, 65536, 65536, 16,
        0, 1)
    header += b"".join(fork(*pair) for pair in zip(files, starts)) + bytes(80)
    for content, start in zip(files, starts):
        device.seek(start * BLOCK)
        device.write(content)
    write_headers(device, size, header)


def write_headers(device, size, header):
    for position in 1024, size - 1024:
        device.seek(position)
        device.write(header)
    device.flush()
    os.fsync(device.fileno())


def set_journaled(device):
    size = device.seek(0, os.SEEK_END) // BLOCK * BLOCK
    device.seek(1024)
    header = bytearray(device.read(512))
    attributes, = struct.unpack_from(">I", header, 4)
    struct.pack_into(">I", header, 4, attributes | JOURNALED)
    write_headers(device, size, bytes(header))


def main():
    *options, path = sys.argv[1:]
    with open(path, "r+b") as device:
        if options == ["--journal"]:
            set_journaled(device)
        else:
            make(device, options == ["--case"])


if __name__ == "__main__":
    main()
