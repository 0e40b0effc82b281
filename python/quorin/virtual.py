"""The virtual camera (libquorin_vcam.so): a software K5 or K5C behind an
InterfaceTable, with its trace and fault injection.

:func:`quorin.open` creates one for ``virtual="k5"`` or ``virtual="k5c"``
and destroys it when the camera is closed; ``Camera.virtual`` gives access
to it while it lives.
"""

import ctypes
import weakref

from ._library import CameraCommand, VcamConfig, VcamTraceEntry, library as default_library

MODELS = {"k5": 0, "k5c": 1}

# Link functions, for call counts and fault injection (VcamCall).
CALLS = {
    "open": 0, "close": 1, "send": 2, "receive": 3, "reset": 4,
    "arm-transfer": 5, "await-transfer": 6, "transact": 7, "transact-data": 8,
}
CALL_NAMES = {v: k for k, v in CALLS.items()}

DEFAULT_LINK_TYPE = 7  # a plain send / receive link, as the quorin tool's virtual cameras

# Option names of quorin.open() and the VcamConfig fields they set.
OPTION_FIELDS = {
    "firmware": "firmwareVersion", "camera_number": "cameraNumber", "record_frames": "recordFrames",
    "sensor_kind": "sensorKind", "host_arg": "hostArg", "link_delay_ms": "linkDelayMs",
    "frame_time_limits": "frameTimeLimits", "trigger_delay_ms": "triggerDelayMs",
}


def model_code(model):
    """VCAM_K5 / VCAM_K5C for "k5", "k5c" (any case) or 0 / 1."""
    if isinstance(model, str) and model.lower() in MODELS:
        return MODELS[model.lower()]
    if model in (0, 1) and not isinstance(model, bool):
        return model
    raise ValueError("virtual camera model must be 'k5' or 'k5c', not %r" % (model,))


def _call_code(call):
    if isinstance(call, str):
        try:
            return CALLS[call.lower().replace("_", "-")]
        except KeyError:
            raise ValueError("unknown link call %r; one of %s" % (call, ", ".join(CALLS))) from None
    return int(call)


class VirtualCamera:
    """One virtual camera. Create it, hand :attr:`interface` and
    :attr:`host_arg` to DEV_OpenDevice, destroy it after the device is closed.

    Keyword arguments adjust :class:`VcamConfig` after its defaults: the
    options of :func:`quorin.open` (``firmware``, ``camera_number``,
    ``record_frames``, ``sensor_kind``, ``host_arg``, ``link_delay_ms``) or
    any field of the structure by its C name (``modelCode=5``), plus
    ``defects``, a sequence of (column, row) pixels flagged on the
    calibration image. ``library`` is the :class:`~quorin.Library` whose
    virtual camera library to use (the process's by default).
    """

    def __init__(self, model="k5", link_type=DEFAULT_LINK_TYPE, defects=None, library=None, **fields):
        self._vcam = (library or default_library()).vcam
        self.model = model_code(model)
        cfg = VcamConfig()
        self._vcam.vcam_default_config(ctypes.byref(cfg), self.model, int(link_type))
        names = {f[0] for f in VcamConfig._fields_}
        for key, value in fields.items():
            key = OPTION_FIELDS.get(key, key)
            if key not in names or key in ("defects", "defectCount"):
                raise TypeError("unknown virtual camera setting %r" % key)
            if value is not None:
                setattr(cfg, key, value)
        keep = None
        if defects:
            words = [(int(x) << 16) | int(y) for x, y in defects]
            keep = (ctypes.c_uint32 * len(words))(*words)
            cfg.defects = ctypes.cast(keep, ctypes.POINTER(ctypes.c_uint32))
            cfg.defectCount = len(words)
        handle = self._vcam.vcam_create(ctypes.byref(cfg))  # copies the defects
        if not handle:
            raise ValueError("the virtual camera could not be created (host argument %d taken?)" % cfg.hostArg)
        self.handle = handle
        # destroyed when collected, should nobody destroy it
        self._finalizer = weakref.finalize(self, self._vcam.vcam_destroy, handle)

    # -- life ---------------------------------------------------------------

    def destroy(self):
        """Destroys the camera; its link then fails with VCAM_ERR_NO_LINK."""
        if self.handle:
            self.handle = None
            self._finalizer()

    @property
    def alive(self):
        return bool(self.handle)

    def _h(self):
        if not self.handle:
            raise ValueError("the virtual camera has been destroyed")
        return self.handle

    @property
    def interface(self):
        """Pointer to the camera's InterfaceTable."""
        return self._vcam.vcam_interface(self._h())

    @property
    def host_arg(self):
        return self._vcam.vcam_host_arg(self._h())

    @property
    def config(self):
        cfg = VcamConfig()
        self._vcam.vcam_get_config(self._h(), ctypes.byref(cfg))
        return cfg

    def resolution(self):
        """The picture size the camera is set to, (width, height)."""
        word = self._vcam.vcam_resolution(self._h())
        return (word >> 16, word & 0xFFFF)

    # -- recording ------------------------------------------------------------

    def trigger(self):
        """The trigger input: a camera waiting in a recording state starts to
        record. Returns whether it did."""
        return bool(self._vcam.vcam_trigger(self._h()))

    def recording(self):
        """(frames recorded, frames the recording will have, ended) of the
        present or last recording."""
        recorded, length = ctypes.c_uint32(0), ctypes.c_uint32(0)
        state = self._vcam.vcam_recording(self._h(), ctypes.byref(recorded), ctypes.byref(length))
        return recorded.value, length.value, state == 3

    # -- trace ----------------------------------------------------------------

    def commands(self):
        """Every command the camera decoded since creation or the last clear,
        as (code, p1, p2) tuples, oldest first."""
        total = self._vcam.vcam_commands(self._h(), None, 0)
        buf = (CameraCommand * max(total, 1))()
        got = self._vcam.vcam_commands(self._h(), buf, total)
        return [buf[i].astuple() for i in range(min(got, total))]

    def trace(self):
        """The host calls seen, as VcamTraceEntry structures."""
        out = []
        for i in range(self._vcam.vcam_trace_size(self._h())):
            e = VcamTraceEntry()
            if self._vcam.vcam_trace_entry(self._h(), i, ctypes.byref(e)):
                out.append(e)
        return out

    def call_count(self, call):
        """How many calls of one kind ("receive", "send", ...) were made."""
        return self._vcam.vcam_call_count(self._h(), _call_code(call))

    def clear_trace(self):
        self._vcam.vcam_trace_clear(self._h())

    # -- faults ---------------------------------------------------------------

    def fail_calls(self, call, nth=1, count=1, code=0x7004):
        """Makes ``count`` calls of one kind fail with ``code``, starting with
        the nth from now; count 0 fails every call from the nth on."""
        self._vcam.vcam_fail_calls(self._h(), _call_code(call), nth, count, code)

    def override_reply_code(self, command, reply_code):
        """Answers ``command`` with ``reply_code``; 0 removes the override."""
        self._vcam.vcam_override_reply_code(self._h(), command, reply_code)

    def set_link_delay(self, milliseconds):
        self._vcam.vcam_set_link_delay(self._h(), milliseconds)

    def clear_faults(self):
        self._vcam.vcam_clear_faults(self._h())

    def lut_upload(self, limit=1 << 16):
        """Bytes of the last look-up table upload."""
        buf = (ctypes.c_uint8 * limit)()
        n = self._vcam.vcam_lut_upload(self._h(), buf, limit)
        return bytes(buf[:min(n, limit)])
