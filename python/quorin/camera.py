"""Cameras: opening, capabilities, lists, pictures and device data."""

import contextlib
import ctypes
import threading
import time
import warnings
import weakref

import numpy as np

from . import names as _names
from . import recording as _recording
from ._library import InterfaceTable, Library, library as _default_library
from .errors import DriverError, QuorinError
from .records import (CHANNEL_DTYPE, GAIN_TABLE_SHAPE, LUT_SETTINGS_SIZE, TIME_AND_CHANNELS_DTYPE,
                      TIME_STAMP_DTYPE, LutSettings)
from .records import time_stamp_microseconds as _stamp_microseconds
from .virtual import DEFAULT_LINK_TYPE, VirtualCamera

c_u32, c_i32 = ctypes.c_uint32, ctypes.c_int32
byref = ctypes.byref

MODE_LIVE = 0
MODE_PLAYBACK = 1

MAX_LIST_ENTRIES = 1024
MAX_FRAMES_PER_READ = 2048  # per-frame data ids read at most this many records per call
LUT_USER = 11
_IDENTITY_LUT = 0xFFFFFFFF
_GAIN_TABLES = {"camera": 1, "file": 2, 1: 1, 2: 2}
_FREE_LUTS = {"r": 20, "g": 21, "b": 22}

def _depth(bits):
    if bits not in (8, 16) or isinstance(bits, bool):
        raise ValueError("bits must be 8 or 16, not %r" % (bits,))
    return bits


_SETTINGS_NOT_SAVED = 17


def _release(dll, lock, device_no, virtual):
    """Closes a camera that was never closed explicitly (garbage collection
    or interpreter exit); nothing can be raised here, so settings that could
    not be saved are reported as a warning."""
    err = c_i32(0)
    with lock:
        dll.DEV_CloseDevice(device_no, byref(err))
    if virtual is not None:
        virtual.destroy()
    if err.value == _SETTINGS_NOT_SAVED:
        warnings.warn(str(QuorinError(err.value, "DEV_CloseDevice", "the camera's settings were not saved")),
                      RuntimeWarning, stacklevel=2)


class _Layout:
    """How the library lays out one picture: size, planes, and the image
    output word (capability 41) to transfer with so that colour pixels come
    red first: the demosaic byte 0 selects red, green, blue."""

    __slots__ = ("width", "height", "planes", "output", "red_first")

    def __init__(self, width, height, planes, output):
        self.width, self.height, self.planes, self.output = width, height, planes, output
        self.red_first = output & ~0xFF0000 if planes == 3 and (output >> 16) & 0xFF == 1 else None

    def shape(self, count=None):
        shape = (self.height, self.width) + ((3,) if self.planes == 3 else ())
        return shape if count is None else (count,) + shape

    def array(self, bits, out=None, count=None):
        """A new array for the picture, or ``out`` when it fits exactly."""
        dtype = np.uint16 if bits == 16 else np.uint8
        shape = self.shape(count)
        if out is None:
            return np.empty(shape, dtype)
        if not isinstance(out, np.ndarray) or out.dtype != dtype or out.shape != shape or \
                not out.flags.c_contiguous or not out.flags.writeable:
            raise ValueError("out must be a writeable C-contiguous %s array shaped %r"
                             % (np.dtype(dtype).name, shape))
        return out


class Camera:
    """An open camera. Use :func:`quorin.open` to get one, preferably as a
    context manager; :meth:`close` closes the device (and destroys a virtual
    camera).

    Capabilities and lists are named by the header's constants in kebab
    case (``"frame-rate"``) or by number. Pictures are numpy arrays shaped
    (height, width) on the K5 and (height, width, 3) in R, G, B order on the
    K5C, uint8 or uint16 (10-bit values).
    """

    def __init__(self, library, device_no, virtual=None, driver=None):
        self.library = library
        self._dll = library.dll
        self.device_number = device_no
        self.virtual = virtual
        self._driver = driver  # keeps a host link driver loaded while the camera is open
        self._lock = threading.RLock()
        self._closed = False
        self._live_layout = None  # read again after any setting changes
        name = ctypes.create_string_buffer(256)
        self._invoke("DEV_GetDeviceName", device_no, 0, name)
        self.name = name.value.decode("ascii", "replace")
        self.is_colour = bool(self.get("colour-model"))
        self.model = "K5C" if self.is_colour else "K5"
        self._read_kept_settings()
        # From here on the camera is closed when it is collected or at exit,
        # should the host never close it.
        self._finalizer = weakref.finalize(self, _release, self._dll, library.lock, device_no, virtual)

    # The library keeps several settings as the host last read them: the
    # exposure switch (which the shutter and exposure reads depend on), the
    # trigger fields, the look-up mode and the channel. Reading them once
    # makes them current, as the quorin tool does after opening; ids a
    # camera does not support simply fail here.
    _KEPT_SETTINGS = ("camera-mode", "frame-rate", "resolution", "exposure-enable", "shutter", "frame-count",
                      "trigger-mode", "lut-mode", "channel-count", "channel-number")

    def _read_kept_settings(self):
        for name in self._KEPT_SETTINGS:
            try:
                self.get(name)
            except QuorinError:
                pass

    def __repr__(self):
        state = "closed" if self._closed else "device %d" % self.device_number
        return "<quorin.Camera %s, %s%s>" % (self.name, state, ", virtual" if self.virtual else "")

    # -- life -----------------------------------------------------------------

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, tb):
        try:
            self.close()
        except QuorinError:
            if exc_type is None:
                raise
            # the body's own exception is the one to report
        return False

    @property
    def closed(self):
        return self._closed

    def close(self):
        """Closes the device: the library returns the camera to live mode and
        saves its settings. A virtual camera is destroyed afterwards. Closing
        twice does nothing. Raises QuorinError with code 17 when the camera
        was closed but its settings could not be stored (for example in a
        home folder the user cannot write)."""
        with self._lock:
            if self._closed:
                return
            self._closed = True
            self._finalizer.detach()
            err = c_i32(0)
            try:
                with self.library.lock:
                    ok = self._dll.DEV_CloseDevice(self.device_number, byref(err))
            finally:
                if self.virtual is not None:
                    self.virtual.destroy()
            if not ok:
                raise QuorinError(err.value, "DEV_CloseDevice")
            if err.value == _SETTINGS_NOT_SAVED:
                raise QuorinError(err.value, "DEV_CloseDevice", "the camera is closed, but its settings were not saved")

    def _invoke(self, function, *args):
        """Calls an export with the device's arguments and a status word;
        raises QuorinError when it returns 0. Returns the status word."""
        if self._closed:
            raise ValueError("the camera is closed")
        err = c_i32(0)
        if not getattr(self._dll, function)(*args, byref(err)):
            raise QuorinError(err.value, function)
        return err.value

    # -- capabilities and lists -------------------------------------------------

    def get(self, capability, sub_index=0, raw=False):
        """Reads one capability, by name or number.

        The value is decoded as the name table says (sizes as (width,
        height), flags as bool, pairs as tuples, ...); ``raw=True`` returns
        the two value words instead. A number without a table entry reads
        as the plain value word.
        """
        ident, entry = _names.capability(capability)
        if entry is not None and "g" not in entry.access:
            raise ValueError("capability %r can only be set" % entry.name)
        with self._lock:
            if entry is not None and entry.get_kind == "channels":
                return self._frame_counts(ident, sub_index, raw)
            value, value2 = c_u32(0), c_u32(0)
            self._invoke("DEV_GetDeviceCaps", self.device_number, 0, ident, sub_index, byref(value), byref(value2))
        if raw:
            return (value.value, value2.value)
        return _names.decode(entry.get_kind if entry else "int", value.value, value2.value)

    def _frame_counts(self, ident, sub_index, raw):
        # Id 39 writes one element per channel at value and 512 bytes at value2.
        channels = self.get("channel-count")
        counts = (c_u32 * 64)()
        block = (c_u32 * 128)()
        self._invoke("DEV_GetDeviceCaps", self.device_number, 0, ident, sub_index, counts, block)
        values = list(counts[:max(0, min(channels, 64))])
        return (values, bytes(block)) if raw else values

    def set(self, capability, value, sub_index=0):
        """Changes one capability, by name or number.

        ``value`` is encoded as the name table says: a (width, height) tuple
        for sizes, an :class:`~quorin.names.ImageOutput` or 3-tuple for
        "image-output", a signed int for "signed-offset", a (value, value2)
        tuple where the id takes two words; a plain int is the raw value
        (for sizes only a packed width << 16 | height on the sensor). A
        string is read in the quorin tool's notation: "512x256", "1/4000",
        "gamma-0.7", "frames,500", "on". A value of the wrong type or shape
        raises TypeError or ValueError before the library is called.
        """
        ident, entry = _names.capability(capability)
        if entry is not None and "s" not in entry.access:
            raise ValueError("capability %r can only be read" % entry.name)
        try:
            value, value2 = _names.encode_setting(ident, entry.set_kind if entry else "int", value)
        except (TypeError, ValueError) as refused:
            raise type(refused)("%s: %s" % (entry.name if entry else "capability %d" % ident, refused)) from None
        with self._lock:
            self._live_layout = None
            self._invoke("DEV_SetDeviceCaps", self.device_number, 0, ident, sub_index, value, value2)

    def list(self, value_list, sub_index=0):
        """Reads one value list, by name or number.

        Sizes come as (width, height), defect pixels as (column, row),
        look-up tables as a uint16 array of 1024 entries, the camera entries
        as ten values (None where the camera has no entry); other lists as
        a list of ints.
        """
        ident, entry = _names.value_list(value_list)
        entries = (c_u32 * MAX_LIST_ENTRIES)()
        count = c_u32(0)
        with self._lock:
            self._invoke("DEV_GetList", self.device_number, 0, ident, sub_index, entries, byref(count))
        words = np.frombuffer(entries, dtype=np.uint32)
        kind = entry.kind if entry else "int"
        if kind == "table":
            return words.astype(np.uint16)
        if kind == "entries":
            return [None if w == 0xFFFFFFFF else int(w) for w in words[:10]]
        values = [int(w) for w in words[:min(count.value, MAX_LIST_ENTRIES)]]
        if kind == "size":
            return [_names.unpack_size(v) for v in values]
        if kind == "defect":
            return [(v >> 16, v & 0xFFFF) for v in values]
        return values

    # -- pictures ----------------------------------------------------------------

    def _layout(self):
        """Reads the picture's size and place on the sensor (which the
        library keeps for the next transfer) and the output options."""
        width, height = self.get("resolution")
        self.get("value-73")
        out = self.get("image-output", raw=True)[0]
        planes = 3 if self.is_colour and not (out >> 8) & 0xFF else 1
        return _Layout(width, height, planes, out)

    def _transfer(self, layout, function, *args):
        """Runs a transfer export into the picture's red-first layout: the
        image output word goes to red first for the call and back after,
        two calls that send nothing to the camera."""
        if layout.red_first is None:
            return self._invoke(function, self.device_number, 0, *args)
        err = c_i32(0)
        self._dll.DEV_SetDeviceCaps(self.device_number, 0, 41, 0, layout.red_first, 0, byref(err))
        try:
            return self._invoke(function, self.device_number, 0, *args)
        finally:
            self._dll.DEV_SetDeviceCaps(self.device_number, 0, 41, 0, layout.output, 0, byref(err))

    def grab(self, bits=8, out=None):
        """Fetches the current live frame.

        Returns uint8 (bits=8) or uint16 (bits=16, 10-bit values) shaped
        (height, width), or (height, width, 3) in R, G, B order on the K5C
        (a raw Bayer output is (height, width)); the library writes straight
        into the array. ``out``, an array of that dtype and shape, is filled
        and returned instead of a new one. Refused with error 110 while the
        camera is in playback.
        """
        bits = _depth(bits)
        with self._lock:
            if self._live_layout is None:
                self._live_layout = self._layout()
            layout = self._live_layout
            image = layout.array(bits, out)
            self._transfer(layout, "DEV_TransferLiveImage", bits, image.ctypes.data)
        return image

    def live_cache(self):
        """The 16-bit result of the last 8-bit transfer (needs
        "keep-live-cache" on, else error 11), shaped as :meth:`grab`'s."""
        with self._lock:
            layout = self._layout()
            image = np.empty(layout.shape(), np.uint16)
            err = c_u32(0)
            if not self._dll.DEV_TransferLiveImageCache(self.device_number, 0, image.ctypes.data, byref(err)):
                raise QuorinError(ctypes.c_int32(err.value).value, "DEV_TransferLiveImageCache")
        # The cache keeps the channel order of the transfer that filled it:
        # the binding's transfers are red first.
        return image

    def mode(self):
        """The camera mode (capability 0): 0 live, 1 playback, 2, 4, 8, 16, 32 recording states."""
        return self.get("camera-mode")

    @contextlib.contextmanager
    def playback(self):
        """Context manager: puts the camera in playback, makes the reads that
        recorded-frame transfers and time stamps need (channel number,
        picture size and place, frame rate, trigger settings, look-up mode),
        and returns the camera to live mode at the end, also when the body
        raises. A camera already in playback stays there.
        """
        with self._lock:
            entered = self.mode() != MODE_PLAYBACK
            self._live_layout = None
            try:
                if entered:
                    self.set("camera-mode", MODE_PLAYBACK)
                self._prepare_playback()
                yield self
            except BaseException:
                if entered:
                    with contextlib.suppress(QuorinError):
                        self.set("camera-mode", MODE_LIVE)
                raise
            if entered:
                self.set("camera-mode", MODE_LIVE)

    def _prepare_playback(self):
        # In playback the library reads and keeps these for the channel being
        # played back; the recorded-frame transfers use what they kept.
        self.get("channel-number")
        self.get("frame-rate")
        self.get("frame-count")
        self.get("trigger-mode")
        self.get("lut-mode")
        if self.is_colour:
            self.get("colour-temperature")

    def transfer_recorded(self, frame, bits=8, out=None):
        """Fetches recorded frame ``frame`` (counted from 1) into a new array
        or ``out``. Playback only: outside it the library refuses with error
        111. See :meth:`download` and :meth:`frames`."""
        bits = _depth(bits)
        with self._lock:
            layout = self._layout()
            image = layout.array(bits, out)
            self._transfer(layout, "DEV_TransferMemImage", int(frame), bits, image.ctypes.data)
        return image

    def _check_recorded(self, frames):
        frames = [frames] if isinstance(frames, int) else [int(n) for n in frames]
        recorded = self.get("frame-count")
        outside = [n for n in frames if not 1 <= n <= recorded]
        if outside:
            raise ValueError("frame %d is outside the recording (frames 1..%d)" % (outside[0], recorded))
        return frames

    def download(self, frames, bits=8, stack=True, time_stamps=False, out=None, to=None, overwrite=False):
        """Downloads recorded frames from the camera's memory.

        ``frames`` is an iterable of frame numbers counted from 1 (or one
        number). The camera is put in playback for the transfers and
        returned to live mode afterwards, also on error (see
        :meth:`playback`). Returns a numpy array shaped (N, height, width)
        or (N, height, width, 3) in R, G, B order, which the library fills
        frame by frame (``out``, such an array, is filled instead), or a
        list of frames with ``stack=False``. With ``time_stamps=True``
        returns (frames, stamps), stamps a
        :data:`~quorin.records.TIME_STAMP_DTYPE` array.

        ``to="rec.h5"`` writes the frames to an HDF5 file instead, one at a
        time, in the format of ``quorin download -o rec.h5`` (see
        :mod:`quorin.recording`; an existing file is refused unless
        ``overwrite``), and returns its path.
        """
        bits = _depth(bits)
        frames = self._check_recorded(frames)
        if to is not None:
            return self._download_to(frames, bits, to, overwrite)
        with self._lock, self.playback():
            layout = self._layout()
            block = layout.array(bits, out, len(frames)) if stack else None
            images = []
            for i, n in enumerate(frames):
                image = block[i] if block is not None else layout.array(bits)
                self._transfer(layout, "DEV_TransferMemImage", n, bits, image.ctypes.data)
                images.append(image)
            stamps = self._stamps_of(frames) if time_stamps else None
        result = block if stack else images
        return (result, stamps) if time_stamps else result

    def frames(self, frames, bits=8, out=None):
        """Iterates over recorded frames, yielding (stamp, frame) pairs:
        stamp a :data:`~quorin.recording.FRAME_STAMP_DTYPE` record (frame
        number, day, hour, minute, second, microsecond, time code and the
        seconds since the first frame), frame an array as :meth:`grab`'s.

        Only the frame in hand is held: each is a new array (or ``out``,
        filled again for every frame). The camera stays in playback while
        the iteration runs, and this camera's other calls wait for it; it
        returns to live mode when the iteration ends, is broken off or
        raises::

            for stamp, frame in cam.frames(range(1, 3277)):
                print(stamp["seconds"], frame.mean())
        """
        bits = _depth(bits)
        return self._frames(self._check_recorded(frames), bits, out)

    def _frames(self, frames, bits, out):
        with self._lock, self.playback():
            layout = self._layout()
            base = None
            for start in range(0, len(frames), MAX_FRAMES_PER_READ):
                numbers = frames[start:start + MAX_FRAMES_PER_READ]
                records = self._stamps_of(numbers)
                micro = _stamp_microseconds(records)
                base = micro[0] if base is None else base
                for n, stamp in zip(numbers, _recording.frame_stamps(numbers, records, (micro - base) / 1e6)):
                    image = layout.array(bits, out)
                    self._transfer(layout, "DEV_TransferMemImage", n, bits, image.ctypes.data)
                    yield stamp, image

    def _download_to(self, frames, bits, path, overwrite):
        with self._lock, self.playback():
            layout = self._layout()
            writer = _recording.Hdf5Writer(path, layout.shape(), np.uint16 if bits == 16 else np.uint8, len(frames),
                                           self._recording_settings(frames, bits), overwrite=overwrite)
            with writer:
                for stamp, image in self._frames(frames, bits, layout.array(bits)):
                    writer.write(image, stamp)
        return writer.path

    def _recording_settings(self, frames, bits):
        """The attributes a recording file keeps: what the camera reports."""
        from . import __version__
        settings = {"model": self.name, "software": "quorin " + __version__, "bits": bits,
                    "first_frame": frames[0] if frames else 0, "last_frame": frames[-1] if frames else 0}
        # A setting the camera does not report (a read that fails, or that
        # answers without the success code, as the shutter does while
        # exposure control is off) is left out, as the tool leaves it out.
        for name, cap in (("frame_rate", "frame-rate"), ("firmware", "firmware"), ("camera_number", "camera-number"),
                          ("shutter", "shutter"), ("exposure_ns", "exposure-ns"), ("lut_mode", "lut-mode"),
                          ("trigger_mode", "trigger-mode"), ("channel", "channel-number"),
                          ("frame_count", "frame-count")):
            value, value2, err = c_u32(0), c_u32(0), c_i32(0)
            ident = _names.capability(cap)[0]
            if self._dll.DEV_GetDeviceCaps(self.device_number, 0, ident, 0, byref(value), byref(value2), byref(err)) \
                    and err.value == 1:
                settings[name] = value.value
                if cap == "trigger-mode":
                    settings["trigger_parameter"] = value2.value
        return settings

    # -- recordings ---------------------------------------------------------------

    def record(self, mode="record", trigger=None, segment_length=None, segments=None, trigger_after=0.0,
               timeout=None, progress=None):
        """Arms a recording and waits until the camera has recorded.

        ``mode`` is the recording state: "ready" (2), "ready-record" (4,
        entered through 2 as the camera requires) or "record" (8).
        ``trigger`` is a name of :data:`quorin.recording.TRIGGERS` or a code,
        alone or as (trigger, parameter); ``segment_length`` and
        ``segments`` set the trigger counts of the segmented codes first.
        A virtual camera is triggered ``trigger_after`` seconds after it is
        armed (others take their trigger from outside). The call returns
        once the camera leaves the recording state by itself, or
        ``timeout`` seconds have passed; the camera is then back in live
        mode, also when the wait is interrupted. ``progress(recorded,
        length, seconds)`` is called while waiting (recorded and length are
        None for cameras other than virtual ones). Returns the frames
        recorded (virtual cameras) or None.
        """
        state = _recording.mode_code(mode)
        if (segment_length is None) != (segments is None):
            raise ValueError("segment_length and segments go together")
        if self.virtual is None and trigger_after:
            raise ValueError("trigger_after triggers virtual cameras only")
        with self._lock:
            if segment_length is not None:
                self.set("trigger-counts", (int(segment_length), int(segments)))
            if trigger is not None:
                self.set("trigger-mode", _recording.trigger_code(trigger))
            try:
                if state == 4:
                    self.set("camera-mode", 2)
                self.set("camera-mode", state)
                self._await_recording(trigger_after, timeout, progress)
            finally:
                self.set("camera-mode", MODE_LIVE)
            return self.virtual.recording()[0] if self.virtual is not None else None

    def _await_recording(self, trigger_after, timeout, progress):
        start = time.monotonic()
        triggered = self.virtual is None
        while True:
            elapsed = time.monotonic() - start
            if timeout is not None and elapsed >= timeout:
                return
            if not triggered and elapsed >= trigger_after:
                self.virtual.trigger()
                triggered = True
            mode = self.get("camera-mode")
            recorded = length = None
            if self.virtual is not None:
                recorded, length, ended = self.virtual.recording()
                if ended:
                    return
            if progress is not None:
                progress(recorded, length, elapsed)
            if mode not in (2, 4, 8):
                return
            time.sleep(0.02)

    def _stamps_of(self, numbers):
        stamps = np.zeros(len(numbers), TIME_STAMP_DTYPE)
        i = 0
        while i < len(numbers):  # one read per run of consecutive frames
            j = i + 1
            while j < len(numbers) and numbers[j] == numbers[j - 1] + 1 and j - i < MAX_FRAMES_PER_READ:
                j += 1
            stamps[i:j] = self.time_stamps(numbers[i], j - i)
            i = j
        return stamps

    # -- device data --------------------------------------------------------------

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


def _load_driver(path):
    try:
        dll = ctypes.CDLL(str(path))
    except OSError as e:
        raise DriverError("cannot load the link driver %s: %s" % (path, e)) from None
    try:
        entry = dll.quorin_interface
    except AttributeError:
        raise DriverError("%s does not export quorin_interface()" % path) from None
    entry.restype = ctypes.POINTER(InterfaceTable)
    entry.argtypes = []
    table = entry()
    if not table:
        raise DriverError("quorin_interface() of %s returned no table" % path)
    return dll, table


def open(virtual=None, *, driver=None, host_arg=None, link_type=None, firmware=None, camera_number=None,
         record_frames=None, sensor_kind=None, defects=None, library=None):
    """Opens a camera and returns a :class:`Camera` (a context manager).

    Either a virtual camera: a :class:`~quorin.VirtualCamera` created
    beforehand (to inject faults into the open, say; the camera takes it
    over and destroys it at close), or ``virtual="k5"`` or ``"k5c"`` with the
    options of its configuration: ``link_type`` (2, 3, 4 or any other code; 7 by
    default, a plain send/receive link), ``firmware``, ``camera_number``,
    ``record_frames``, ``sensor_kind``, ``defects`` ((column, row) pixels
    flagged on its calibration image) and ``host_arg`` (0 chooses one);

    or a host link driver, ``driver="/path/lib.so"``: a shared library
    exporting ``const InterfaceTable *quorin_interface(void)``, opened with
    ``host_arg`` (0 by default).

    ``library`` is a :class:`Library`, or a folder or file to load QUORIN
    from (see :func:`quorin.library`).
    """
    lib = library if isinstance(library, Library) else _default_library(library)
    if (virtual is None) == (driver is None):
        raise ValueError("give either virtual='k5' / 'k5c' or driver='/path/to/driver.so'")
    vcam_options = dict(firmwareVersion=firmware, cameraNumber=camera_number, recordFrames=record_frames,
                        sensorKind=sensor_kind)
    if driver is not None and (link_type is not None or defects or any(v is not None for v in vcam_options.values())):
        raise TypeError("link_type, firmware, camera_number, record_frames, sensor_kind and defects "
                        "configure virtual cameras only")
    lib.ensure_initialised()
    virtual_camera = dll = None
    if isinstance(virtual, VirtualCamera):
        if link_type is not None or defects or host_arg is not None or \
                any(v is not None for v in vcam_options.values()):
            raise TypeError("a VirtualCamera given to open() is already configured")
        virtual_camera = virtual
        table, arg = virtual_camera.interface, virtual_camera.host_arg
    elif virtual is not None:
        # As a camera does (and as the quorin tool's virtual cameras), it
        # takes only frame rates and sizes its frame time allows.
        virtual_camera = VirtualCamera(virtual, DEFAULT_LINK_TYPE if link_type is None else link_type,
                                       defects=defects, library=lib, hostArg=host_arg, frameTimeLimits=1,
                                       **vcam_options)
        table, arg = virtual_camera.interface, virtual_camera.host_arg
    else:
        dll, table = _load_driver(driver)
        arg = 0 if host_arg is None else int(host_arg)

    device_no, err = c_u32(0xFFFFFFFF), c_i32(0)
    with lib.lock:
        ok = lib.dll.DEV_OpenDevice(table.contents.type, ctypes.cast(table, ctypes.c_void_p), arg,
                                    byref(device_no), byref(err))
        if ok and err.value != 1:
            # The slot is taken but the camera's start-up failed: give it back.
            lib.dll.DEV_CloseDevice(device_no.value, byref(c_i32(0)))
    if not ok or err.value != 1:
        if virtual_camera is not None:
            virtual_camera.destroy()
        raise QuorinError(err.value, "DEV_OpenDevice", None if not ok else "the camera's start-up failed")
    try:
        return Camera(lib, device_no.value, virtual=virtual_camera, driver=dll)
    except BaseException:
        with lib.lock:
            lib.dll.DEV_CloseDevice(device_no.value, byref(c_i32(0)))
        if virtual_camera is not None:
            virtual_camera.destroy()
        raise
