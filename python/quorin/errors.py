"""Error codes and the exception that carries them.

Every QUORIN export writes an ``ErrorCode`` through its last argument. The
binding turns a failed call into :class:`QuorinError`, which keeps the code
and its meaning. Codes written by a host link driver pass through the
library unchanged; the virtual camera's link codes are named here too, and
any other code is reported as the driver's own.
"""

# code: (name of the header constant without QUORIN_, meaning)
ERROR_TABLE = {
    1: ("SUCCESS", "success"),
    2: ("ERR_NOT_INITIALISED", "library not initialised (DEV_Init not called, or DEV_Exit called)"),
    5: ("ERR_OUT_OF_RANGE",
        "argument out of range: unknown identifier, or a value outside the accepted set"),
    6: ("ERR_NO_MEMORY", "memory could not be allocated"),
    9: ("ERR_LINK_RETRIES", "the link failed three times in a row"),
    10: ("ERR_NO_DATA", "the requested stored data is not available on the camera"),
    11: ("ERR_NOT_ALLOWED", "not allowed in the camera's present mode or configuration"),
    16: ("ERR_GAIN_FILE_READ", "the pixel-gain file or its folder could not be read"),
    17: ("ERR_GAIN_FILE_WRITE",
         "a settings file (pixel gain, free curves or the registry) could not be written"),
    21: ("ERR_NOT_SUPPORTED", "not supported by this camera model, firmware or link"),
    103: ("ERR_NOT_OPEN", "the device number names no open camera"),
    105: ("ERR_NO_FREE_ENTRY", "no free interface entry or device slot"),
    110: ("ERR_PLAYBACK", "refused while the camera is in playback status"),
    111: ("ERR_NOT_PLAYBACK", "refused while the camera is not in playback status"),
    203: ("ERR_REPLY_MISMATCH", "the camera's reply code does not match the command"),
    # The virtual camera's link driver (vcam.h).
    0x7001: ("VCAM_ERR_TIMEOUT", "virtual link: the camera did not answer"),
    0x7002: ("VCAM_ERR_NO_LINK", "virtual link: no camera at this host argument or link handle"),
    0x7003: ("VCAM_ERR_BAD_FRAME", "virtual link: a frame the camera cannot decode"),
    0x7004: ("VCAM_ERR_INJECTED", "virtual link: injected fault"),
}

SUCCESS = 1


def error_name(code):
    """The constant's name for ``code`` (``"ERR_NOT_PLAYBACK"``), or None."""
    entry = ERROR_TABLE.get(code)
    return entry[0] if entry else None


def error_meaning(code):
    """Words for an ErrorCode; unknown codes are the link driver's own."""
    entry = ERROR_TABLE.get(code)
    if entry is not None:
        return entry[1]
    if code == 0:
        return "failed without writing an error code"
    return "error 0x%X written by the host's link driver" % (code & 0xFFFFFFFF)


class QuorinError(Exception):
    """A QUORIN call failed.

    Attributes:
        code: the ErrorCode the library wrote (an int).
        meaning: words for that code.
        name: the header constant's name without ``QUORIN_`` (or None).
        function: the export that failed, e.g. ``"DEV_TransferMemImage"``.
    """

    def __init__(self, code, function=None, detail=None):
        self.code = int(code)
        self.meaning = error_meaning(self.code)
        self.name = error_name(self.code)
        self.function = function
        self.detail = detail
        text = "error %d (%s)" % (self.code, self.meaning)
        if function:
            text = "%s: %s" % (function, text)
        if detail:
            text = "%s [%s]" % (text, detail)
        super().__init__(text)


class LibraryNotFound(OSError):
    """libquorin.so (or libquorin_vcam.so) was not found; ``tried`` lists where it was looked for."""

    def __init__(self, name, tried):
        self.tried = list(tried)
        super().__init__("%s not found; looked in: %s" % (name, ", ".join(self.tried) or "nothing"))


class DriverError(OSError):
    """A host link-driver library could not be used."""
