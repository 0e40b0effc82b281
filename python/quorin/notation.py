"""Values written as text, in the notation of the ``quorin`` tool.

``cam.set("shutter", "1/4000")``, ``cam.set("resolution", "512x256")``,
``cam.set("lut-mode", "gamma-0.7")`` and ``cam.set("trigger-mode",
"frames,500")`` read exactly as the tool reads them (tools/cli/values.cpp);
:data:`FORMATS` gives each capability the tool's format (tools/cli/names.cpp),
and a test keeps the two tables equal. A text that does not fit raises
ValueError naming what was expected, before anything reaches the library.
"""

SENSOR_SIDE = 1024
_U32 = 0xFFFFFFFF

# The enumerated formats' names, in the tool's order.
NAMED = {
    "lut-mode": (("normal", 1), ("gamma-0.7", 2), ("gain-2", 3), ("gain-4", 4), ("negative", 5), ("user", 11)),
    "colour-temperature": (("5100K", 1), ("3100K", 2), ("user-1", 3), ("user-2", 4)),
    "camera-mode": (("live", 0), ("playback", 1), ("ready", 2), ("ready-record", 4), ("record", 8),
                    ("recording-2", 2), ("recording-4", 4), ("recording-8", 8), ("recording-16", 16),
                    ("recording-32", 32)),
    "pixel-gain": (("off", 0), ("camera", 1), ("file", 2), ("fixed", 3), ("save", 6), ("load", 7)),
    "on-off": (("off", 0), ("on", 1), ("no", 0), ("yes", 1), ("false", 0), ("true", 1)),
    "trigger": (("memory", 0), ("camera", 0x01000000), ("single", 0x02000000), ("segments", 0x03000000),
                ("frames", 0x04000000), ("segments-sync", 0x05000000), ("segments-centre", 0x06000000),
                ("segments-offset", 0x07000000), ("code-8-1", 0x08000001), ("code-8-2", 0x08000002),
                ("code-8-3", 0x08000003)),
}

# Capability id: the tool's format, for every capability the tool names.
FORMATS = {
    0: "camera-mode", 1: "plain", 2: "fps", 3: "size", 4: "shutter", 5: "us", 6: "trigger",
    7: "trigger-counts", 8: "colour-temperature", 11: "on-off", 12: "plain", 13: "plain", 14: "on-off",
    15: "on-off", 16: "plain", 17: "plain", 18: "lut-mode", 19: "signed", 23: "plain", 24: "on-off",
    25: "on-off", 28: "on-off", 29: "plain", 30: "plain-pair", 31: "plain", 32: "pixel-gain", 33: "plain",
    34: "plain", 35: "plain", 36: "plain-pair", 37: "on-off", 39: "plain", 40: "plain", 41: "hex",
    42: "plain", 43: "plain-pair", 44: "plain-pair", 45: "plain-pair", 46: "plain-pair", 47: "size",
    48: "position", 49: "plain", 50: "fps", 51: "size", 52: "plain", 53: "plain", 54: "plain", 55: "plain",
    56: "fps", 57: "plain", 58: "plain", 59: "size-pair", 60: "plain", 61: "plain", 62: "plain", 63: "plain",
    64: "plain", 65: "plain", 72: "plain", 73: "plain", 76: "plain-pair", 77: "plain", 80: "plain",
    81: "plain", 84: "plain", 85: "on-off", 86: "plain", 87: "plain", 88: "plain", 89: "plain-pair",
    90: "on-off", 91: "plain-pair", 92: "on-off", 95: "plain", 96: "plain", 97: "hex", 98: "on-off",
    99: "on-off", 100: "plain", 119: "on-off", 120: "plain", 121: "plain", 122: "plain", 123: "plain",
    127: "ns", 128: "hex", 162: "plain",
}

_HINTS = {
    "size": "a size WxH of at most 1024x1024, e.g. 512x256",
    "size-pair": "a size WxH of at most 1024x1024, e.g. 512x256",
    "position": "a position x,y",
    "fps": "frames per second, e.g. 2000",
    "shutter": "a shutter speed N or 1/N (seconds), e.g. 1/4000",
    "trigger": "a trigger name or code with an optional parameter, e.g. frames,500 or 0x04000000,500",
    "trigger-counts": "a trigger count and ratio, e.g. 100,2",
    "signed": "a signed number, e.g. -5",
    "plain-pair": "a number with an optional second value, e.g. 5 or 5,1",
}


def format_of(ident):
    """The tool's format of capability ``ident``: a number with an optional
    second one for the ids its table does not name."""
    return FORMATS.get(ident, "plain-pair")


def hint(fmt):
    """What a format expects, as the tool says it."""
    if fmt in NAMED:
        return "one of %s (or its number)" % ", ".join(name for name, _ in NAMED[fmt])
    return _HINTS.get(fmt, "a number")


def parse_number(text):
    """A number in decimal or 0x hexadecimal that fits 32 bits, or None."""
    digits, base = (text[2:], 16) if len(text) > 2 and text[:2] in ("0x", "0X") else (text, 10)
    allowed = "0123456789abcdefABCDEF" if base == 16 else "0123456789"
    if not digits or any(c not in allowed for c in digits):
        return None
    value = int(digits, base)
    return value if value <= _U32 else None


def parse_size(text):
    """"WxH" with both sides 1..1024 as width << 16 | height, or None."""
    cut = min((i for i in (text.find("x"), text.find("X")) if i >= 0), default=-1)
    if cut < 0:
        return None
    sides = text[:cut], text[cut + 1:]
    if any(not s or not s.isdigit() or not s.isascii() for s in sides):
        return None
    width, height = int(sides[0]), int(sides[1])
    if not (1 <= width <= SENSOR_SIDE and 1 <= height <= SENSOR_SIDE):
        return None
    return width << 16 | height


def _without(text, suffix):
    return text[:-len(suffix)] if len(text) > len(suffix) and text.endswith(suffix) else text


def _named(fmt, text):
    for name, value in NAMED.get(fmt, ()):
        if name == text:
            return value
    return None


def parse(fmt, text):
    """(value, value2) for a text in format ``fmt``; ValueError when it does not fit."""
    def refuse():
        raise ValueError("invalid value %r: expected %s" % (text, hint(fmt)))

    if fmt in ("size", "size-pair"):
        word = parse_size(text)
        if word is None:
            refuse()
        return (word, 0) if fmt == "size" else (word >> 16, word & 0xFFFF)
    if fmt == "position":
        x_text, _, y_text = text.partition(",")
        x, y = parse_number(x_text), parse_number(y_text)
        if x is None or y is None or x > 0xFFFF or y > 0xFFFF:
            refuse()
        return x << 16 | y, 0
    if fmt == "shutter":
        word = _without(_without(text, "s"), " ")
        value = parse_number(word[2:] if word.startswith("1/") else word)
    elif fmt == "fps":
        value = parse_number(_without(_without(text, "fps"), " "))
    elif fmt in ("us", "ns"):
        value = parse_number(_without(_without(_without(text, "\u00b5s"), "us"), "ns"))
    elif fmt in ("trigger", "trigger-counts", "plain-pair"):
        first, comma, second = text.partition(",")
        value = _named(fmt, first)
        value = parse_number(first) if value is None else value
        value2 = parse_number(second) if comma else (1 if fmt == "trigger-counts" else 0)
        if value is None or value2 is None:
            refuse()
        return value, value2
    elif fmt == "signed":
        magnitude = parse_number(text[1:] if text.startswith("-") else text)
        if magnitude is None or magnitude > 0x7FFFFFFF:
            refuse()
        return magnitude | (0x80000000 if text.startswith("-") else 0), 0
    elif fmt in NAMED:
        value = _named(fmt, text)
        if value is None:
            number = parse_number(text)
            value = number if any(number == v for _, v in NAMED[fmt]) else None
    else:
        value = parse_number(text)
    if value is None:
        refuse()
    return value, 0
