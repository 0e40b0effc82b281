"""The binding without a camera: finding the libraries, and the tables and
record layouts checked against the headers."""

import ctypes
import os
import re
import shutil
import subprocess
import sys
import sysconfig

import numpy as np
import pytest

import quorin
from quorin import _library, names, records
from quorin.errors import ERROR_TABLE

from conftest import HEADER, SOURCE_DIR, VCAM_HEADER


def header_constants(path, prefix):
    """{NAME: value} of the enum constants PREFIX_NAME = value of a header."""
    text = path.read_text()
    return {m.group(1): int(m.group(2), 0)
            for m in re.finditer(r"\b%s(\w+)\s*=\s*(0x[0-9A-Fa-f]+|\d+)" % prefix, text)}


def kebab(name):
    return name.lower().replace("_", "-")


# ---- Finding the libraries --------------------------------------------------

class TestLookup:
    def test_explicit_folder_or_file_wins_over_the_environment(self, lib, tmp_path):
        folder = os.path.dirname(lib.path)
        env = {_library.ENV_VARIABLE: str(tmp_path)}
        assert os.path.samefile(_library.locate(explicit=folder, environ=env), lib.path)
        assert _library.locate(explicit=lib.path, environ=env) == lib.path

    def test_explicit_path_without_the_library_is_not_searched_further(self, lib, tmp_path):
        env = {_library.ENV_VARIABLE: os.path.dirname(lib.path)}
        with pytest.raises(quorin.LibraryNotFound) as caught:
            _library.locate(explicit=tmp_path, environ=env)
        assert str(tmp_path) in caught.value.tried

    def test_environment_folder_then_nothing_found(self, lib, tmp_path):
        env = {_library.ENV_VARIABLE: os.path.dirname(lib.path)}
        assert os.path.samefile(_library.locate(environ=env, package_dir=str(tmp_path)), lib.path)
        vcam = _library.locate(_library.VCAM_NAMES, environ=env, package_dir=str(tmp_path))
        assert os.path.basename(vcam).startswith("libquorin_vcam.so")
        with pytest.raises(quorin.LibraryNotFound) as caught:
            _library.locate(environ={_library.ENV_VARIABLE: str(tmp_path)}, package_dir=str(tmp_path),
                            system=False)
        assert caught.value.tried == [str(tmp_path)]

    def test_prefix_folders_of_an_installed_package(self):
        multiarch = sysconfig.get_config_var("MULTIARCH")
        dirs = _library.prefix_library_dirs("/opt/q/lib/python3/dist-packages/quorin")
        assert dirs[0] == "/opt/q/lib"
        assert "/opt/q/lib64" in dirs
        if multiarch:
            assert "/opt/q/lib/" + multiarch in dirs
        assert _library.prefix_library_dirs("/opt/q/local/lib/python3.11/site-packages/quorin")[0] == \
            "/opt/q/local/lib"
        assert _library.prefix_library_dirs(str(SOURCE_DIR / "python" / "quorin")) == []

    def test_installed_package_finds_the_libraries_of_its_prefix(self, lib, tmp_path):
        # An installed tree: the package under lib/python3/dist-packages and
        # the libraries in the multiarch folder (or lib), as the install rules
        # lay them out; no QUORIN_LIBRARY_DIR.
        package = tmp_path / "lib" / "python3" / "dist-packages" / "quorin"
        shutil.copytree(os.path.dirname(quorin.__file__), package,
                        ignore=shutil.ignore_patterns("__pycache__"))
        libdir = tmp_path / "lib" / (sysconfig.get_config_var("MULTIARCH") or "")
        libdir.mkdir(parents=True, exist_ok=True)
        build = os.path.dirname(lib.path)
        for name in _library.CORE_NAMES[:1] + _library.VCAM_NAMES[:1]:
            os.symlink(os.path.realpath(os.path.join(build, name)), libdir / name)
        env = {k: v for k, v in os.environ.items() if k not in (_library.ENV_VARIABLE, "PYTHONPATH")}
        env["PYTHONPATH"] = str(package.parent)
        script = ("import quorin; l = quorin.library(); print(l.path); "
                  "c = quorin.open(virtual='k5', camera_number=999); print(c.name); c.close()")
        out = subprocess.run([sys.executable, "-B", "-c", script], env=env, capture_output=True, text=True,
                             timeout=60)
        assert out.returncode == 0, out.stderr
        path, name = out.stdout.split("\n")[:2]
        assert path == str(libdir / _library.CORE_NAMES[0])
        assert name == "ORBILUX-VELTA model K5"

    def test_one_library_per_process(self, lib, tmp_path):
        assert quorin.library() is lib
        assert quorin.library(os.path.dirname(lib.path)) is lib
        other = tmp_path / _library.CORE_NAMES[0]
        shutil.copy(lib.path, other)
        with pytest.raises(ValueError):
            quorin.library(str(tmp_path))


# ---- Tables against the headers -----------------------------------------------

def test_every_header_capability_list_and_data_id_has_its_kebab_name():
    for prefix, table in (("QUORIN_CAP_", names.CAPABILITY_BY_NAME), ("QUORIN_LIST_", names.LIST_BY_NAME),
                          ("QUORIN_DATA_", names.DATA_BY_NAME)):
        constants = header_constants(HEADER, prefix)
        assert constants, prefix
        for name, value in constants.items():
            assert kebab(name) in table, prefix + name
            assert table[kebab(name)].id == value, prefix + name
    for name, value in header_constants(HEADER, "QUORIN_SETLIST_").items():
        assert names.SET_LISTS[kebab(name)] == value
    # numbers resolve to one entry each
    assert len(names.CAPABILITY_BY_ID) == len(names.CAPABILITIES)
    assert len(names.LIST_BY_ID) == len(names.LISTS)


def test_error_words_are_the_same_in_the_tool_and_the_reference_page():
    tool = (SOURCE_DIR / "tools" / "cli" / "error_words.cpp").read_text()
    constants = {"QUORIN_" + k: v for k, v in header_constants(HEADER, "QUORIN_").items()}
    constants.update({"VCAM_" + k: v for k, v in header_constants(VCAM_HEADER, "VCAM_").items()})
    words = {constants[m.group(1)]: m.group(2)
             for m in re.finditer(r'\{((?:QUORIN|VCAM)_[A-Z_]+), "([^"]*)"\}', tool)}
    assert words == {code: entry[1] for code, entry in ERROR_TABLE.items()}
    page = (SOURCE_DIR / "docs" / "reference.md").read_text()
    rows = {int(m.group(1)): m.group(2)
            for m in re.finditer(r"^\| (\d+) \| `QUORIN_(?:SUCCESS|ERR_\w+)` \| ([^|]+?) \|", page, re.M)}
    assert rows == {code: entry[1] for code, entry in ERROR_TABLE.items() if code < 0x7000}


def test_error_table_names_every_code_of_both_headers():
    codes = dict(header_constants(HEADER, "QUORIN_"))
    expected = {v: k for k, v in codes.items() if k == "SUCCESS" or k.startswith("ERR_")}
    expected.update({v: "VCAM_ERR_" + k for k, v in header_constants(VCAM_HEADER, "VCAM_ERR_").items()})
    for code, name in expected.items():
        assert ERROR_TABLE[code][0] == name
        assert quorin.error_meaning(code) == ERROR_TABLE[code][1]
    assert set(ERROR_TABLE) == set(expected)
    assert "link driver" in quorin.error_meaning(0x1234)
    e = quorin.QuorinError(111, "DEV_TransferMemImage")
    assert (e.code, e.name) == (111, "ERR_NOT_PLAYBACK") and "not in playback" in e.meaning
    assert "DEV_TransferMemImage" in str(e) and "111" in str(e)


def _c_prototypes(path, pattern):
    text = re.sub(r"/\*.*?\*/", "", path.read_text(), flags=re.S)
    for m in re.finditer(pattern, text, flags=re.S):
        params = [p.strip() for p in m.group(2).split(",") if p.strip() not in ("", "void")]
        yield m.group(1), params


def test_prototypes_match_the_headers(lib):
    def pointer(t):
        return t in (ctypes.c_void_p, ctypes.c_char_p) or hasattr(t, "contents") or \
            (isinstance(t, type) and issubclass(t, ctypes._Pointer))

    exports = dict(_c_prototypes(HEADER, r"QUORIN_API\s+\w+\s+(DEV_\w+)\((.*?)\);"))
    assert len(exports) == 16 and set(exports) == set(_library.CORE_PROTOTYPES)
    vcam = dict(_c_prototypes(VCAM_HEADER, r"VCAM_API\s+[\w\s\*]+?\b(vcam_\w+)\((.*?)\);"))
    assert set(vcam) == set(_library.VCAM_PROTOTYPES)
    for table, declared in ((exports, _library.CORE_PROTOTYPES), (vcam, _library.VCAM_PROTOTYPES)):
        for name, params in table.items():
            argtypes = declared[name][1]
            assert len(argtypes) == len(params), name
            for c_param, t in zip(params, argtypes):
                assert ("*" in c_param) == pointer(t), (name, c_param, t)
                if "*" not in c_param and ("64" in c_param or "size_t" in c_param):
                    assert ctypes.sizeof(t) == 8, (name, c_param)
    assert lib.dll.DEV_GetData.argtypes == _library.CORE_PROTOTYPES["DEV_GetData"][1]


def test_c_structures_have_the_header_layouts():
    assert ctypes.sizeof(_library.InterfaceTable) == 200
    for field, offset in (("inUseWord", 8), ("Open", 56), ("armTransfer", 112), ("TransactData", 136),
                          ("hostBytes144", 144)):
        assert getattr(_library.InterfaceTable, field).offset == offset
    assert ctypes.sizeof(_library.CameraCommand) == 12


def test_record_layouts():
    assert records.TIME_STAMP_DTYPE.itemsize == ctypes.sizeof(records.FrameTimeRecord) == 20
    assert records.CHANNEL_DTYPE.itemsize == ctypes.sizeof(records.FrameChannelRecord) == 332
    assert records.TIME_AND_CHANNELS_DTYPE.itemsize == 352
    for name in ("day", "hour", "minute", "second", "microsecond"):
        assert records.TIME_STAMP_DTYPE.fields[name][1] == getattr(records.FrameTimeRecord, name).offset
    ts = getattr(records.FrameTimeRecord, "time_code").offset
    assert records.TIME_STAMP_DTYPE.fields["time_code"][1] == ts == 12
    for name in "cdab":
        assert records.CHANNEL_DTYPE.fields[name][1] == getattr(records.FrameChannelRecord, name).offset
    # The same bytes read through the structure and the dtype.
    raw = bytes(range(20))
    s = records.FrameTimeRecord.from_buffer_copy(raw)
    a = np.frombuffer(raw, records.TIME_STAMP_DTYPE)[0]
    assert (a["day"], a["minute"], a["microsecond"], a["time_code"]) == (s.day, s.minute, s.microsecond,
                                                                           s.time_code)


def test_lut_settings_pack_to_76_bytes():
    lut = quorin.LutSettings(brightness=(-3, 0, 7), contrast=(1, 2, 3), gain=(2.0, 1.0, 0.5),
                             gamma=(0.7, 1.0, 1.5), posi_nega=(True, False, True), free_mode=True)
    data = lut.to_bytes()
    assert len(data) == 76
    assert data[:4] == (-3).to_bytes(4, "little", signed=True)
    assert data[72:76] == b"\x01\x00\x01\x01"
    assert quorin.LutSettings.from_bytes(data) == lut
    with pytest.raises(ValueError):
        quorin.LutSettings(gain=(1.0, 2.0)).to_bytes()


def test_value_words():
    # sign-magnitude offsets, packed sizes and the image-output bytes
    assert names.encode("signed", -5) == (0x80000005, 0)
    assert names.decode("signed", 0x80000005, 0) == -5
    assert names.decode("matrix", 0x8005_0140, 0x8020) == (-5, 320, -32)
    assert names.encode("size", (640, 480)) == (640 << 16 | 480, 0)
    assert names.encode("output", names.ImageOutput(1, 0, 2)) == (0x010002, 0)
    assert names.encode("pair", (0x04000000, 5)) == (0x04000000, 5)
    for kind, bad in (("int", -1), ("int", 1 << 32), ("size", (70000, 1)), ("pair", (1, 2, 3))):
        with pytest.raises(ValueError):
            names.encode(kind, bad)


# ---- One notation with the tool -------------------------------------------------

def test_notation_is_the_tools():
    from quorin import notation
    # The shared table of texts and the words they give.
    for line in (SOURCE_DIR / "tests" / "notation_cases.txt").read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        fmt, text, expected = line.split(" | ")
        if expected == "refused":
            with pytest.raises(ValueError, match="expected"):
                notation.parse(fmt, text)
        else:
            assert notation.parse(fmt, text) == tuple(int(w, 0) for w in expected.split()), line
    # Each capability's format and each format's names, as the tool's tables give them.
    camel = {"Microseconds": "us", "Nanoseconds": "ns", "SignedOffset": "signed"}
    tool = (SOURCE_DIR / "tools" / "cli" / "names.cpp").read_text()
    caps = header_constants(HEADER, "QUORIN_CAP_")
    formats = {caps[m.group(1)] + int(m.group(2) or 0):
               camel.get(m.group(3)) or re.sub(r"(?<!^)([A-Z])", r"-\1", m.group(3)).lower()
               for m in re.finditer(r'\{"[\w-]+", QUORIN_CAP_(\w+)(?: \+ (\d))?, \d+, Format::(\w+)', tool)}
    assert len(formats) > 80 and notation.FORMATS == formats
    values = (SOURCE_DIR / "tools" / "cli" / "values.cpp").read_text()
    blocks = {"kLutModes": "lut-mode", "kColourTemperatures": "colour-temperature", "kCameraModes": "camera-mode",
              "kTriggers": "trigger", "kPixelGainModes": "pixel-gain", "kOnOff": "on-off"}
    for m in re.finditer(r"constexpr NamedValue (\w+)\[\] = \{(.*?)\};", values, re.S):
        pairs = tuple((n, int(v, 0)) for n, v in re.findall(r'\{"([^"]+)", (0x[0-9A-Fa-f]+|\d+)u?\}', m.group(2)))
        assert notation.NAMED[blocks[m.group(1)]] == pairs, m.group(1)
