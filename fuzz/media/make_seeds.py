#!/usr/bin/env python3
"""Writes the seed inputs of the media fuzz targets into corpus/ next to this script."""
import base64
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def pack(ts, seq, ptype, index, payload, stream=0, ftype=1, key=None, size=None):
    key = ts if key is None else key
    size = len(payload) if size is None else size
    return struct.pack('<IIHHBBBBI', ts, key, seq & 0xFFFF, size, ptype, ftype, stream, 96, index) + payload


def framed(packs):
    return b''.join(struct.pack('<H', len(p)) + p for p in packs)


def frame(ts, index, parts, seq=0, stream=0):
    out = []
    for i, part in enumerate(parts):
        t = 0x01 if i == 0 else (0x10 if i == len(parts) - 1 else 0x00)
        out.append(pack(ts, seq + i, t, index, part, stream))
    return out


def write(kind, name, data):
    d = os.path.join(HERE, 'corpus', kind)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), 'wb') as f:
        f.write(data)


replay = {
    'whole': [pack(40, 0, 0x11, 1, b'\0\0\0\1' + b'e' * 30)],
    'three_packs': frame(80, 2, [b'a' * 100, b'b' * 100, b'c' * 10]),
    'seq_wrap': frame(120, 3, [b'x', b'y', b'z'], seq=65534),
    'seq_gap': [pack(1, 5, 0x01, 4, b'q'), pack(1, 7, 0x10, 4, b'r')],
    'index_mismatch': [pack(1, 1, 0x01, 7, b'q'), pack(1, 2, 0x00, 8, b'r'), pack(1, 2, 0x10, 7, b's')],
    'broken': [b'\1\2\3', pack(1, 1, 0x11, 1, b'ab', size=300), pack(1, 1, 0x22, 1, b'k')],
    'audio': [pack(60, 0, 0x11, 9, b'aud', stream=1)],
}
for name, packs in replay.items():
    write('replay', name, framed(packs))

span = struct.pack('<II', 1000, 20000)
download = {
    'frames': span + b'\0\x08' + framed([pack(1000, 0, 0x11, 1, b'v' * 20), pack(1010, 0, 0x11, 1, b'a', stream=1)] +
                                          frame(2000, 2, [b'p' * 50, b'q' * 50, b'r' * 5])),
    'audio_first': span + b'\0\x08' + framed([pack(1000, 0, 0x11, 1, b'a', stream=1)]),
    'end_zero': struct.pack('<II', 0, 0) + b'\0\x08' + framed([pack(5, 0, 0x11, 1, b'v')]),
    'past_end': span + b'\0\x08' + framed([pack(1000, 0, 0x11, 1, b'v'), pack(30000, 0, 0x11, 2, b'v')]),
    'split': struct.pack('<II', 0, 80000000) + b'\0\x20' +
             framed([pack(1000, 0, 0x11, 1, b'v'), pack(3602000, 0, 0x11, 2, b'v'), b'\1']),
    'mismatch': span + b'\1\x08' + framed([pack(1000, 1, 0x01, 7, b'AB'), pack(1000, 2, 0x00, 8, b'XYZW'),
                                          pack(1000, 3, 0x33, 8, b'k'), pack(1000, 9, 0x10, 7, b'k')]),
}
for name, data in download.items():
    write('download', name, data)

video = bytearray(536)
video[0:4] = b'H264'
video[276:286] = b'\0\0\0\1\x67\x42\0\x1e\xab\xcd'
video[532] = 10
audio = bytearray(276)
audio[0:4] = b'AAC\0'
audio[256:260] = struct.pack('<i', 16000)
audio[260:264] = struct.pack('<i', 16)
audio[264:268] = struct.pack('<i', 3)
audio[272:276] = struct.pack('<i', 1)
compact = bytearray(57)
compact[0:5] = b'G711A'
compact[40:56] = struct.pack('<iiii', 8000, 16, 2, 1)
v = base64.b64encode(bytes(video))
params = {
    'both': v + b'\0' + base64.b64encode(bytes(audio)),
    'video_unpadded': v.rstrip(b'='),
    'compact_audio': b'\0' + base64.b64encode(bytes(compact)),
    'video_with_newlines': v[:100] + b'\n' + v[100:] + b'\0' + base64.b64encode(bytes(compact)),
    'junk': b'T*W-F!u\x1c==\0=TWFu',
}
for name, data in params.items():
    write('params', name, data)
