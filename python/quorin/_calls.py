"""What the parts of a camera share: the C types of the calls and their limits."""

import ctypes

c_u32, c_i32 = ctypes.c_uint32, ctypes.c_int32
byref = ctypes.byref

MAX_LIST_ENTRIES = 1024
MAX_FRAMES_PER_READ = 2048  # per-frame data ids read at most this many records per call


def depth(bits):
    """The transfer depth, 8 or 16; anything else is refused."""
    if bits not in (8, 16) or isinstance(bits, bool):
        raise ValueError("bits must be 8 or 16, not %r" % (bits,))
    return bits
