"""Cameras: opening, capabilities, lists, pictures and device data."""

import ctypes
import threading
import warnings
import weakref

import numpy as np

from . import names as _names
from ._calls import MAX_LIST_ENTRIES, byref, c_i32, c_u32, depth as _depth
from ._library import InterfaceTable, Library, library as _default_library
from .device_data import DeviceData
from .errors import DriverError, QuorinError
from .playback import MODE_LIVE, MODE_PLAYBACK, RecordedFrames
from .virtual import DEFAULT_LINK_TYPE, VirtualCamera

__all__ = ["MODE_LIVE", "MODE_PLAYBACK", "Camera", "open"]


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


class Camera(RecordedFrames, DeviceData):
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
