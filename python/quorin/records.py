"""Typed records of the device data, with the exact byte layouts of quorin.h.

* time stamps (data id 0): 20 bytes per frame, :data:`TIME_STAMP_DTYPE` /
  :class:`FrameTimeRecord`;
* channel records (data id 1): 332 bytes per frame, :data:`CHANNEL_DTYPE` /
  :class:`FrameChannelRecord`;
* both (data id 2): 352 bytes per frame, :data:`TIME_AND_CHANNELS_DTYPE`;
* look-up settings (data id 3): 76 packed bytes, :class:`LutSettings`.

The numpy dtypes are what :class:`~quorin.Camera` returns; the ctypes
structures describe the same bytes for code that works with ctypes.
"""

import ctypes
import struct
from dataclasses import dataclass

import numpy as np


class FrameTimeRecord(ctypes.Structure):
    """Time stamp of one recorded frame (20 bytes, little-endian)."""
    _pack_ = 1
    _fields_ = [
        ("day", ctypes.c_uint32),          # day of the year
        ("hour", ctypes.c_uint8),
        ("minute", ctypes.c_uint8),
        ("second", ctypes.c_uint8),
        ("reserved3", ctypes.c_uint8),     # left as it was
        ("microsecond", ctypes.c_uint32),
        ("time_code", ctypes.c_uint8),     # time-code flag
        ("reserved13", ctypes.c_uint8 * 7),
    ]


class FrameChannelRecord(ctypes.Structure):
    """Channel record of one recorded frame (332 bytes): ten status bytes,
    two left as they were, then the values C, D, A, B of the ten channels."""
    _pack_ = 1
    _fields_ = [
        ("status", ctypes.c_uint8 * 10),
        ("reserved10", ctypes.c_uint8 * 2),
        ("c", ctypes.c_double * 10),
        ("d", ctypes.c_double * 10),
        ("a", ctypes.c_double * 10),
        ("b", ctypes.c_double * 10),
    ]


TIME_STAMP_DTYPE = np.dtype({
    "names": ["day", "hour", "minute", "second", "microsecond", "time_code"],
    "formats": ["<u4", "u1", "u1", "u1", "<u4", "u1"],
    "offsets": [0, 4, 5, 6, 8, 12],
    "itemsize": 20,
})

CHANNEL_DTYPE = np.dtype({
    "names": ["status", "c", "d", "a", "b"],
    "formats": [("u1", 10), ("<f8", 10), ("<f8", 10), ("<f8", 10), ("<f8", 10)],
    "offsets": [0, 12, 92, 172, 252],
    "itemsize": 332,
})

TIME_AND_CHANNELS_DTYPE = np.dtype({
    "names": ["time", "channels"],
    "formats": [TIME_STAMP_DTYPE, CHANNEL_DTYPE],
    "offsets": [0, 20],
    "itemsize": 352,
})


def time_stamp_microseconds(stamps):
    """Microseconds since the start of day 0 for an array of time stamps
    (int64), handy for frame intervals: ``np.diff(...)``."""
    s = np.asarray(stamps)
    return ((((s["day"].astype(np.int64) * 24 + s["hour"]) * 60 + s["minute"]) * 60 + s["second"])
            * 1_000_000 + s["microsecond"])


_LUT_FORMAT = struct.Struct("<3i3i3d3d3BB")


@dataclass
class LutSettings:
    """Look-up settings of the red, green and blue channels (76 packed bytes).

    ``brightness`` is added to the input code, ``contrast`` acts around 512
    (negative flattens), ``gain`` multiplies, ``gamma`` of exactly 1.0 skips
    the gamma stage, ``posi_nega`` inverts a channel, and ``free_mode``
    takes the curve from the free look-up tables instead.
    """
    brightness: tuple = (0, 0, 0)
    contrast: tuple = (0, 0, 0)
    gain: tuple = (1.0, 1.0, 1.0)
    gamma: tuple = (1.0, 1.0, 1.0)
    posi_nega: tuple = (False, False, False)
    free_mode: bool = False

    @classmethod
    def from_bytes(cls, data):
        v = _LUT_FORMAT.unpack(bytes(data[:_LUT_FORMAT.size]))
        return cls(tuple(v[0:3]), tuple(v[3:6]), tuple(v[6:9]), tuple(v[9:12]),
                   tuple(bool(b) for b in v[12:15]), bool(v[15]))

    def to_bytes(self):
        def three(name, values):
            values = tuple(values)
            if len(values) != 3:
                raise ValueError("%s needs three values (R, G, B), not %r" % (name, values))
            return values
        return _LUT_FORMAT.pack(*three("brightness", self.brightness), *three("contrast", self.contrast),
                                *(float(g) for g in three("gain", self.gain)),
                                *(float(g) for g in three("gamma", self.gamma)),
                                *(1 if p else 0 for p in three("posi_nega", self.posi_nega)),
                                1 if self.free_mode else 0)


LUT_SETTINGS_SIZE = _LUT_FORMAT.size
GAIN_TABLE_SHAPE = (1024, 1024)
