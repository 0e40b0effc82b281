"""Recording names and recordings in one HDF5 file.

The recording states and trigger codes carry the names the ``quorin`` tool
gives them (docs/cli.md says what each does as far as the camera family
defines it). :class:`Hdf5Writer` writes the file ``quorin download -o
rec.h5`` writes, frame by frame, with h5py (Debian: ``python3-h5py``)::

    frames        (N, height, width[, 3]) uint8 or uint16, one frame per chunk
    timestamps    (N,) day, hour, minute, second, microsecond, time_code
    frame_number  (N,) uint32, the recorded frame numbers (0: not written)
    seconds       (N,) float64, seconds since the file's first frame

and the camera's settings as attributes of the file.
"""

import os

import numpy as np

# Recording states (capability "camera-mode"), named after how the camera
# reaches them: 2 by command 160, 4 by command 161 from 2, 8 by command 161.
RECORDING_MODES = {"ready": 2, "ready-record": 4, "record": 8}

# Host trigger codes (capability "trigger-mode").
TRIGGERS = {
    "memory": 0,
    "camera": 0x01000000,
    "single": 0x02000000,
    "segments": 0x03000000,
    "frames": 0x04000000,
    "segments-sync": 0x05000000,
    "segments-centre": 0x06000000,
    "segments-offset": 0x07000000,
    "code-8-1": 0x08000001,
    "code-8-2": 0x08000002,
    "code-8-3": 0x08000003,
}

# One frame's time stamp with its frame number and the seconds since the
# first frame of the download, as the iterator and the HDF5 file give them.
FRAME_STAMP_DTYPE = np.dtype([("frame", "<u4"), ("day", "<u2"), ("hour", "u1"), ("minute", "u1"), ("second", "u1"),
                              ("microsecond", "<u4"), ("time_code", "u1"), ("seconds", "<f8")])

# The "timestamps" dataset's records, laid out as the tool writes them.
STORED_STAMP_DTYPE = np.dtype({
    "names": ["day", "hour", "minute", "second", "microsecond", "time_code"],
    "formats": ["<u2", "u1", "u1", "u1", "<u4", "u1"],
    "offsets": [0, 2, 3, 4, 8, 5],
    "itemsize": 12,
})


def mode_code(mode):
    """The camera-mode value of a recording state given by name or number."""
    if isinstance(mode, str):
        try:
            return RECORDING_MODES[mode]
        except KeyError:
            raise ValueError("recording state must be one of %s, not %r" % (", ".join(RECORDING_MODES), mode)) from None
    if mode not in (2, 4, 8) or isinstance(mode, bool):
        raise ValueError("recording state must be 2, 4 or 8, not %r" % (mode,))
    return mode


def trigger_code(trigger):
    """(code, parameter) of a trigger given as a name, a code, or a pair of
    either with its parameter."""
    parameter = 0
    if isinstance(trigger, tuple):
        trigger, parameter = trigger
    if isinstance(trigger, str):
        try:
            trigger = TRIGGERS[trigger]
        except KeyError:
            raise ValueError("trigger must be one of %s or a code, not %r" % (", ".join(TRIGGERS), trigger)) from None
    return int(trigger), int(parameter)


def frame_stamps(frames, time_records, seconds):
    """FRAME_STAMP_DTYPE records of the frames numbered ``frames``, from
    their TIME_STAMP_DTYPE records and their seconds since the first frame."""
    out = np.zeros(len(frames), FRAME_STAMP_DTYPE)
    out["frame"] = frames
    for name in ("day", "hour", "minute", "second", "microsecond", "time_code"):
        out[name] = time_records[name]
    out["seconds"] = seconds
    return out


class Hdf5Writer:
    """One recording in an HDF5 file, written frame by frame.

    Every dataset holds all ``count`` entries from the start, their space
    allocated when the file is made, so that writing a frame changes no
    metadata: after each :meth:`write` (which flushes) the file on disk is
    whole, whatever happens to the process next. :meth:`close` cuts the
    datasets to the frames written. An existing file is refused unless
    ``overwrite``.
    """

    def __init__(self, path, frame_shape, dtype, count, settings, overwrite=False):
        try:
            import h5py
        except ImportError:
            raise ImportError("writing HDF5 files needs h5py (Debian: python3-h5py)") from None
        self._h5py = h5py
        self.path = os.fspath(path)
        self.count = count
        self.written = 0
        self._file = h5py.File(self.path, "w" if overwrite else "w-", libver="earliest")
        try:
            self._frames = self._dataset("frames", (count,) + tuple(frame_shape), dtype, fill=False)
            self._stamps = self._dataset("timestamps", (count,), STORED_STAMP_DTYPE)
            self._numbers = self._dataset("frame_number", (count,), np.dtype("<u4"))
            self._seconds = self._dataset("seconds", (count,), np.dtype("<f8"))
            self._frames.attrs["axes"] = "frame,y,x,rgb" if len(frame_shape) == 3 else "frame,y,x"
            self._frames.attrs.create("significant_bits", 10 if np.dtype(dtype).itemsize == 2 else 8, dtype="<i8")
            self._seconds.attrs["unit"] = "s since the first frame of the file"
            for name, value in settings.items():
                if isinstance(value, str):
                    self._file.attrs[name] = value
                else:
                    self._file.attrs.create(name, int(value), dtype="<i8")
            self._file.flush()
        except BaseException:
            self._file.close()
            raise

    def _dataset(self, name, shape, dtype, fill=True):
        h5py = self._h5py
        dcpl = h5py.h5p.create(h5py.h5p.DATASET_CREATE)
        dcpl.set_alloc_time(h5py.h5d.ALLOC_TIME_EARLY)
        dcpl.set_fill_time(h5py.h5d.FILL_TIME_ALLOC if fill else h5py.h5d.FILL_TIME_NEVER)
        chunks = (1,) + shape[1:] if len(shape) > 1 else (min(4096, max(shape[0], 1)),)
        return self._file.create_dataset(name, shape=shape, maxshape=(None,) + shape[1:], chunks=chunks,
                                         dtype=dtype, dcpl=dcpl)

    def write(self, frame, stamp):
        """Writes the next frame and its FRAME_STAMP_DTYPE stamp, then flushes."""
        i = self.written
        self._frames[i] = frame
        stored = np.zeros((), STORED_STAMP_DTYPE)
        for name in STORED_STAMP_DTYPE.names:
            stored[name] = stamp[name]
        self._stamps[i] = stored
        self._numbers[i] = stamp["frame"]
        self._seconds[i] = stamp["seconds"]
        self._file.flush()
        self.written = i + 1

    def close(self):
        """Cuts the datasets to the frames written and closes the file."""
        if self._file is None:
            return
        try:
            if self.written < self.count:
                for d in (self._frames, self._stamps, self._numbers, self._seconds):
                    d.resize(self.written, axis=0)
        finally:
            self._file.close()
            self._file = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False
