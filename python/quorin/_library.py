"""Finding and loading libquorin.so and libquorin_vcam.so.

The libraries are looked for, in this order:

1. the explicit path given to :func:`library` / :class:`Library` (a folder,
   or the path of libquorin.so itself);
2. the folder named by the environment variable ``QUORIN_LIBRARY_DIR``;
3. the library folders of the prefix this package is installed under
   (``<prefix>/lib/python3/dist-packages/quorin`` gives ``<prefix>/lib``,
   ``<prefix>/lib/<multiarch>`` and ``<prefix>/lib64``);
4. the system loader (``ctypes.util.find_library`` and the plain soname).

The virtual camera library is looked for beside the QUORIN library first,
then in the same places.
"""

import ctypes
import ctypes.util
import os
import sysconfig
import threading

from .errors import LibraryNotFound, QuorinError

c_u8, c_u16, c_u32, c_i32, c_u64 = ctypes.c_uint8, ctypes.c_uint16, ctypes.c_uint32, ctypes.c_int32, ctypes.c_uint64
P = ctypes.POINTER

ENV_VARIABLE = "QUORIN_LIBRARY_DIR"

# File names tried in a folder, the versioned soname first.
CORE_NAMES = ("libquorin.so.0", "libquorin.so")
VCAM_NAMES = ("libquorin_vcam.so.0", "libquorin_vcam.so")
_SYSTEM_STEMS = {CORE_NAMES: "quorin", VCAM_NAMES: "quorin_vcam"}

PACKAGE_DIR = os.path.dirname(os.path.abspath(__file__))


# ---------------------------------------------------------------------------
# Shared C types
# ---------------------------------------------------------------------------

class InterfaceTable(ctypes.Structure):
    """The host's 200-byte interface-driver descriptor (quorin.h)."""
    _fields_ = [
        ("type", c_u32),
        ("hostWord4", c_u32),
        ("inUseWord", c_u64),
        ("refCount", c_i32),
        ("hostBytes20", c_u8 * 36),
        ("Open", ctypes.c_void_p),
        ("Close", ctypes.c_void_p),
        ("Send", ctypes.c_void_p),
        ("Receive", ctypes.c_void_p),
        ("Reset", ctypes.c_void_p),
        ("hostPointers96", ctypes.c_void_p * 2),
        ("armTransfer", ctypes.c_void_p),
        ("awaitTransfer", ctypes.c_void_p),
        ("Transact", ctypes.c_void_p),
        ("TransactData", ctypes.c_void_p),
        ("hostBytes144", c_u8 * 56),
    ]


class CameraCommand(ctypes.Structure):
    """One request to the camera: a command code and two parameters."""
    _fields_ = [("code", c_u16), ("p1", c_u32), ("p2", c_u32)]

    def __repr__(self):
        return "CameraCommand(%d, %d, %d)" % (self.code, self.p1, self.p2)

    def astuple(self):
        return (self.code, self.p1, self.p2)


class VcamConfig(ctypes.Structure):
    """What a virtual camera is (vcam.h); fill with vcam_default_config."""
    _fields_ = [
        ("model", c_u32),
        ("linkType", c_u32),
        ("hostArg", c_u32),
        ("modelCode", c_u32),
        ("sensorKind", c_u32),
        ("firmwareVersion", c_u32),
        ("cameraNumber", c_u32),
        ("powerMode", c_u32),
        ("linkDelayMs", c_u32),
        ("colourMatrix", (c_u16 * 3) * 3),
        ("modeTable", (c_u32 * 6) * 20),
        ("extraWords", c_u32 * 5),
        ("modeWord79", c_u32),
        ("settlePolls", c_u32),
        ("extClockHz", c_u32),
        ("mode69", c_u32),
        ("value69", c_u32),
        ("cameraEntries", (c_u32 * 2) * 10),
        ("recordFrames", c_u32),
        ("defectCount", c_u32),
        ("defects", P(c_u32)),
        ("frameTimeLimits", c_u32),
        ("triggerDelayMs", c_u32),
    ]


class VcamTraceEntry(ctypes.Structure):
    """One host call seen by a virtual camera."""
    _fields_ = [
        ("call", c_u32),
        ("length", c_u32),
        ("result", c_i32),
        ("err", c_i32),
        ("hasCommand", c_u32),
        ("command", CameraCommand),
    ]


# ---------------------------------------------------------------------------
# Prototypes
# ---------------------------------------------------------------------------

_ERR = P(c_i32)
_VP = ctypes.c_void_p

CORE_PROTOTYPES = {
    "DEV_Init": (c_i32, [_ERR]),
    "DEV_Exit": (c_i32, [_ERR]),
    "DEV_OpenDevice": (c_i32, [c_u32, _VP, c_u32, P(c_u32), _ERR]),
    "DEV_CloseDevice": (c_i32, [c_u32, _ERR]),
    "DEV_GetDeviceCaps": (c_i32, [c_u32, c_u64, c_u32, c_u32, P(c_u32), P(c_u32), _ERR]),
    "DEV_GetDeviceName": (c_i32, [c_u32, c_u32, ctypes.c_char_p, _ERR]),
    "DEV_SetDeviceCaps": (c_i32, [c_u32, c_u64, c_u32, c_u32, c_u32, c_u32, _ERR]),
    "DEV_GetList": (c_i32, [c_u32, c_u64, c_u32, c_u32, P(c_u32), P(c_u32), _ERR]),
    "DEV_GetData": (c_u32, [c_u32, c_u32, c_u32, c_u32, c_u32, _VP, P(c_u32), _ERR]),
    "DEV_SetData": (c_u32, [c_u32, c_u32, c_u32, c_u32, c_u32, _VP, c_u64, _ERR]),
    "DEV_SetList": (c_u32, [c_u32, c_u64, c_u32, c_u64, P(c_u32), c_u32, P(c_u32), _ERR]),
    "DEV_TransferLiveImage": (c_i32, [c_u32, c_u64, c_i32, _VP, _ERR]),
    "DEV_TransferMemImage": (c_i32, [c_u32, c_u64, c_u32, c_i32, _VP, _ERR]),
    "DEV_TransferMemImageStart": (c_i32, [c_u32, c_u64, c_u32, c_u64, c_u64, _ERR]),
    "DEV_TransferMemImageEnd": (c_i32, [c_u32, c_u64, c_i32, _VP, _ERR]),
    # The one export whose status word is unsigned.
    "DEV_TransferLiveImageCache": (c_i32, [c_u32, c_u64, _VP, P(c_u32)]),
}

VCAM_PROTOTYPES = {
    "vcam_lut_upload": (ctypes.c_size_t, [_VP, P(c_u8), ctypes.c_size_t]),
    "vcam_resolution": (c_u32, [_VP]),
    "vcam_trigger": (ctypes.c_int, [_VP]),
    "vcam_recording": (ctypes.c_int, [_VP, P(c_u32), P(c_u32)]),
    "vcam_default_config": (None, [P(VcamConfig), c_u32, c_u32]),
    "vcam_create": (_VP, [P(VcamConfig)]),
    "vcam_destroy": (None, [_VP]),
    "vcam_interface": (P(InterfaceTable), [_VP]),
    "vcam_host_arg": (c_u32, [_VP]),
    "vcam_get_config": (None, [_VP, P(VcamConfig)]),
    "vcam_trace_size": (ctypes.c_size_t, [_VP]),
    "vcam_trace_entry": (ctypes.c_int, [_VP, ctypes.c_size_t, P(VcamTraceEntry)]),
    "vcam_call_count": (c_u32, [_VP, c_u32]),
    "vcam_commands": (ctypes.c_size_t, [_VP, P(CameraCommand), ctypes.c_size_t]),
    "vcam_trace_clear": (None, [_VP]),
    "vcam_fail_calls": (None, [_VP, c_u32, c_u32, c_u32, c_i32]),
    "vcam_override_reply_code": (None, [_VP, c_u16, c_u16]),
    "vcam_set_link_delay": (None, [_VP, c_u32]),
    "vcam_clear_faults": (None, [_VP]),
}


def declare(dll, prototypes):
    """Sets restype and argtypes of every function in ``prototypes`` on ``dll``."""
    for name, (restype, argtypes) in prototypes.items():
        fn = getattr(dll, name)
        fn.restype = restype
        fn.argtypes = argtypes
    return dll


# ---------------------------------------------------------------------------
# Lookup
# ---------------------------------------------------------------------------

def prefix_library_dirs(package_dir=PACKAGE_DIR):
    """Library folders of the prefix an installed package lives under.

    ``<prefix>/lib/python3/dist-packages/quorin`` (or ``.../python3.11/
    site-packages/quorin``, or ``lib64``) gives ``<prefix>/lib``,
    ``<prefix>/lib/<multiarch>`` and ``<prefix>/lib64``. A package that does
    not sit in such a tree gives nothing.
    """
    parts = os.path.normpath(os.path.abspath(package_dir)).split(os.sep)
    # .../<libdir>/<pythonX>/<site-or-dist-packages>/quorin
    if len(parts) < 5 or not parts[-3].startswith("python") or not parts[-2].endswith("-packages"):
        return []
    prefix = os.sep.join(parts[:-4]) or os.sep
    libdir = os.sep.join(parts[:-3])
    multiarch = sysconfig.get_config_var("MULTIARCH")
    dirs = [libdir]
    for d in (os.path.join(prefix, "lib", multiarch) if multiarch else None,
              os.path.join(prefix, "lib"), os.path.join(prefix, "lib64")):
        if d and d not in dirs:
            dirs.append(d)
    return dirs


def _in_folder(folder, names):
    for name in names:
        path = os.path.join(folder, name)
        if os.path.isfile(path):
            return path
    return None


def locate(names=CORE_NAMES, explicit=None, environ=None, package_dir=PACKAGE_DIR, system=True):
    """Returns the path (or soname) to load for one of the libraries.

    ``names`` is :data:`CORE_NAMES` or :data:`VCAM_NAMES`. ``explicit`` is a
    folder or a file; when given it must hold the library (nothing else is
    tried). Raises :class:`LibraryNotFound` listing what was tried.
    """
    environ = os.environ if environ is None else environ
    tried = []
    if explicit is not None:
        explicit = os.fspath(explicit)
        if os.path.isdir(explicit):
            found = _in_folder(explicit, names)
            if found:
                return found
        elif os.path.isfile(explicit):
            return explicit
        tried.append(explicit)
        raise LibraryNotFound(names[0], tried)

    folders = []
    env_dir = environ.get(ENV_VARIABLE)
    if env_dir:
        folders.append(env_dir)
    folders.extend(prefix_library_dirs(package_dir))
    for folder in folders:
        found = _in_folder(folder, names)
        if found:
            return found
        tried.append(folder)

    if system:
        found = ctypes.util.find_library(_SYSTEM_STEMS.get(tuple(names), names[0]))
        if found:
            return found
        # The loader's own search (LD_LIBRARY_PATH, the cache, the run path).
        try:
            ctypes.CDLL(names[0])
            return names[0]
        except OSError:
            tried.append("system loader")
    raise LibraryNotFound(names[0], tried)


# ---------------------------------------------------------------------------
# The loaded libraries
# ---------------------------------------------------------------------------

class Library:
    """The QUORIN library of this process, and the virtual camera library.

    ``DEV_Init`` runs once, at the first camera opened. The library takes no
    locks, so opening and closing are serialised here; calls for one camera
    are serialised by that camera.
    """

    def __init__(self, path=None):
        self.explicit = path
        self.path = locate(CORE_NAMES, explicit=path)
        self.dll = declare(ctypes.CDLL(self.path), CORE_PROTOTYPES)
        self._vcam = None
        self.vcam_path = None
        self._initialised = False
        self.lock = threading.RLock()

    def __repr__(self):
        return "<quorin.Library %s>" % self.path

    @property
    def vcam(self):
        """The virtual camera library, loaded at first use."""
        with self.lock:
            if self._vcam is None:
                beside = os.path.dirname(self.path) if os.path.sep in self.path else None
                path = _in_folder(beside, VCAM_NAMES) if beside else None
                if path is None:
                    path = locate(VCAM_NAMES)
                # RTLD_GLOBAL is not needed: vcam only uses its own symbols.
                self._vcam = declare(ctypes.CDLL(path), VCAM_PROTOTYPES)
                self.vcam_path = path
            return self._vcam

    def ensure_initialised(self):
        """Runs DEV_Init the first time a camera is opened."""
        with self.lock:
            if not self._initialised:
                err = c_i32(0)
                if not self.dll.DEV_Init(ctypes.byref(err)):
                    raise QuorinError(err.value, "DEV_Init")
                self._initialised = True


_default = None
_default_lock = threading.Lock()


def library(path=None):
    """The process-wide :class:`Library`, loaded at the first call.

    ``path`` (a folder or the library file) is used by the first call only;
    a later call naming a different library raises ValueError, since one
    process holds one library state.
    """
    global _default
    with _default_lock:
        if _default is None:
            _default = Library(path)
        elif path is not None and os.path.realpath(locate(CORE_NAMES, explicit=path)) != \
                os.path.realpath(_default.path):
            raise ValueError("QUORIN is already loaded from %s" % _default.path)
        return _default
