"""Python binding of QUORIN, the device library of the ORBILUX-VELTA K5
(monochrome) and K5C (colour) high-speed cameras.

    import quorin

    with quorin.open(virtual="k5c") as cam:
        cam.set("resolution", (512, 256))
        frame = cam.grab(bits=8)                      # (256, 512, 3) uint8, R, G, B
        clip = cam.download(frames=range(1, 11), bits=16)
        cam.record(trigger=("frames", 500))
        for stamp, frame in cam.frames(range(1, 501)):  # one frame at a time
            ...
        cam.download(range(1, 501), to="rec.h5")

The binding loads libquorin.so (and libquorin_vcam.so for virtual cameras)
with ctypes; see :mod:`quorin._library` for where it looks. Failed calls
raise :class:`QuorinError` with the library's ErrorCode.
"""

__version__ = "0.1.0"  # QUORIN_VERSION_STRING of quorin.h; a test keeps them equal

from . import names, recording, records
from ._library import Library, LibraryNotFound, library, locate
from .camera import MODE_LIVE, MODE_PLAYBACK, Camera, open
from .errors import ERROR_TABLE, DriverError, QuorinError, error_meaning
from .names import CAPABILITIES, LISTS, ImageOutput
from .recording import FRAME_STAMP_DTYPE, RECORDING_MODES, TRIGGERS
from .records import (CHANNEL_DTYPE, TIME_AND_CHANNELS_DTYPE, TIME_STAMP_DTYPE, FrameChannelRecord,
                      FrameTimeRecord, LutSettings)
from .virtual import VirtualCamera

__all__ = [
    "Camera", "open", "library", "Library", "locate", "LibraryNotFound",
    "QuorinError", "DriverError", "ERROR_TABLE", "error_meaning",
    "names", "records", "CAPABILITIES", "LISTS", "ImageOutput",
    "TIME_STAMP_DTYPE", "CHANNEL_DTYPE", "TIME_AND_CHANNELS_DTYPE",
    "FrameTimeRecord", "FrameChannelRecord", "LutSettings",
    "VirtualCamera", "MODE_LIVE", "MODE_PLAYBACK",
    "recording", "FRAME_STAMP_DTYPE", "RECORDING_MODES", "TRIGGERS", "__version__",
]
