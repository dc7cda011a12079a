#!/usr/bin/env python3
"""Writes the seed corpus of the fuzz targets into fuzz/corpus/read/.

Each seed is laid out byte by byte here, independently of the library's
writers: plain media, containers with one and several records (with and
without sub-information), a container in a "tevd" box behind MP4 media, a
container followed by a Voxa block, and a Voxa block alone.
"""
import os
import struct
import sys

SUB_INFO_FLAG = 0x8000
VERSION = 107


def u32(value):
    return struct.pack('<I', value)


def fake_jpeg(size):
    body = bytes((i * 7) & 0xFF for i in range(size - 4))
    return b'\xff\xd8' + body + b'\xff\xd9'


def fake_mp4(size):
    ftyp = struct.pack('>I', 24) + b'ftypisom' + u32(0x200) + b'isommp41'
    mdat = struct.pack('>I', size - len(ftyp)) + b'mdat'
    return ftyp + mdat + bytes(size - len(ftyp) - len(mdat))


def record(data_type, name, data, sub=None):
    meta = data_type << 16 | (SUB_INFO_FLAG if sub is not None else 0)
    head = u32(meta) + u32(len(name))
    if sub is not None:
        head += u32(len(sub))
    return meta, head + name + (sub or b'') + data


def container(records):
    """Records back to back, then the directory; offsets count back to TEVH."""
    encoded = [record(*r) for r in records]
    body = b''.join(raw for _, raw in encoded)
    directory = b'TEVH' + u32(VERSION) + u32(len(encoded))
    distance = len(body)
    for meta, raw in encoded:
        directory += u32(meta) + u32(distance) + u32(len(raw))
        distance -= len(raw)
    directory += u32(12 + 12 * len(encoded)) + b'TEVT'
    return body + directory


def voxa_block(start, end):
    return b'VOXA' + u32(106) + u32(1) + u32(start) + u32(end) + u32(20) + b'VOXABS'


def seeds():
    jpeg = fake_jpeg(64)
    sound = bytes(range(48))
    one = container([(1, b'note', b'0123456789')])
    several = container([
        (0, b'caller', b'payload-with-sub', b'sub-info'),
        (7, b'plain', b'abc'),
        (256, b'EchoFrame_000', bytes(32), b'\x01\x02'),
    ])
    boxed = container([(1, b'clip', b'mp4 record data'), (0, b'user', b'x', b'yz')])
    mp4 = fake_mp4(96)
    return {
        'plain.jpg': jpeg,
        'one-record.jpg': jpeg + one,
        'several-with-sub-info.jpg': jpeg + several,
        'boxed.mp4': mp4 + struct.pack('>I', 8 + len(boxed)) + b'tevd' + boxed,
        'container-then-voxa.jpg': (jpeg + sound + one +
                                    voxa_block(len(jpeg), len(jpeg) + len(sound))),
        'voxa-only.jpg': jpeg + sound + voxa_block(len(jpeg), len(jpeg) + len(sound)),
    }


def main():
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'corpus', 'read')
    os.makedirs(out, exist_ok=True)
    for name, content in seeds().items():
        with open(os.path.join(out, name), 'wb') as f:
            f.write(content)
    return 0


if __name__ == '__main__':
    sys.exit(main())
