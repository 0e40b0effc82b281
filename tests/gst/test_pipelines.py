"""quorinsrc (from GST_PLUGIN_PATH) in real pipelines: gst-launch-1.0 to PNG and VP8 files, an appsink from Python,
autovideosink and the tool's view under Xvfb (the screenshot shows the scene and the rate); gst-inspect-1.0 and
docs/gstreamer.md document every property."""
import os
import re
import shlex
import signal
import subprocess
import time
from pathlib import Path

import gi
import numpy as np
import pytest

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
from gi.repository import Gst, GstApp  # noqa: E402,F401 (GstApp gives appsink its methods)

Gst.init(None)
SCREEN = (1100, 1280)
# The scene's colour bars, left to right, as (red, green, blue) switched on.
BARS = [(1, 1, 1), (1, 1, 0), (0, 1, 1), (0, 1, 0), (1, 0, 1), (1, 0, 0), (0, 0, 1), (0, 0, 0)]


def launch(description, **env):
    done = subprocess.run(["gst-launch-1.0", "-q", *shlex.split(description)], capture_output=True, text=True,
                          timeout=120, env={**os.environ, **env})
    assert done.returncode == 0, done.stdout + done.stderr


def pull(description):
    """Runs a pipeline with "appsink name=out" to its end: its buffers as (pts, offset, bytes) and its caps."""
    pipeline = Gst.parse_launch(description)
    sink = pipeline.get_by_name("out")
    pipeline.set_state(Gst.State.PLAYING)
    frames, caps = [], None
    while (sample := sink.try_pull_sample(20 * Gst.SECOND)) is not None:
        buffer, caps = sample.get_buffer(), sample.get_caps().get_structure(0)
        frames.append((buffer.pts, buffer.offset, buffer.extract_dup(0, buffer.get_size())))
    error = pipeline.get_bus().pop_filtered(Gst.MessageType.ERROR)
    pipeline.set_state(Gst.State.NULL)
    assert error is None, error.parse_error()[0].message
    return frames, caps


def screenshot(display):
    xwd = subprocess.run(["xwd", "-root", "-silent", "-display", display], capture_output=True, check=True).stdout
    rgb = subprocess.run(["/usr/bin/convert", "xwd:-", "-depth", "8", "rgb:-"], input=xwd, capture_output=True,
                         check=True).stdout
    return np.frombuffer(rgb, np.uint8).reshape(*SCREEN, 3)


@pytest.fixture(scope="module")
def display():
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0", "%dx%dx24" % SCREEN[::-1],
                             "-nolisten", "tcp", "-noreset"], stdout=subprocess.PIPE)
    name = ":" + xvfb.stdout.readline().decode().strip()
    # A busy server takes clients a while after naming its display; -noreset
    # keeps it from starting over (and refusing clients) when one leaves.
    for _ in range(100):
        if subprocess.run(["xwd", "-root", "-silent", "-display", name], capture_output=True).returncode == 0:
            break
        time.sleep(0.1)
    yield name
    xvfb.terminate()
    xvfb.wait()


def test_inspect_and_the_guide_document_every_property():
    shown = subprocess.run(["gst-inspect-1.0", "quorinsrc"], capture_output=True, text=True, check=True).stdout
    guide = (Path(os.environ["QUORIN_SOURCE_DIR"]) / "docs" / "gstreamer.md").read_text()
    own = [p.name for p in Gst.ElementFactory.make("quorinsrc").list_properties() if p.owner_type.name == "QuorinSrc"]
    assert len(own) == 9
    for name in own + ["num-buffers"]:
        assert re.search(rf"^  {name} +: \w", shown, re.M), name
        assert f"`{name}`" in guide, name


def test_recording_to_numbered_png_files(tmp_path):
    launch(f"quorinsrc source=recording frames=1-100 ! videoconvert ! pngenc ! multifilesink "
           f"location={tmp_path}/frame_%03d.png")
    files = sorted(tmp_path.glob("frame_*.png"))
    assert len(files) == 100
    assert files[0].read_bytes()[16:24] == (1024).to_bytes(4, "big") * 2  # the PNG's width and height


def test_recording_to_a_vp8_file_keeps_the_recording_rate(tmp_path):
    clip = tmp_path / "clip.webm"
    launch(f"quorinsrc source=recording frames=1-30 settings=resolution=320x240 ! videoconvert ! "
           f"vp8enc deadline=1 ! webmmux ! filesink location={clip}")
    frames, caps = pull(f"filesrc location={clip} ! matroskademux ! vp8dec ! appsink name=out sync=false")
    assert len(frames) == 30 and caps.get_value("width") == 320 and caps.get_value("height") == 240
    assert abs(frames[-1][0] - 29 * Gst.MSECOND) <= Gst.MSECOND  # 1000 frames per second


def test_appsink_driven_from_python():
    frames, caps = pull("quorinsrc camera=virtual:k5 link=7 num-buffers=3 ! appsink name=out sync=false")
    assert caps.get_value("format") == "GRAY8" and [offset for _, offset, _ in frames] == [0, 1, 2]
    picture = np.frombuffer(frames[0][2], np.uint8).reshape(caps.get_value("height"), caps.get_value("width"))
    assert picture[:256].max() > 200 and picture[:256, -100:].max() < 50  # white bar to the left, black to the right


def test_autovideosink_window(display):
    launch("quorinsrc link=7 num-buffers=30 settings=resolution=320x240 ! videoconvert ! autovideosink",
           DISPLAY=display)


def test_view_shows_the_scene_and_the_rate(display):
    view = subprocess.Popen([os.environ["QUORIN_CLI"], "--link", "7", "view"], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, env={**os.environ, "DISPLAY": display})
    try:
        for _ in range(30):
            time.sleep(1)
            shot = screenshot(display)
            # The window stands at the top left, the picture unscaled; the
            # rate is written in white on its bottom left once measured.
            bars = [tuple(int(c > 128) for c in shot[128, 64 + 128 * i]) for i in range(8)]
            written = (shot[900:1020, :400].min(axis=2) > 235).sum()
            if view.poll() is not None or (bars == BARS and written > 200):
                break
        assert view.poll() is None, view.communicate()[1]
        assert bars == BARS and written > 200, (bars, written)
    finally:
        view.send_signal(signal.SIGINT)
        out, err = view.communicate(timeout=30)
    assert view.returncode == 130, err
    assert re.search(r"viewed \d+ frames", out)
