"""Fax pictures in memory as NumPy arrays: ITU-T T.4 (Group 3) and T.6 (Group 4).

    import kffax
    page = kffax.decode(data, 1728, 2200)            # a bool array of 2200 rows, True is black
    data = kffax.encode(page, kffax.Format.G3_1D)

The work is done by libkffax.so.19, or the library that the environment variable KFFAX_LIBRARY names. It runs
without Python's lock, so calls in several threads use several processors; nobody may change an argument
during a call.

Wrong arguments raise TypeError or ValueError, and what the filter refuses raises FaxError. Damaged data is no
error: lines that cannot be decoded are white.
"""
import ctypes
import enum
import operator
import os

import numpy as np

# Larger pictures are refused, so that a size read from a file cannot use up the memory. Programs may raise it.
MAX_PIXELS = 1 << 30


class Format(enum.IntEnum):
    G3_1D = 66  # Group 3, one-dimensional, with line ends
    G3_2D = 67  # Group 3, two-dimensional
    G4 = 68  # Group 4
    G3_ALL2D = 117  # Group 3, two-dimensional lines without line ends
    G3_NOEOL = 162  # one-dimensional rows without line ends, each on a byte boundary


class FaxError(Exception):
    """A status of the filter that is not success. `status` is its number, as host/status.h has it."""

    MEANINGS = {
        -1: "out of memory",
        -12: "the picture is wider than 65535 pixels",
        -13: "an argument is missing",
        -149: "an exception inside the filter",
        -290: "the coded data does not fit",
    }

    def __init__(self, status):
        super().__init__(f"{self.MEANINGS.get(status, 'the filter failed')} (status {status})")
        self.status = status


class _BitmapInfoHeader(ctypes.Structure):
    _pack_ = 1
    _fields_ = [
        ("unused0", ctypes.c_uint8 * 4),
        ("width", ctypes.c_int32),
        ("height", ctypes.c_int32),
        ("unused12", ctypes.c_uint8 * 2),
        ("bits_per_pixel", ctypes.c_uint16),
    ]


_SUCCESS = 1
_LOAD_REVERSED_BITS = 8
_SAVE_REVERSED_BITS = 1
_SAVE_BYTE_TRAILER = 2  # the data may be an odd number of bytes
_INT_MAX = (1 << 31) - 1
_UINT_MAX = (1 << 32) - 1  # the decoder counts bytes with 32 bits

_filter = ctypes.CDLL(os.environ.get("KFFAX_LIBRARY", "libkffax.so.19"))
_load = _filter.fltLoadBuffer
_load.restype = ctypes.c_int
_load.argtypes = (
    [ctypes.c_void_p, ctypes.c_ulonglong, ctypes.c_void_p]  # data, its size, rows
    + [ctypes.c_int] * 3  # format, width, height
    + [ctypes.c_ulonglong] * 2  # reserved
    + [ctypes.c_uint]  # flags
)
_save = _filter.fltSaveBuffer
_save.restype = ctypes.c_int
_save.argtypes = (
    [ctypes.c_void_p, ctypes.POINTER(_BitmapInfoHeader)]  # rows, their size
    + [ctypes.c_void_p, ctypes.POINTER(ctypes.c_ulonglong)]  # data, its capacity and size
    + [ctypes.c_ulonglong, ctypes.c_uint, ctypes.c_int]  # unused, flags, format
    + [ctypes.c_ulonglong] * 2  # unused, 0
)


def decode(data, width, height, format=Format.G4, *, reverse_bits=False, packed=False):
    """The picture that data, any bytes-like object, holds: a bool array of height x width, True is black.

    reverse_bits: the first bit of a byte is its least significant. packed: rows of (width + 7) // 8 bytes
    instead, the leftmost pixel in the highest bit, as numpy.packbits makes them.
    """
    format = Format(format)
    width, height = _size(width, height)
    source = np.frombuffer(memoryview(data).cast("B"), np.uint8)
    if source.size > _UINT_MAX:
        raise ValueError("data must be shorter than 4 GiB")
    # Zero, that is white, because the filter leaves rows alone that it does not get out of the data.
    rows = np.zeros((height, (width + 7) // 8), np.uint8)
    flags = _LOAD_REVERSED_BITS if reverse_bits else 0
    _check(_load(source.ctypes.data, source.size, rows.ctypes.data, format, width, height, 0, 0, flags))
    return rows if packed else np.unpackbits(rows, axis=1, count=width).view(bool)


def encode(rows, format=Format.G4, *, width=None, reverse_bits=False):
    """The coded bytes of a two-dimensional bool array, True is black.

    With width, rows is an array of packed rows instead, as decode returns it with packed=True.
    """
    format = Format(format)
    rows = np.asarray(rows)
    wanted = np.dtype(bool if width is None else np.uint8)
    if rows.ndim != 2 or rows.dtype != wanted:
        raise TypeError(f"rows must be a two-dimensional array of {wanted}, not {rows.ndim} x {rows.dtype}")
    width, height = _size(rows.shape[1] if width is None else width, rows.shape[0])
    if wanted == bool:
        rows = np.packbits(rows, axis=1)
    if rows.shape[1] != (width + 7) // 8:
        raise ValueError(f"packed rows of {width} pixels have {(width + 7) // 8} bytes, not {rows.shape[1]}")
    rows = np.ascontiguousarray(rows)
    header = _BitmapInfoHeader(width=width, height=height, bits_per_pixel=1)
    # At the worst a line takes 13 bits for every two pixels, and its line end two bytes more.
    data = np.empty((rows.shape[1] * 8 + 2) * height + 16, np.uint8)
    size = ctypes.c_ulonglong(data.size)
    flags = _SAVE_BYTE_TRAILER | (_SAVE_REVERSED_BITS if reverse_bits else 0)
    _check(_save(rows.ctypes.data, header, data.ctypes.data, size, 0, flags, format, 0, 0))
    return data[: size.value].tobytes()


def _size(width, height):
    width, height = operator.index(width), operator.index(height)
    if not (1 <= width <= _INT_MAX and 1 <= height <= _INT_MAX):
        raise ValueError(f"a picture cannot have {width} x {height} pixels")
    if width * height > MAX_PIXELS:
        raise ValueError(f"{width} x {height} pixels are more than kffax.MAX_PIXELS")
    return width, height


def _check(status):
    if status != _SUCCESS:
        raise FaxError(status)
