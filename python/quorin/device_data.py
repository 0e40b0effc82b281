"""Device data: time stamps and channel records, look-up settings, gain
tables and flat fields, the one-pixel probe, defect lists and free curves
(mixed into :class:`quorin.Camera`)."""

import ctypes

import numpy as np

from ._calls import MAX_FRAMES_PER_READ, MAX_LIST_ENTRIES, byref, c_u32
from .records import (CHANNEL_DTYPE, GAIN_TABLE_SHAPE, LUT_SETTINGS_SIZE, TIME_AND_CHANNELS_DTYPE,
                      TIME_STAMP_DTYPE, LutSettings)

LUT_USER = 11
_IDENTITY_LUT = 0xFFFFFFFF
_GAIN_TABLES = {"camera": 1, "file": 2, 1: 1, 2: 2}
_FREE_LUTS = {"r": 20, "g": 21, "b": 22}


class DeviceData:
    """The device-data half of a camera; needs the camera's ``_lock``,
    ``device_number`` and ``_invoke``."""

    def _get_data(self, data_id, sub_id, param, buffer):
        size = c_u32(0)
        self._invoke("DEV_GetData", self.device_number, 0, data_id, sub_id, param,
                     ctypes.c_void_p(buffer), byref(size))
        return size.value

    def _set_data(self, data_id, sub_id, buffer):
        self._invoke("DEV_SetData", self.device_number, 0, data_id, sub_id, 0, ctypes.c_void_p(buffer), 0)

    def _frame_records(self, data_id, dtype, first, count):
        count = int(count)
        if count < 1:
            raise ValueError("count must be at least 1")
        records = np.zeros(count, dtype)  # reserved bytes stay zero
        with self._lock:
            for start in range(0, count, MAX_FRAMES_PER_READ):
                n = min(MAX_FRAMES_PER_READ, count - start)
                self._get_data(data_id, int(first) + start, n, records[start:start + n].ctypes.data)
        return records

    def time_stamps(self, first=1, count=1):
        """Time stamps of ``count`` recorded frames from ``first`` on, as a
        :data:`~quorin.records.TIME_STAMP_DTYPE` array (day, hour, minute,
        second, microsecond, time_code). Playback only (error 111), after the
        frame rate was read in playback (error 10): use inside
        :meth:`playback`."""
        return self._frame_records(0, TIME_STAMP_DTYPE, first, count)

    def channel_records(self, first=1, count=1):
        """Channel records of recorded frames (status, c, d, a, b of ten
        channels), a :data:`~quorin.records.CHANNEL_DTYPE` array. Playback only."""
        return self._frame_records(1, CHANNEL_DTYPE, first, count)

    def time_and_channels(self, first=1, count=1):
        """Both records per frame, fields "time" and "channels". Playback only."""
        return self._frame_records(2, TIME_AND_CHANNELS_DTYPE, first, count)

    def lut_settings(self, lut_mode=LUT_USER):
        """The look-up settings of a LUT mode: 1..5 the presets, 11 the user's."""
        buf = ctypes.create_string_buffer(LUT_SETTINGS_SIZE)
        with self._lock:
            self._get_data(3, int(lut_mode), 0, ctypes.addressof(buf))
        return LutSettings.from_bytes(buf.raw)

    def set_lut_settings(self, settings):
        """Stores the user look-up settings (a LutSettings or its 76 bytes)."""
        data = settings.to_bytes() if isinstance(settings, LutSettings) else bytes(settings)
        if len(data) != LUT_SETTINGS_SIZE:
            raise ValueError("look-up settings are %d bytes, not %d" % (LUT_SETTINGS_SIZE, len(data)))
        buf = ctypes.create_string_buffer(data, LUT_SETTINGS_SIZE)
        with self._lock:
            self._set_data(3, LUT_USER, ctypes.addressof(buf))

    def apply_identity_lut(self):
        """Applies the identity curve to the live look-up tables."""
        buf = ctypes.create_string_buffer(LUT_SETTINGS_SIZE)
        with self._lock:
            self._set_data(3, _IDENTITY_LUT, ctypes.addressof(buf))

    def gain_table(self, which="file"):
        """A pixel-gain table, 1024 x 1024 uint16: "camera" (1, read from the
        camera at open) or "file" (2, the one applied and saved to file)."""
        try:
            sub = _GAIN_TABLES[which]
        except (KeyError, TypeError):
            raise ValueError("gain table must be 'camera' or 'file', not %r" % (which,)) from None
        table = np.empty(GAIN_TABLE_SHAPE, np.uint16)
        with self._lock:
            self._get_data(4, sub, 0, table.ctypes.data)
        return table

    def set_gain_table(self, table):
        """Replaces the file pixel-gain table (1024 x 1024 values, 512 = 1.0)."""
        table = np.ascontiguousarray(table, dtype=np.uint16)
        if table.size != GAIN_TABLE_SHAPE[0] * GAIN_TABLE_SHAPE[1]:
            raise ValueError("a gain table has 1024 x 1024 entries, not %d" % table.size)
        with self._lock:
            self._set_data(4, 0, table.ctypes.data)

    def flat_field(self, image):
        """Computes the file pixel-gain table from a flat-field picture of
        the live area: (height, width) 10-bit values, such as a 16-bit
        :meth:`grab` of a K5, or of a K5C with raw Bayer output on."""
        image = np.ascontiguousarray(image, dtype=np.uint16)
        with self._lock:
            width, height = self.get("resolution")
            self.get("value-73")
            if image.shape != (height, width):
                raise ValueError("the flat field must be shaped %r like the live area, not %r"
                                 % ((height, width), image.shape))
            self._set_data(5, 0, image.ctypes.data)

    def probe(self, x, y):
        """(red, green, blue) of pixel (x, y) of the last transferred image,
        before the 8-bit reduction (a K5 gives its value three times)."""
        rgb = (c_u32 * 3)()
        with self._lock:
            self._get_data(6, int(x), int(y), ctypes.addressof(rgb))
        return tuple(rgb)

    def set_defects(self, pixels):
        """Loads the defect list: (column, row) pairs (or packed column << 16 |
        row words), at most 1024; an empty list clears it. Returns the list
        as stored: sorted by row, then column, without repeats."""
        words = [p if isinstance(p, int) else (int(p[0]) << 16) | int(p[1]) for p in pixels]
        buf = (c_u32 * max(MAX_LIST_ENTRIES, len(words)))(*words)
        stored = c_u32(0)
        with self._lock:
            self._invoke("DEV_SetList", self.device_number, 0, 18, 0, buf, len(words), byref(stored))
        return [(w >> 16, w & 0xFFFF) for w in buf[:min(stored.value, len(buf))]]

    def set_free_lut(self, channel, curve):
        """Draws a free look-up curve ("r", "g" or "b"; 1024 values). Accepted
        only while the user LUT is the LUT mode (else error 5)."""
        try:
            ident = _FREE_LUTS[channel.lower()]
        except (KeyError, AttributeError):
            raise ValueError("channel must be 'r', 'g' or 'b', not %r" % (channel,)) from None
        curve = np.ascontiguousarray(curve, dtype=np.uint32).ravel()
        if curve.size != MAX_LIST_ENTRIES:
            raise ValueError("a free curve has 1024 entries, not %d" % curve.size)
        stored = c_u32(0)
        with self._lock:
            self._invoke("DEV_SetList", self.device_number, 0, ident, 0,
                         curve.ctypes.data_as(ctypes.POINTER(c_u32)), MAX_LIST_ENTRIES, byref(stored))
