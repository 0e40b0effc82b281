"""Recorded frames: playback, transfers and downloads of recorded frames,
recordings started and awaited, and their time stamps (mixed into
:class:`quorin.Camera`)."""

import contextlib
import time

import numpy as np

from . import names as _names
from . import recording as _recording
from ._calls import MAX_FRAMES_PER_READ, byref, c_i32, c_u32, depth as _depth
from .errors import QuorinError
from .records import TIME_STAMP_DTYPE
from .records import time_stamp_microseconds as _stamp_microseconds

MODE_LIVE = 0
MODE_PLAYBACK = 1


class RecordedFrames:
    """The recorded-frame half of a camera; needs the camera's ``_lock``,
    ``_dll``, ``device_number``, ``_invoke``, ``get``, ``set`` and
    ``_transfer``."""

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
