"""Recordings through the binding: arming and triggering, the iterator over
recorded frames, HDF5 files like the tool's, pictures written in place, and
the names and version shared with the tool and the header."""

import os
import re
import subprocess
import tracemalloc

import numpy as np
import pytest

import quorin

from conftest import HEADER, open_virtual

TOOL = os.path.join(os.environ.get("QUORIN_LIBRARY_DIR", ""), "quorin")
SMALL = (256, 128)  # a picture small enough for 2000 frames per second


@pytest.fixture(scope="module")
def cam(lib):
    with open_virtual("k5c") as cam:
        cam.set("resolution", SMALL)
        cam.set("frame-rate", 2000)
        yield cam


def run_tool(*args, cwd):
    return subprocess.run([TOOL, *args], cwd=cwd, capture_output=True, text=True, check=True).stdout


def test_version_and_names_agree_with_the_header_and_the_tool(tmp_path):
    assert re.search(r'#define QUORIN_VERSION_STRING "%s"' % re.escape(quorin.__version__), HEADER.read_text())
    if not os.path.exists(TOOL):
        pytest.skip("the quorin tool is not built")
    assert run_tool("--version", cwd=tmp_path).startswith("quorin %s " % quorin.__version__)
    shown = run_tool("record", "--help", cwd=tmp_path) + run_tool("set", "--help", cwd=tmp_path)
    for name in list(quorin.TRIGGERS) + list(quorin.RECORDING_MODES):
        assert name in shown


def test_record_then_iterate_frame_by_frame(cam):
    # A virtual camera records in real time at its rate, from the host's clock.
    assert cam.record(trigger=("frames", 12), trigger_after=0.05) == 12
    assert cam.get("camera-mode") == quorin.MODE_LIVE
    block, records = cam.download(range(1, 13), bits=16, time_stamps=True)
    seen = []
    for stamp, frame in cam.frames(range(1, 13), bits=16):
        assert stamp.dtype == quorin.FRAME_STAMP_DTYPE and frame.shape == (128, 256, 3)
        assert np.array_equal(frame, block[stamp["frame"] - 1])
        seen.append(stamp)
    seen = np.array(seen)
    assert seen["frame"].tolist() == list(range(1, 13))
    assert np.allclose(seen["seconds"], np.arange(12) * 0.0005)
    assert np.array_equal(seen["microsecond"], records["microsecond"])
    # Broken off, the iteration still returns the camera to live mode.
    for _ in cam.frames([1, 2]):
        break
    assert cam.get("camera-mode") == quorin.MODE_LIVE
    with pytest.raises(ValueError, match="outside the recording"):
        cam.frames([0])
    with pytest.raises(ValueError, match="go together"):
        cam.record(segments=2)


def test_hdf5_file_is_the_tools(cam, tmp_path):
    h5py = pytest.importorskip("h5py")
    path = cam.download(range(3, 9), bits=16, to=tmp_path / "mine.h5")
    with pytest.raises(FileExistsError):
        cam.download([3], to=path)
    frames = cam.download(range(3, 9), bits=16)
    with h5py.File(path, "r") as f:
        assert np.array_equal(f["frames"][:], frames)
        assert f["frames"].chunks == (1, 128, 256, 3)
        assert f["frame_number"][:].tolist() == list(range(3, 9))
        assert f.attrs["frame_rate"] == 2000 and f.attrs["bits"] == 16
        mine = {name: (f[name].dtype, f[name].shape) for name in f}, set(f.attrs), set(f["frames"].attrs)
    if not os.path.exists(TOOL):
        pytest.skip("the quorin tool is not built")
    run_tool("--camera", "virtual:k5c", "--set", "resolution=256x128", "--set", "frame-rate=2000", "download",
             "--frames", "3-8", "--bits", "16", "-o", "tool.h5", cwd=tmp_path)
    with h5py.File(tmp_path / "tool.h5", "r") as f:
        tools = {name: (f[name].dtype, f[name].shape) for name in f}, set(f.attrs), set(f["frames"].attrs)
    assert mine == tools


def test_pictures_are_written_in_place(cam):
    out = np.zeros((128, 256, 3), np.uint8)
    assert cam.grab(out=out) is out and out.any()
    for wrong in (np.zeros((128, 256, 3), np.uint16), np.zeros((128, 256), np.uint8), out[:, ::2]):
        with pytest.raises(ValueError, match="out must be"):
            cam.grab(out=wrong)
    # A download holds its result and no more than one frame besides.
    frame_bytes = out.nbytes

    def peak(work):
        tracemalloc.start()
        try:
            base = tracemalloc.get_traced_memory()[0]
            result = work()
            return tracemalloc.get_traced_memory()[1] - base, result
        finally:
            tracemalloc.stop()

    held, clip = peak(lambda: cam.download(range(1, 17)))
    assert clip.nbytes == 16 * frame_bytes and held < clip.nbytes + frame_bytes + (1 << 16)
    held, _ = peak(lambda: [None for _, frame in cam.frames(range(1, 17))])
    assert held < 2 * frame_bytes + (1 << 16)  # the frame in hand, and the next one made before it is let go
