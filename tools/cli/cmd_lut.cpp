// quorin lut: show the look-up mode, choose a preset, or set the user
// look-up settings (brightness, contrast, gain, gamma, negative), which
// the library keeps per camera number.
#include "commands.h"

#include "cli_error.h"
#include "values.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace quorin::cli {
namespace {

// The 76-byte look-up settings record (DEV_GetData / DEV_SetData
// QUORIN_DATA_LUT_SETTINGS), channels red, green, blue.
struct LutSettings {
    std::int32_t brightness[3];
    std::int32_t contrast[3];
    double gain[3];
    double gamma[3];
    std::uint8_t negative[3];
    std::uint8_t freeMode;
};
constexpr std::size_t kLutSettingsBytes = 76;
constexpr std::uint32_t kUserLut = 11;

void unpack(const unsigned char *b, LutSettings &s)
{
    std::memcpy(s.brightness, b, 12);
    std::memcpy(s.contrast, b + 12, 12);
    std::memcpy(s.gain, b + 24, 24);
    std::memcpy(s.gamma, b + 48, 24);
    std::memcpy(s.negative, b + 72, 3);
    s.freeMode = b[75];
}

void pack(const LutSettings &s, unsigned char *b)
{
    std::memcpy(b, s.brightness, 12);
    std::memcpy(b + 12, s.contrast, 12);
    std::memcpy(b + 24, s.gain, 24);
    std::memcpy(b + 48, s.gamma, 24);
    std::memcpy(b + 72, s.negative, 3);
    b[75] = s.freeMode;
}

// One number for all three channels, or R,G,B.
template <typename T>
void parseChannels(const std::string &text, const char *what, T (&out)[3])
{
    std::vector<std::string> parts = CLI::detail::split(text, ',');
    if (parts.size() != 1 && parts.size() != 3)
        throw UsageError(std::string("--") + what + " takes one value or three (R,G,B), not '" + text + "'");
    for (int ch = 0; ch < 3; ++ch) {
        const std::string &p = parts[parts.size() == 1 ? 0 : static_cast<std::size_t>(ch)];
        T v{};
        if (!CLI::detail::lexical_cast(p, v) || p.empty())
            throw UsageError(std::string("invalid --") + what + " value '" + p + "'");
        out[ch] = v;
    }
}

struct LutOptions {
    std::string mode;
    std::optional<std::string> brightness, contrast, gain, gamma, negative;
    Value parsedMode;
    bool setMode = false;
    // Parsed user settings, applied over the camera's present ones.
    bool hasBrightness = false, hasContrast = false, hasGain = false, hasGamma = false, hasNegative = false;
    std::int32_t b[3]{}, c[3]{};
    double g[3]{}, gm[3]{};
    std::uint8_t n[3]{};

    bool userValues() const { return hasBrightness || hasContrast || hasGain || hasGamma || hasNegative; }
};

std::string showSettings(const LutSettings &s)
{
    char text[400];
    std::snprintf(text, sizeof text,
                  "  brightness %d, %d, %d\n  contrast   %d, %d, %d\n  gain       %g, %g, %g\n"
                  "  gamma      %g, %g, %g\n  negative   %s, %s, %s\n  free curve %s\n",
                  s.brightness[0], s.brightness[1], s.brightness[2], s.contrast[0], s.contrast[1], s.contrast[2],
                  s.gain[0], s.gain[1], s.gain[2], s.gamma[0], s.gamma[1], s.gamma[2], s.negative[0] ? "on" : "off",
                  s.negative[1] ? "on" : "off", s.negative[2] ? "on" : "off", s.freeMode ? "on" : "off");
    return text;
}

LutSettings readSettings(CameraSession &camera, std::uint32_t mode)
{
    unsigned char bytes[kLutSettingsBytes] = {};
    std::uint32_t size = 0;
    std::int32_t err = 0;
    CameraSession::check(DEV_GetData(camera.device(), 0, QUORIN_DATA_LUT_SETTINGS, mode, 0, bytes, &size, &err), err,
                         "read the look-up settings");
    LutSettings s{};
    unpack(bytes, s);
    return s;
}

} // namespace

Command addLutCommand(CLI::App &parent)
{
    auto o = std::make_shared<LutOptions>();
    Command c;
    c.app = parent.add_subcommand("lut", "Show or choose the look-up table, or set the user look-up settings");
    c.app->add_option("mode", o->mode,
                      "normal (1), gamma-0.7 (2), gain-2 (3), gain-4 (4), negative (5) or user (11); "
                      "none shows the present mode");
    c.app->add_option("--brightness", o->brightness, "User LUT brightness, one value or R,G,B (integers)");
    c.app->add_option("--contrast", o->contrast, "User LUT contrast, one value or R,G,B (integers)");
    c.app->add_option("--gain", o->gain, "User LUT gain, one value or R,G,B (1.0 = unchanged)");
    c.app->add_option("--gamma", o->gamma, "User LUT gamma, one value or R,G,B (1.0 = linear)");
    c.app->add_option("--negative", o->negative, "User LUT negative image: on/off, one value or R,G,B");
    c.app->footer("The user settings are kept by the library per camera number and selected with mode user.\n"
                  "\nExamples:\n  quorin lut\n  quorin lut gamma-0.7\n  quorin lut 3\n"
                  "  quorin lut user --gamma 0.6 --gain 1.5\n  quorin lut user --negative off,off,on");
    c.check = [o] {
        o->setMode = !o->mode.empty();
        if (o->setMode)
            o->parsedMode = parseValue(Format::LutMode, o->mode);
        if (o->brightness) {
            parseChannels(*o->brightness, "brightness", o->b);
            o->hasBrightness = true;
        }
        if (o->contrast) {
            parseChannels(*o->contrast, "contrast", o->c);
            o->hasContrast = true;
        }
        if (o->gain) {
            parseChannels(*o->gain, "gain", o->g);
            o->hasGain = true;
        }
        if (o->gamma) {
            parseChannels(*o->gamma, "gamma", o->gm);
            o->hasGamma = true;
        }
        if (o->negative) {
            std::vector<std::string> split = CLI::detail::split(*o->negative, ',');
            if (split.size() != 1 && split.size() != 3)
                throw UsageError("--negative takes one value or three (R,G,B), not '" + *o->negative + "'");
            for (int ch = 0; ch < 3; ++ch)
                o->n[ch] = static_cast<std::uint8_t>(
                    parseValue(Format::OnOff, split[split.size() == 1 ? 0 : static_cast<std::size_t>(ch)]).value);
            o->hasNegative = true;
        }
        for (double gamma : o->gm)
            if (o->hasGamma && !(gamma > 0))
                throw UsageError("--gamma must be above 0");
        if (o->userValues() && (!o->setMode || o->parsedMode.value != kUserLut))
            throw UsageError("--brightness, --contrast, --gain, --gamma and --negative go with mode user");
    };
    c.run = [o](CameraSession &camera) {
        if (o->userValues()) {
            LutSettings s = readSettings(camera, kUserLut);
            for (int ch = 0; ch < 3; ++ch) {
                if (o->hasBrightness)
                    s.brightness[ch] = o->b[ch];
                if (o->hasContrast)
                    s.contrast[ch] = o->c[ch];
                if (o->hasGain)
                    s.gain[ch] = o->g[ch];
                if (o->hasGamma)
                    s.gamma[ch] = o->gm[ch];
                if (o->hasNegative)
                    s.negative[ch] = o->n[ch];
            }
            unsigned char bytes[kLutSettingsBytes];
            pack(s, bytes);
            std::int32_t err = 0;
            CameraSession::check(
                DEV_SetData(camera.device(), 0, QUORIN_DATA_LUT_SETTINGS, kUserLut, 0, bytes, 0, &err), err,
                "store the user look-up settings");
        }
        if (o->setMode)
            camera.set(QUORIN_CAP_LUT_MODE, o->parsedMode.value, "the LUT mode");
        const std::uint32_t mode = camera.get(QUORIN_CAP_LUT_MODE, "the LUT mode");
        std::printf("LUT mode: %s\n%s", formatValue(Format::LutMode, mode).c_str(),
                    showSettings(readSettings(camera, mode)).c_str());
        return 0;
    };
    return c;
}

} // namespace quorin::cli
