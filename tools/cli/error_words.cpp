// The one table of ErrorCode words. The library's codes are those its
// exports write; codes a host link driver writes pass through the library
// unchanged, so the virtual camera's are named too and any other code is
// reported as the driver's own.
#include "error_words.h"

#include "quorin/quorin.h"
#include "vcam/vcam.h"

#include <cstdio>

namespace quorin::cli {
namespace {

struct ErrorWords {
    std::int32_t code;
    const char *words;
};

constexpr ErrorWords kErrorWords[] = {
    {QUORIN_SUCCESS, "success"},
    {QUORIN_ERR_NOT_INITIALISED, "library not initialised (DEV_Init not called, or DEV_Exit called)"},
    {QUORIN_ERR_OUT_OF_RANGE, "argument out of range: unknown identifier, or a value outside the accepted set"},
    {QUORIN_ERR_NO_MEMORY, "memory could not be allocated"},
    {QUORIN_ERR_LINK_RETRIES, "the link failed three times in a row"},
    {QUORIN_ERR_NO_DATA, "the requested stored data is not available on the camera"},
    {QUORIN_ERR_NOT_ALLOWED, "not allowed in the camera's present mode or configuration"},
    {QUORIN_ERR_GAIN_FILE_READ, "the pixel-gain file or its folder could not be read"},
    {QUORIN_ERR_GAIN_FILE_WRITE, "a settings file (pixel gain, free curves or the registry) could not be written"},
    {QUORIN_ERR_NOT_SUPPORTED, "not supported by this camera model, firmware or link"},
    {QUORIN_ERR_NOT_OPEN, "the device number names no open camera"},
    {QUORIN_ERR_NO_FREE_ENTRY, "no free interface entry or device slot"},
    {QUORIN_ERR_PLAYBACK, "refused while the camera is in playback status"},
    {QUORIN_ERR_NOT_PLAYBACK, "refused while the camera is not in playback status"},
    {QUORIN_ERR_REPLY_MISMATCH, "the camera's reply code does not match the command"},
    {VCAM_ERR_TIMEOUT, "virtual link: the camera did not answer"},
    {VCAM_ERR_NO_LINK, "virtual link: no camera at this host argument or link handle"},
    {VCAM_ERR_BAD_FRAME, "virtual link: a frame the camera cannot decode"},
    {VCAM_ERR_INJECTED, "virtual link: injected fault"},
};

} // namespace

std::string errorWords(std::int32_t code)
{
    for (const ErrorWords &e : kErrorWords)
        if (e.code == code)
            return e.words;
    char text[64];
    std::snprintf(text, sizeof text, "link driver error 0x%X", static_cast<unsigned>(code));
    return text;
}

std::string describeError(std::int32_t code)
{
    return "error " + std::to_string(code) + " (" + errorWords(code) + ")";
}

} // namespace quorin::cli
