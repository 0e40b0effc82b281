"""Pictures, recordings and device data through the binding.

The virtual camera's scene has eight colour bars across the top quarter of
the sensor (white, yellow, cyan, green, magenta, red, blue, black, 128
columns each), so on a full 1024 x 1024 picture row 128 crosses every bar.
"""

import threading

import numpy as np
import pytest

import quorin

BAR_COLOURS = [(1, 1, 1), (1, 1, 0), (0, 1, 1), (0, 1, 0), (1, 0, 1), (1, 0, 0), (0, 0, 1), (0, 0, 0)]
BAR_CENTRES = [64 + 128 * i for i in range(8)]


def reduce8(image16, shift=2):
    """The library's 8-bit reduction of 16-bit output."""
    return np.minimum(image16 >> shift, 255).astype(np.uint8)


def assert_live(cam):
    assert cam.get("camera-mode") == quorin.MODE_LIVE
    cam.grab()  # live transfers are allowed again


class TestGrab:
    @pytest.mark.parametrize("bits, dtype", [(8, np.uint8), (16, np.uint16)])
    def test_shape_and_type(self, k5, k5c, bits, dtype):
        mono, colour = k5.grab(bits=bits), k5c.grab(bits=bits)
        assert (mono.shape, mono.dtype) == ((1024, 1024), dtype)
        assert (colour.shape, colour.dtype) == ((1024, 1024, 3), dtype)
        assert colour.flags.c_contiguous
        if bits == 16:
            assert colour.max() <= 1023 and mono.max() <= 1023
        with pytest.raises(ValueError):
            k5.grab(bits=12)

    def test_colour_bars_come_out_red_green_blue(self, k5c):
        # after open the library stores blue first; the binding reorders
        for demosaic in (1, 0):  # blue-first and red-first layouts
            k5c.set("image-output", (demosaic, 0, 2))
            image = k5c.grab(bits=8)
            for x, colour in zip(BAR_CENTRES, BAR_COLOURS):
                pixel = image[128, x]
                for channel, lit in enumerate(colour):
                    assert (pixel[channel] > 200) if lit else (pixel[channel] < 30), (demosaic, x, pixel)
        k5c.set("image-output", (1, 0, 2))

    def test_monochrome_bars_follow_their_luminance(self, k5):
        row = k5.grab(bits=16)[128, BAR_CENTRES].astype(int)
        expected = [(77 * r + 151 * g + 28 * b) * 900 // 256 for r, g, b in BAR_COLOURS]
        assert np.all(np.abs(row - expected) <= 12), row

    def test_probe_agrees_with_16_bit_output(self, k5, k5c):
        # The probe answers red, green, blue whatever order the library stores.
        image = k5c.grab(bits=16)
        for x, y in ((704, 128), (832, 128), (448, 130), (3, 900)):
            assert k5c.probe(x, y) == tuple(image[y, x])
        mono = k5.grab(bits=16)
        assert k5.probe(10, 20) == (mono[20, 10],) * 3
        with pytest.raises(quorin.QuorinError) as caught:
            k5.probe(2000, 0)
        assert caught.value.code == 5

    def test_picture_follows_the_resolution(self, k5c):
        try:
            k5c.set("resolution", (512, 256))
            assert k5c.grab(bits=16).shape == (256, 512, 3)
        finally:
            k5c.set("resolution", (1024, 1024))

    def test_raw_bayer_output_is_the_mosaic(self, k5c):
        try:
            k5c.set("image-output", (1, 1, 2))
            mosaic = k5c.grab(bits=16)
            assert mosaic.shape == (1024, 1024)
            red_bar = mosaic[128:132, 640:644]  # red at even row and column
            assert red_bar[0, 0] > 800 and red_bar[0, 1] < 100 and red_bar[1, 1] < 100
        finally:
            k5c.set("image-output", (1, 0, 2))

    def test_live_cache_keeps_the_16_bit_result(self, k5c):
        with pytest.raises(quorin.QuorinError) as caught:
            k5c.live_cache()
        assert caught.value.code == 11
        k5c.set("keep-live-cache", True)
        try:
            eight = k5c.grab(bits=8)
            cache = k5c.live_cache()
            assert cache.dtype == np.uint16 and cache.shape == eight.shape
            assert np.array_equal(reduce8(cache), eight)
        finally:
            k5c.set("keep-live-cache", False)


class TestRecording:
    def test_download_is_deterministic_and_ends_in_live_mode(self, either):
        frames = either.download(frames=[5, 6, 5], bits=16)
        shape = (3, 1024, 1024, 3) if either.is_colour else (3, 1024, 1024)
        assert frames.shape == shape and frames.dtype == np.uint16
        assert np.array_equal(frames[0], frames[2])
        assert not np.array_equal(frames[0], frames[1])  # the scene moves
        assert_live(either)
        again = either.download(frames=range(5, 7), bits=8, stack=False)
        assert isinstance(again, list) and len(again) == 2
        assert np.array_equal(again[0], reduce8(frames[0]))
        assert np.array_equal(again[1], reduce8(frames[1]))

    def test_frames_outside_the_recording_are_refused_before_playback(self, k5):
        recorded = k5.get("frame-count")
        for frames in ([0], [1, recorded + 1]):
            k5.virtual.clear_trace()
            with pytest.raises(ValueError, match="outside the recording"):
                k5.download(frames=frames)
            assert all(code not in (178, 114) for code, _, _ in k5.virtual.commands())
            assert_live(k5)

    def test_recorded_colour_bars_are_red_green_blue(self, k5c):
        frame = k5c.download(frames=1)[0]
        red, blue = frame[128, BAR_CENTRES[5]], frame[128, BAR_CENTRES[6]]
        assert red[0] > 200 and red[2] < 30 and blue[2] > 200 and blue[0] < 30

    def test_transfers_check_the_mode(self, k5):
        with pytest.raises(quorin.QuorinError) as caught:
            k5.transfer_recorded(1)
        assert caught.value.code == 111 and caught.value.function == "DEV_TransferMemImage"
        with pytest.raises(quorin.QuorinError) as caught:
            k5.channel_records(1, 1)
        assert caught.value.code == 111
        with k5.playback():
            assert k5.get("camera-mode") == quorin.MODE_PLAYBACK
            with pytest.raises(quorin.QuorinError) as caught:
                k5.grab()
            assert caught.value.code == 110
            assert k5.transfer_recorded(3).shape == (1024, 1024)
        assert_live(k5)

    def test_live_mode_comes_back_after_errors(self, k5):
        def frames():
            yield 1
            raise RuntimeError("stopped")

        with pytest.raises(RuntimeError):
            k5.download(frames())
        assert_live(k5)
        # The camera answers the recorded-frame command with the wrong code.
        k5.virtual.override_reply_code(178, 999)
        try:
            with pytest.raises(quorin.QuorinError) as caught:
                k5.download(frames=[1, 2])
            assert caught.value.code == 203
        finally:
            k5.virtual.clear_faults()
        assert_live(k5)

    def test_time_stamps_and_channel_records(self, k5c):
        # The virtual recording runs at 1000 frames per second from day 200,
        # 23:59:58.5, so frame 1501 is the first of day 201.
        with k5c.playback():
            stamps = k5c.time_stamps(first=1, count=3)
            midnight = k5c.time_stamps(first=1500, count=2)
            both = k5c.time_and_channels(first=1, count=2)
            channels = k5c.channel_records(first=1, count=2)
        assert stamps.dtype == quorin.TIME_STAMP_DTYPE
        assert [tuple(s)[:5] for s in stamps] == [(200, 23, 59, 58, 500000 + 1000 * k) for k in range(3)]
        assert stamps["time_code"].tolist() == [1, 1, 1]
        assert [tuple(s)[:5] for s in midnight] == [(200, 23, 59, 59, 999000), (201, 0, 0, 0, 0)]
        assert np.diff(quorin.records.time_stamp_microseconds(stamps)).tolist() == [1000, 1000]
        assert np.array_equal(both["time"], stamps[:2])
        assert np.array_equal(both["channels"], channels)
        # channel j of frame k: status (j + k) & 63; A and B of +-10(j+1)
        # and +-20(j+1) tenths (odd channels negative), plus k % 21 - 10
        for k in range(2):
            sign = np.array([1 if j % 2 == 0 else -1 for j in range(10)])
            wave = k % 21 - 10
            assert channels["status"][k].tolist() == [(j + k) & 63 for j in range(10)]
            assert np.allclose(channels["a"][k], (sign * 10 * np.arange(1, 11) + wave) / 10)
            assert np.allclose(channels["b"][k], (sign * 20 * np.arange(1, 11) + wave) / 10)
        assert_live(k5c)

    def test_threads_share_a_camera(self, k5c):
        # The binding serialises one camera's calls: playback entered by one
        # thread is not left under another's transfers.
        reference = k5c.download(frames=[7], bits=16)
        failures = []

        def work():
            try:
                for _ in range(3):
                    assert np.array_equal(k5c.download(frames=[7], bits=16), reference)
                    assert k5c.grab().shape == (1024, 1024, 3)
            except Exception as e:  # reported by the test's own thread
                failures.append(e)

        threads = [threading.Thread(target=work) for _ in range(3)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        assert failures == []
        assert_live(k5c)

    def test_download_with_time_stamps(self, k5):
        frames, stamps = k5.download(frames=[2, 3, 10], time_stamps=True)
        assert frames.shape[0] == 3
        assert stamps["microsecond"].tolist() == [501000, 502000, 509000]


class TestDeviceData:
    def test_lut_settings(self, k5):
        assert k5.lut_settings(2).gamma == (0.7, 0.7, 0.7)
        assert k5.lut_settings(3).gain == (2.0, 2.0, 2.0)
        mine = quorin.LutSettings(brightness=(10, 20, 30), contrast=(-5, 0, 5), gain=(1.5, 1.0, 0.5))
        k5.set_lut_settings(mine)
        assert k5.lut_settings(11) == mine
        k5.apply_identity_lut()
        with pytest.raises(quorin.QuorinError) as caught:
            k5.lut_settings(7)
        assert caught.value.code == 5

    def test_gain_tables_are_row_major(self, k5):
        camera = k5.gain_table("camera")
        assert camera.shape == (1024, 1024) and camera.dtype == np.uint16
        # the virtual camera's gain codes: 247 + (3x + 5y) % 5, times 4
        y, x = np.mgrid[0:1024:37, 0:1024:41]
        assert np.array_equal(camera[y, x], (247 + (3 * x + 5 * y) % 5) * 4)
        saved = k5.gain_table("file")
        try:
            table = np.full((1024, 1024), 997, np.uint16)
            table[3, 700] = 1200
            k5.set_gain_table(table)
            assert np.array_equal(k5.gain_table(2), table)
        finally:
            k5.set_gain_table(saved)
        with pytest.raises(ValueError):
            k5.gain_table("neither")

    def test_flat_field(self, k5):
        saved = k5.gain_table("file")
        try:
            flat = np.full((1024, 1024), 512, np.uint16)
            flat[10, 20] = 256  # half the level: gain 2 x 997
            k5.flat_field(flat)
            table = k5.gain_table("file")
            assert table[10, 20] == 1994
            table[10, 20] = 997
            assert np.all(table == 997)
            with pytest.raises(ValueError):
                k5.flat_field(flat[:512])
        finally:
            k5.set_gain_table(saved)

    def test_defect_list(self, k5):
        try:
            stored = k5.set_defects([(5, 3), (1, 3), (5, 3), (2, 1), 7 << 16 | 0])
            assert stored == [(7, 0), (2, 1), (1, 3), (5, 3)]  # by row, then column, no repeats
            assert k5.get("defect-correct") is True
        finally:
            assert k5.set_defects([]) == []
        with pytest.raises(quorin.QuorinError) as caught:
            k5.set_defects([(1, 1)] * 1025)
        assert caught.value.code == 5

    def test_free_curves_need_the_user_lut(self, k5c):
        curve = np.arange(1024)[::-1]
        with pytest.raises(quorin.QuorinError) as caught:
            k5c.set_free_lut("g", curve)
        assert caught.value.code == 5
        mode = k5c.get("lut-mode")
        k5c.set("lut-mode", 11)
        try:
            k5c.set_free_lut("g", curve)
            assert np.array_equal(k5c.list("free-lut-g"), curve)
            # A curve that has no settings folder to go to fails the close.
            k5c.set_free_lut("g", np.arange(1024))
        finally:
            k5c.set("lut-mode", mode)
