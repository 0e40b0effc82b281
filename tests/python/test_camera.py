"""Opening and closing cameras, capabilities and lists by name and number,
and the refusals that reach Python as QuorinError."""

import ctypes
import gc

import pytest

import quorin

from conftest import open_virtual


def slot_is_open(lib, device_no):
    """Whether the library still has the slot open (closing a closed slot gives 103)."""
    err = ctypes.c_int32(0)
    if lib.dll.DEV_CloseDevice(device_no, ctypes.byref(err)):
        raise AssertionError("device %d was still open" % device_no)
    return err.value != 103


class TestLifecycle:
    def test_open_reports_the_model_and_virtual_options(self, k5, k5c):
        assert (k5.model, k5.is_colour, k5.name) == ("K5", False, "ORBILUX-VELTA model K5")
        assert (k5c.model, k5c.is_colour) == ("K5C", True)
        assert k5.device_number != k5c.device_number
        with open_virtual("K5C", firmware=113, camera_number=42, link_type=2, defects=[(400, 3), (10, 3)]) as cam:
            assert cam.get("firmware") == 113
            assert cam.get("camera-number") == 42
            assert cam.virtual.config.linkType == 2
            assert cam.get("colour-model") is True
            assert cam.list("defects") == [(10, 3), (400, 3)]
            assert cam.get("defect-correct") is True
            # The settings the library keeps as last read are current after open.
            assert cam.get("shutter") == cam.get("frame-rate") and cam.get("exposure-us") > 0

    def test_the_slot_is_given_back(self, lib):
        # when the body of the with block raises ...
        with pytest.raises(RuntimeError, match="body"):
            with open_virtual("k5") as cam:
                slot, virtual = cam.device_number, cam.virtual
                raise RuntimeError("body")
        assert cam.closed and not virtual.alive
        assert not slot_is_open(lib, slot)
        with pytest.raises(ValueError, match="closed"):
            cam.get("frame-rate")
        cam.close()  # a second close does nothing

        # ... when a camera nobody closed is collected ...
        forgotten = open_virtual("k5")
        assert forgotten.device_number == slot
        del forgotten
        gc.collect()
        assert not slot_is_open(lib, slot)

        # ... and when the camera's start-up fails: it answers the firmware
        # query (command 17) with a wrong reply code, so the library's open
        # succeeds but its start-up does not.
        virtual = quorin.VirtualCamera("k5", camera_number=43)
        virtual.override_reply_code(17, 99)
        with pytest.raises(quorin.QuorinError) as caught:
            quorin.open(virtual=virtual)
        assert caught.value.code == 203 and "start-up" in str(caught.value)
        assert not virtual.alive
        with open_virtual("k5") as cam:
            assert cam.device_number == slot

    def test_open_arguments_are_checked(self):
        with pytest.raises(ValueError):
            quorin.open()
        with pytest.raises(ValueError):
            quorin.open(virtual="k7")
        with pytest.raises(TypeError):
            quorin.open(driver="/nonexistent.so", firmware=120)
        with pytest.raises(quorin.DriverError):
            quorin.open(driver="/nonexistent/driver.so")


class TestCapabilities:
    def test_names_and_numbers_reach_the_same_capability(self, either):
        assert either.get("frame-rate") == either.get(2) == 1000
        assert either.get("Frame_Rate") == 1000
        assert either.get("resolution") == (1024, 1024)
        assert either.get(3, raw=True) == (1024 << 16 | 1024, 0)
        assert either.get("sensor-size") == (1024, 1024)
        assert either.get("bit-depth", sub_index=1) == (128, 16)

    def test_set_encodes_by_kind_and_reads_back(self, k5c):
        try:
            k5c.set("resolution", (512, 256))
            assert k5c.get("resolution") == (512, 256)
            assert k5c.virtual.resolution() == (512, 256)
            assert k5c.get("value-73") == (256, 384)  # centred on the sensor
            k5c.set(3, 640 << 16 | 480)
            assert k5c.get("resolution") == (640, 480)
            k5c.set("signed-offset", -5)
            assert k5c.get("signed-offset") == -5
            assert k5c.get(19, raw=True)[0] == 0x80000005
            k5c.set("trigger-counts", (4, 3))
            assert k5c.get("trigger-counts") == (4, 3)
            k5c.set("image-output", quorin.ImageOutput(demosaic=0, raw_bayer=0, shift=1))
            assert k5c.get("image-output") == (0, 0, 1)
            assert k5c.get("keep-live-cache") is False
        finally:
            k5c.set("resolution", (1024, 1024))
            k5c.set("signed-offset", 0)
            k5c.set("image-output", (1, 0, 2))

    def test_colour_matrix_rows_are_signed(self, k5c):
        rows = [k5c.get("colour-matrix-row%d" % i) for i in (1, 2, 3)]
        assert [rows[i][i] for i in range(3)] == [320, 320, 320]  # 1.25 in 8 fraction bits
        assert all(abs(rows[i][j]) == 32 for i in range(3) for j in range(3) if i != j)

    def test_frame_counts_per_channel(self, k5):
        counts = k5.get("frame-count-channels")
        assert counts == [k5.get("frame-count")] * k5.get("channel-count")

    def test_refusals(self, k5, k5c):
        with pytest.raises(KeyError):
            k5.get("no-such-capability")
        with pytest.raises(TypeError):
            k5.get(True)
        with pytest.raises(ValueError):
            k5.get(-1)
        with pytest.raises(ValueError, match="only be read"):
            k5.set("firmware", 1)
        with pytest.raises(ValueError, match="only be set"):
            k5.get("preset-store")
        for size in ((2048, 16), (0, 16), (512,), "512x"):
            with pytest.raises(ValueError):
                k5.set("resolution", size)
        assert k5.get("resolution") == (1024, 1024)
        # The library's own refusals carry its codes.
        cases = [
            (lambda: k5.get("colour-temperature"), 21),  # colour model only
            (lambda: k5.get(9), 21),  # an id without a row
            (lambda: k5.set("camera-mode", 3), 5),
            (lambda: k5.set("trigger-counts", (1, 11)), 5),
            (lambda: k5c.set("image-output", (1, 0, 3)), 5),
            (lambda: k5.get("sync-source", sub_index=3), 5),
            (lambda: k5.list(99), 21),
        ]
        for call, code in cases:
            with pytest.raises(quorin.QuorinError) as caught:
                call()
            assert caught.value.code == code
            assert caught.value.meaning == quorin.error_meaning(code)


    def test_the_tools_notation_and_refusals_before_the_call(self, k5c):
        before = {c: k5c.get(c) for c in ("resolution", "lut-mode", "frame-rate", "shutter", "trigger-counts",
                                          "signed-offset")}
        try:
            for capability, text, read in (("resolution", "512x256", (512, 256)), ("lut-mode", "gamma-0.7", 2),
                                           ("frame-rate", "2000 fps", 2000), ("shutter", "1/4000", 4000),
                                           ("trigger-counts", "4,3", (4, 3)), ("signed-offset", "-5", -5)):
                k5c.set(capability, text)
                assert k5c.get(capability) == read, capability
            commands = len(k5c.virtual.commands())
            for capability, value, error, words in (
                    ("resolution", 512, ValueError, "512x256"), ("resolution", None, TypeError, "WxH"),
                    ("shutter", "1/4000.5", ValueError, "1/N"), ("shutter", 0.5, TypeError, "1/N"),
                    ("lut-mode", "gamma-7", ValueError, "gamma-0.7"), ("trigger-mode", "frames,", ValueError, ""),
                    ("frame-rate", b"2000", TypeError, "frames per second"), ("resolution", (512.0, 256), TypeError,
                                                                              "integer")):
                with pytest.raises(error, match=words) as caught:
                    k5c.set(capability, value)
                assert str(caught.value).startswith(capability + ":")
            assert len(k5c.virtual.commands()) == commands, "nothing reached the camera"
            assert k5c.get("resolution") == (512, 256)
        finally:
            for capability, value in before.items():
                k5c.set(capability, value)

    def test_settings_that_cannot_be_saved_raise_at_close(self, lib, tmp_path, monkeypatch):
        (tmp_path / "config").write_text("a file where the folder should be")
        monkeypatch.setenv("XDG_CONFIG_HOME", str(tmp_path / "config"))
        cam = open_virtual("k5")
        cam.set("pixel-gain", "off")
        with pytest.raises(quorin.QuorinError, match="settings were not saved") as caught:
            cam.close()
        assert caught.value.code == 17 and cam.closed


class TestLists:
    def test_lists_by_name_and_number(self, either):
        rates = either.list("frame-rates")
        assert rates == either.list(0) and 1000 in rates and rates == sorted(rates)
        assert either.list("lut-modes") == [1, 2, 3, 4, 5, 11]
        assert either.list("sync-sources", sub_index=2) == [6, 7, 8, 9, 10, 11]

    def test_decoded_lists(self, k5):
        sizes = k5.list("picture-sizes")
        assert sizes[0] == (1024, 1024) and (128, 16) in sizes
        shutters = k5.list("shutter-speeds")
        assert shutters[0] == k5.get("frame-rate") and all(s > shutters[0] for s in shutters[1:])
        table = k5.list("output-lut-r")
        assert table.dtype.name == "uint16" and table.shape == (1024,)
        assert table[0] <= table[512] <= table[1023]
        entries = k5.list("camera-entries")
        assert len(entries) == 10

