# SPDX-License-Identifier: BSD-2-Clause
"""Files of named tensors: the weights, and windows to test the inference with.

Little endian:

    8 bytes  "AIPLCNN1"
    u32      version of the model
    u32      number of tensors
    u32      CRC-32 (ISO 3309, as zlib's) of everything behind this field
    u32      0
    per tensor:
      u16    length of its name, then the name in ASCII
      u8     0 = float32, 1 = int16
      u8     number of dimensions, then a u32 for each
      values in row-major order, without padding
"""
import struct
import zlib

import numpy as np

MAGIC = b"AIPLCNN1"
CODES = {np.dtype("<f4"): 0, np.dtype("<i2"): 1}


def write(path, version, tensors):
    body = b""
    for name, values in tensors.items():
        values = np.ascontiguousarray(values)
        body += struct.pack("<H", len(name)) + name.encode("ascii")
        body += struct.pack("<BB", CODES[values.dtype], values.ndim)
        body += struct.pack(f"<{values.ndim}I", *values.shape) + values.tobytes()
    with open(path, "wb") as file:
        file.write(MAGIC + struct.pack("<IIII", version, len(tensors),
                                       zlib.crc32(struct.pack("<I", 0) + body), 0) + body)


def read(path):
    """(version, tensors by name); SystemExit when the file is damaged."""
    data = open(path, "rb").read()
    version, count, checksum = struct.unpack_from("<III", data, 8)
    if data[:8] != MAGIC or zlib.crc32(data[20:]) != checksum:
        raise SystemExit(f"{path}: damaged, or not written by export.py")
    at, tensors = 24, {}
    for _ in range(count):
        length, = struct.unpack_from("<H", data, at)
        name = data[at + 2:at + 2 + length].decode("ascii")
        code, dims = struct.unpack_from("<BB", data, at + 2 + length)
        shape = struct.unpack_from(f"<{dims}I", data, at + 4 + length)
        at += 4 + length + 4 * dims
        kind = next(k for k, c in CODES.items() if c == code)
        size = int(np.prod(shape))
        tensors[name] = np.frombuffer(data, kind, size, at).reshape(shape)
        at += size * kind.itemsize
    return version, tensors
