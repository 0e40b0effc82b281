"""Names of capabilities, value lists and device data, and how their values read.

The names are the header's constants in kebab case: ``QUORIN_CAP_FRAME_RATE``
is ``"frame-rate"``, ``QUORIN_LIST_PICTURE_SIZES`` is ``"picture-sizes"``.
Each entry says which directions the id serves, how its value words decode
into a Python value (and encode back) and its unit.

Value kinds:

``int``       the value word as it is
``flag``      0 / non-zero as False / True
``size``      width << 16 | height as (width, height)
``pair``      (value, value2)
``size-pair`` width in value, height in value2, as (width, height)
``signed``    sign-magnitude (bit 31 = negative) as a Python int
``output``    demosaic << 16 | raw Bayer << 8 | output shift as :class:`ImageOutput`
``matrix``    a colour-matrix row: three sign-magnitude 16-bit coefficients
``channels``  a frame count for every channel (a list)
``none``      the call writes no value (a refresh); returns None
"""

import operator
from collections import namedtuple

from . import notation

ImageOutput = namedtuple("ImageOutput", "demosaic raw_bayer shift")
ImageOutput.__doc__ = """Capability "image-output": demosaic method (1 stores colour pixels
blue, green, red; other values red, green, blue), raw Bayer output on/off,
and the right shift of the 8-bit reduction (0..2)."""

Capability = namedtuple("Capability", "name id access get_kind set_kind unit doc")
Capability.__doc__ = """One capability id: ``access`` is "g", "s" or "gs"."""

ValueList = namedtuple("ValueList", "name id kind unit doc")
DataId = namedtuple("DataId", "name id record_size doc")


def _cap(name, ident, access, kind="int", unit=None, doc="", set_kind=None):
    return Capability(name, ident, access, kind if "g" in access else None,
                      (set_kind or kind) if "s" in access else None, unit, doc)


# The capability table (quorin.h, QUORIN_CAP_...).
CAPABILITIES = (
    _cap("camera-mode", 0, "gs", doc="0 live, 1 playback, 2, 4, 8 recording states (16, 32 on get)"),
    _cap("supported", 1, "g", "flag", doc="always 1"),
    _cap("frame-rate", 2, "gs", unit="frames/s"),
    _cap("resolution", 3, "gs", "size", unit="px", doc="picture size (width, height)"),
    _cap("shutter", 4, "gs", unit="1/s", doc="shutter speed as a denominator of one second"),
    _cap("exposure-us", 5, "g", unit="us", doc="exposure time"),
    _cap("trigger-mode", 6, "gs", "pair", doc="(trigger code, parameter)"),
    _cap("trigger-counts", 7, "gs", "pair", doc="(trigger count, ratio 1..10)"),
    _cap("colour-temperature", 8, "gs", doc="1 = 5100 K, 2 = 3100 K, 3/4 = user gains (K5C)"),
    _cap("colour-model", 11, "g", "flag", doc="true on the K5C"),
    _cap("camera-number", 12, "g"),
    _cap("mode-133", 13, "gs", doc="mode 1..4 (commands 71 / 133); edge enhancement level"),
    _cap("flag-137-bit0", 14, "gs", "flag", doc="flag 0 of command 137"),
    _cap("flag-137-bit1", 15, "gs", "flag", doc="flag 1 of command 137"),
    _cap("action-145", 16, "gs", doc="get: mode 1..4 of command 55; set: action 1..5 of command 145"),
    _cap("mode-143", 17, "gs", doc="mode 1..4 (commands 53 / 143)"),
    _cap("lut-mode", 18, "gs", doc="1..5 presets, 11 the user look-up table"),
    _cap("signed-offset", 19, "gs", "signed"),
    _cap("firmware", 23, "g", doc="firmware revision"),
    _cap("flag-134", 24, "gs", "flag", doc="get: command 68 flag; set: command 134 flag"),
    _cap("flag-159", 25, "gs", "flag", doc="get: command 67 flag; set: command 159 flag"),
    _cap("status-bit16", 28, "gs", "flag"),
    _cap("sensor-kind", 29, "gs", doc="2 or 3"),
    _cap("constant-64", 30, "g", "pair"),
    _cap("channel-number", 31, "gs", doc="channel 1..channel count"),
    _cap("pixel-gain", 32, "gs",
         doc="0 off, 1 camera table, 2 file table, 3 fixed; set 6 saves, 7 loads the pixel-gain file"),
    _cap("frame-count", 33, "g", unit="frames", doc="frames the camera's memory holds"),
    _cap("sync-source", 34, "gs", doc="sub-index 1: sync source 1..5; sub-index 2: mode 6..11"),
    _cap("pair-128", 35, "gs", doc="sub-index 1: codes 1..2; sub-index 2: codes 3..14"),
    _cap("constant-2", 36, "g", "pair"),
    _cap("exposure-enable", 37, "gs", "flag", doc="exposure control switch"),
    _cap("frame-count-channels", 39, "g", "channels", unit="frames", doc="frame count of every channel"),
    _cap("channel-count", 40, "gs", doc="number of channels 1..64"),
    _cap("image-output", 41, "gs", "output", doc="ImageOutput(demosaic, raw_bayer, shift)"),
    _cap("frame-count-2", 42, "g", unit="frames"),
    _cap("values-45-46", 43, "g", "pair"),
    _cap("colour-matrix-row1", 44, "g", "matrix", doc="row 1 of the colour matrix, 256 = 1.0 (K5C)"),
    _cap("colour-matrix-row2", 45, "g", "matrix", doc="row 2 (K5C)"),
    _cap("colour-matrix-row3", 46, "g", "matrix", doc="row 3 (K5C)"),
    _cap("sensor-size", 47, "g", "size", unit="px"),
    _cap("value-73", 48, "g", "size", unit="px", doc="(first column, first row) of the picture on the sensor"),
    _cap("mode-69", 49, "g"),
    _cap("preset-frame-rate", 50, "gs", unit="frames/s",
         doc="get: frame rate of preset sub-index; set: frame-time model frame rate"),
    _cap("preset-resolution", 51, "gs", "size", unit="px",
         doc="get: size of preset sub-index; set: frame-time model size"),
    _cap("preset-value-52", 52, "gs"),
    _cap("preset-store", 53, "s", doc="store the present inputs as preset number value"),
    _cap("preset-recall", 54, "gs", doc="get: command 69 second value; set: recall preset number value"),
    _cap("preset-delete", 55, "s"),
    _cap("max-frame-rate", 56, "g", unit="frames/s"),
    _cap("max-width", 57, "g", unit="px"),
    _cap("max-height", 58, "g", unit="px"),
    _cap("max-picture", 59, "g", "size-pair", unit="px"),
    _cap("startup-value-1", 60, "gs"),
    _cap("startup-value-2", 61, "gs"),
    _cap("startup-value-3", 62, "gs"),
    _cap("startup-value-4", 63, "gs"),
    _cap("startup-value-5", 64, "gs"),
    _cap("send-startup-values", 65, "s"),
    _cap("constant-10", 72, "g"),
    _cap("upload-lut", 73, "s", doc="value 11 uploads the user look-up table"),
    _cap("bit-depth", 76, "g", "pair", doc="by sub-index 0..3"),
    _cap("colour-matrix-set", 77, "gs", doc="get: 2 camera / 0 default coefficients (K5C)"),
    _cap("supported-80", 80, "g", "flag"),
    _cap("constant-3000", 81, "g"),
    _cap("value-47", 84, "g"),
    _cap("defect-correct", 85, "gs", "flag", doc="defective-pixel correction"),
    _cap("user-gain-r", 86, "gs", doc="16 = 1.0 (K5C)"),
    _cap("user-gain-g", 87, "gs", doc="16 = 1.0 (K5C)"),
    _cap("user-gain-b", 88, "gs", doc="16 = 1.0 (K5C)"),
    _cap("constant-16-63", 89, "g", "pair"),
    _cap("keep-live-cache", 90, "gs", "flag", doc="keep 16-bit copies of 8-bit live frames"),
    _cap("level-range", 91, "g", "pair", doc="by sub-index 0..3"),
    _cap("soft-colour", 92, "gs", "flag", doc="colour balance from the soft gains (K5C)"),
    _cap("command-157", 95, "s"),
    _cap("supported-96", 96, "g", "flag"),
    _cap("interface-register", 97, "gs", doc="link type 2 interface register, sub-index 0..2"),
    _cap("preset-ext-sync", 98, "g", "flag"),
    _cap("external-sync", 99, "gs", "flag"),
    _cap("value-78", 100, "g"),
    _cap("column-correct", 119, "gs", "flag", doc="32-column crosstalk correction (firmware below 114)"),
    _cap("kept-120", 120, "gs", doc="kept colour setting (K5C)"),
    _cap("soft-gain-r", 121, "gs", doc="16 = 1.0, below 64 (K5C)"),
    _cap("soft-gain-g", 122, "gs", doc="16 = 1.0, below 64 (K5C)"),
    _cap("soft-gain-b", 123, "gs", doc="16 = 1.0, below 64 (K5C)"),
    _cap("exposure-ns", 127, "g", unit="ns", doc="exposure time"),
    _cap("kernel-variant", 128, "s", doc="image-pipeline option word"),
    _cap("refresh-startup", 162, "g", "none", doc="re-read start-up values 1..5"),
)

# Value lists (QUORIN_LIST_...): kind "int", "size", "defect" ((x, y)),
# "table" (1024 look-up entries as a uint16 array) or "entries" (ten camera
# entries, None where the camera has none).
LISTS = (
    ValueList("frame-rates", 0, "int", "frames/s", "frame rates offered now"),
    ValueList("picture-sizes", 1, "size", "px", "sizes allowed at the present frame rate"),
    ValueList("shutter-speeds", 2, "int", "1/s", "shutter denominators, the frame rate first"),
    ValueList("exposure-times-us", 3, "int", "us", "exposure times"),
    ValueList("trigger-modes", 4, "int", None, "trigger codes"),
    ValueList("sync-sources", 7, "int", None, "sub-index 1: 1..5, sub-index 2: 6..11"),
    ValueList("pair-128-codes", 8, "int", None, "sub-index 1 or 2"),
    ValueList("colour-temperatures", 9, "int", None, "1..4"),
    ValueList("lut-modes", 10, "int", None, "1..5, 11"),
    ValueList("ext-sync-frame-rates", 11, "int", "frames/s", "frame rates of the external-sync model"),
    ValueList("modes-143", 12, "int", None, "modes of mode-143 allowed now"),
    ValueList("values-112", 13, "int", None, "2, 3"),
    ValueList("modes-133", 14, "int", None, "1..4"),
    ValueList("fine-frame-rates", 15, "int", "frames/s", "fine frame rates for the present width"),
    ValueList("fine-exposure-us", 16, "int", "us", "fine exposure times"),
    ValueList("actions-145", 17, "int", None, "1..4"),
    ValueList("defects", 18, "defect", "px", "the defect pixels as (column, row)"),
    ValueList("single-value", 19, "int", None, "1"),
    ValueList("free-lut-r", 20, "table", None, "free curve R"),
    ValueList("free-lut-g", 21, "table", None, "free curve G (the red one on the K5)"),
    ValueList("free-lut-b", 22, "table", None, "free curve B (the red one on the K5)"),
    ValueList("camera-entries", 23, "entries", None, "ten camera entries"),
    ValueList("output-lut-r", 25, "table", None, "output table R of the selected channel's row"),
    ValueList("output-lut-g", 26, "table", None, "output table G (the red one on the K5)"),
    ValueList("output-lut-b", 27, "table", None, "output table B (the red one on the K5)"),
    ValueList("pixel-gain-values", 28, "int", None, "0..3, 6, 7"),
    ValueList("stored-entries", 30, "int", None, "the ten values kept by camera-entries"),
    ValueList("two-values", 31, "int", None, "0, 2"),
    ValueList("exposure-times-ns", 40, "int", "ns", "exposure times"),
    ValueList("fine-exposure-ns", 41, "int", "ns", "fine exposure times"),
)

# Device data ids (QUORIN_DATA_...), with the bytes one record takes.
DATA = (
    DataId("time-stamps", 0, 20, "20 bytes per frame"),
    DataId("channels", 1, 332, "332 bytes per frame"),
    DataId("time-and-channels", 2, 352, "352 bytes per frame"),
    DataId("lut-settings", 3, 76, "76-byte look-up settings"),
    DataId("gain-tables", 4, 2097152, "1024 x 1024 u16"),
    DataId("flat-field", 5, None, "set: compute the pixel-gain table from a flat field"),
    DataId("pixel-probe", 6, 12, "one pixel's red, green and blue"),
)

# Lists written with DEV_SetList (QUORIN_SETLIST_...).
SET_LISTS = {"defects": 18, "free-lut-r": 20, "free-lut-g": 21, "free-lut-b": 22}

# The shorter names the quorin command-line tool uses, accepted as well.
CAPABILITY_ALIASES = {
    "exposure": "exposure-us",
    "channel": "channel-number",
    "exposure-control": "exposure-enable",
    "area-origin": "value-73",
    "defect-correction": "defect-correct",
    "colour-gain-r": "user-gain-r",
    "colour-gain-g": "user-gain-g",
    "colour-gain-b": "user-gain-b",
    "live-cache": "keep-live-cache",
    "column-correction": "column-correct",
}
LIST_ALIASES = {
    "exposure-times": "exposure-times-us",
    "fine-exposure-times": "fine-exposure-us",
    "fine-exposure-times-ns": "fine-exposure-ns",
}

CAPABILITY_BY_NAME = {c.name: c for c in CAPABILITIES}
CAPABILITY_BY_NAME.update({a: CAPABILITY_BY_NAME[n] for a, n in CAPABILITY_ALIASES.items()})
CAPABILITY_BY_ID = {c.id: c for c in CAPABILITIES}
LIST_BY_NAME = {l.name: l for l in LISTS}
LIST_BY_NAME.update({a: LIST_BY_NAME[n] for a, n in LIST_ALIASES.items()})
LIST_BY_ID = {l.id: l for l in LISTS}
DATA_BY_NAME = {d.name: d for d in DATA}

_U32 = 0xFFFFFFFF


def _lookup(key, by_name, by_id, what):
    """Resolves a name or a number; a number the table lacks still resolves (to None)."""
    if isinstance(key, bool):
        raise TypeError("%s must be a name or a number, not %r" % (what, key))
    if isinstance(key, int):
        if not 0 <= key <= _U32:
            raise ValueError("%s %d is outside 0..0xFFFFFFFF" % (what, key))
        return key, by_id.get(key)
    if isinstance(key, str):
        entry = by_name.get(key.strip().lower().replace("_", "-"))
        if entry is None:
            raise KeyError("unknown %s name %r" % (what, key))
        return entry.id, entry
    raise TypeError("%s must be a name or a number, not %r" % (what, type(key).__name__))


def capability(key):
    """(id, Capability or None) for a capability name or number."""
    return _lookup(key, CAPABILITY_BY_NAME, CAPABILITY_BY_ID, "capability")


def value_list(key):
    """(id, ValueList or None) for a list name or number."""
    return _lookup(key, LIST_BY_NAME, LIST_BY_ID, "list")


# ---------------------------------------------------------------------------
# Value codecs
# ---------------------------------------------------------------------------

def _sign_magnitude(word, bits):
    sign = 1 << (bits - 1)
    return -(word & (sign - 1)) if word & sign else word & (sign - 1)


def _to_sign_magnitude(number, bits):
    sign = 1 << (bits - 1)
    if not -sign < number < sign:
        raise ValueError("%d does not fit a %d-bit sign-magnitude value" % (number, bits))
    return (sign | -number) if number < 0 else number


SENSOR_SIDE = 1024


def _integer(number, what="a value"):
    """An int from an int-like value (numpy integers too); floats, None and
    the like are refused rather than cut to an int."""
    try:
        return operator.index(number)
    except TypeError:
        raise TypeError("%s must be an integer, not %r" % (what, number)) from None


def pack_size(width, height):
    """width << 16 | height; a picture lies on the 1024 x 1024 sensor."""
    width, height = _integer(width, "a width"), _integer(height, "a height")
    if not (1 <= width <= SENSOR_SIDE and 1 <= height <= SENSOR_SIDE):
        raise ValueError("size %dx%d is not on the %dx%d sensor" % (width, height, SENSOR_SIDE, SENSOR_SIDE))
    return width << 16 | height


def unpack_size(word):
    return (word >> 16, word & 0xFFFF)


def decode(kind, value, value2):
    """A capability's value words as a Python value of ``kind``."""
    if kind in (None, "int"):
        return value
    if kind == "flag":
        return value != 0
    if kind == "size":
        return unpack_size(value)
    if kind in ("pair", "size-pair"):
        return (value, value2)
    if kind == "signed":
        return _sign_magnitude(value, 32)
    if kind == "output":
        return ImageOutput((value >> 16) & 0xFF, (value >> 8) & 0xFF, value & 0xFF)
    if kind == "matrix":
        return (_sign_magnitude(value >> 16, 16), _sign_magnitude(value & 0xFFFF, 16),
                _sign_magnitude(value2 & 0xFFFF, 16))
    if kind == "none":
        return None
    raise ValueError("unknown value kind %r" % kind)


def _word(number):
    if isinstance(number, bool):
        return int(number)
    number = _integer(number)
    if not 0 <= number <= _U32:
        raise ValueError("%d does not fit an unsigned 32-bit value" % number)
    return number


def encode(kind, value):
    """(value, value2) words for a Python value of ``kind``.

    A plain int is always taken as the raw value word, and a 2-tuple of ints
    as the raw (value, value2) pair, except where the kind gives tuples their
    own meaning (sizes, image output).
    """
    if kind == "size":
        if isinstance(value, (tuple, list)):
            if len(value) != 2:
                raise ValueError("expected a size (width, height), not %r" % (value,))
            return pack_size(*value), 0
        word = _word(value)
        # A packed word is taken when it names a size on the sensor; a
        # lone number such as 512 is not a size.
        if notation.parse_size("%dx%d" % unpack_size(word)) != word:
            raise ValueError("expected a size (width, height) or 'WxH', e.g. '512x256'; %r is not one" % (value,))
        return word, 0
    if kind == "output":
        if isinstance(value, (tuple, list)) and len(value) == 3:
            demosaic, raw, shift = (_integer(v) for v in value)
            if not all(0 <= v <= 0xFF for v in (demosaic, raw, shift)):
                raise ValueError("image-output fields are bytes: %r" % (value,))
            return demosaic << 16 | raw << 8 | shift, 0
        return _word(value), 0
    if kind == "signed" and not isinstance(value, (tuple, list)):
        return _to_sign_magnitude(_integer(value), 32), 0
    if isinstance(value, (tuple, list)):
        if len(value) != 2:
            raise ValueError("expected a value or a (value, value2) pair, not %r" % (value,))
        return _word(value[0]), _word(value[1])
    return _word(value), 0


def encode_setting(ident, kind, value):
    """(value, value2) for capability ``ident``: a text in the quorin tool's
    notation for the id (see :mod:`quorin.notation`), or a Python value of
    ``kind`` as :func:`encode` takes it. Refuses what fits neither with
    TypeError or ValueError."""
    if isinstance(value, str):
        return notation.parse(notation.format_of(ident), value)
    if isinstance(value, (bytes, float, complex)) or value is None:
        raise TypeError("expected %s, as text or a number, not %r"
                        % (notation.hint(notation.format_of(ident)), value))
    return encode(kind, value)
