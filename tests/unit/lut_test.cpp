// Look-up table generation against values computed here independently,
// and the upload per link type and model.
#include "data/lut.h"

#include "bringup_fixture.h"

#include <cmath>

using quorin::g_state;
using quorin::generateLut;

namespace {

std::vector<std::uint16_t> table(std::uint16_t *t)
{
    return std::vector<std::uint16_t>(t, t + 1024);
}

} // namespace

class Lut : public BringUp {
protected:
    void SetUp() override
    {
        BringUp::SetUp();
        dev_ = openVirtual(config(VCAM_K5C, 7));
        setGains(16, 16, 16);
    }
    void setGains(std::uint32_t r, std::uint32_t g, std::uint32_t b)
    {
        auto &cs = g_state.devices[dev_].channelSettings[0];
        cs.colourGainR = r;
        cs.colourGainG = g;
        cs.colourGainB = b;
    }
    std::vector<std::uint16_t> base(int ch) { return table(g_state.buffers.baseLut[0][ch][dev_]); }
    std::vector<std::uint16_t> output(int ch) { return table(g_state.buffers.outputLut[0][ch][dev_]); }
    quorin::LutSettings &user() { return g_state.devices[dev_].userLut; }
    std::uint32_t dev_ = 0;
};

TEST_F(Lut, PresetsGiveIdentityNegativeAndGainCurves)
{
    ASSERT_TRUE(generateLut(dev_, 0, 0));
    for (int ch = 0; ch < 3; ++ch)
        for (int i = 0; i < 1024; ++i) {
            ASSERT_EQ(base(ch)[i], i);
            ASSERT_EQ(output(ch)[i], i);
        }
    ASSERT_TRUE(generateLut(dev_, 0, 4));
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(base(1)[i], 1023 - i);
        ASSERT_EQ(output(1)[i], 1023 - i);
    }
    ASSERT_TRUE(generateLut(dev_, 0, 3));
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(base(2)[i], std::min(4 * i, 1023));
}

TEST_F(Lut, GammaRoundsByTheTenthsDigit)
{
    ASSERT_TRUE(generateLut(dev_, 0, 1));
    auto b = base(0);
    EXPECT_EQ(b[0], 0);
    EXPECT_EQ(b[1023], 1023);
    int roundedUp = 0;
    for (int i = 0; i < 1024; ++i) {
        double x = std::pow(i / 1023.0, 0.7) * 1023.0;
        int tenths = static_cast<int>(x * 10.0) % 10;
        int expected = std::min(1023, static_cast<int>(x) + (tenths >= 5 ? 1 : 0));
        roundedUp += tenths >= 5;
        ASSERT_EQ(b[i], expected) << i;
    }
    EXPECT_GT(roundedUp, 100) << "the rounding rule was exercised";
}

TEST_F(Lut, ContrastAndBrightnessOfTheUserSetting)
{
    user() = quorin::identityLutSettings();
    user().contrast[0] = -512; // flat at the midpoint
    user().gain[0] = 1.5;
    user().brightness[1] = 100;
    user().contrast[2] = 256; // factor 2 around 512
    ASSERT_TRUE(generateLut(dev_, 0, 5));
    for (int i = 0; i < 1024; i += 37) {
        ASSERT_EQ(base(0)[i], 768);
        ASSERT_EQ(base(1)[i], std::min(i + 100, 1023));
        ASSERT_EQ(base(2)[i], std::clamp(2 * (i - 512) + 512, 0, 1023));
    }
}

TEST_F(Lut, ColourTemperatureClampsOnTheFormulaPathButNotOnTheFreeCurvePath)
{
    setGains(32, 16, 8);
    ASSERT_TRUE(generateLut(dev_, 0, 0));
    EXPECT_EQ(output(0)[511], 1022);
    EXPECT_EQ(output(0)[600], 1023);
    EXPECT_EQ(output(2)[600], 300);

    user() = quorin::identityLutSettings();
    user().freeMode = 1;
    user().posiNega[0] = 1; // ignored on this path
    ASSERT_TRUE(generateLut(dev_, 0, 5));
    EXPECT_EQ(output(0)[600], 1200) << "unclamped";
    EXPECT_EQ(output(0)[1023], 2046);
    EXPECT_EQ(base(0)[600], 600);
}

TEST_F(Lut, NegativeImageThroughTheColourTemperature)
{
    setGains(8, 16, 16);
    ASSERT_TRUE(generateLut(dev_, 0, 4));
    // base = 1023 - i; y = i * 0.5; output = NOT y.
    EXPECT_EQ(output(0)[0], 1023);
    EXPECT_EQ(output(0)[100], (~50) & 0x3FF);
    setGains(0, 16, 16);
    ASSERT_TRUE(generateLut(dev_, 0, 4));
    EXPECT_EQ(output(0)[100], 0x3FF) << "y <= 0 gives white";
}

TEST_F(Lut, FreeCurvesOfAMonochromeCameraSpreadRedToAllChannels)
{
    std::uint32_t mono = openVirtual(config(VCAM_K5, 7));
    auto &b = g_state.buffers;
    for (int i = 0; i < 1024; ++i) {
        b.freeLut[0][mono][i] = static_cast<std::uint16_t>(1023 - i);
        b.freeLut[1][mono][i] = 5;
        b.freeLut[2][mono][i] = 6;
    }
    g_state.devices[mono].userLut = quorin::identityLutSettings();
    g_state.devices[mono].userLut.freeMode = 1;
    auto &cs = g_state.devices[mono].channelSettings[1];
    cs.colourGainR = cs.colourGainG = cs.colourGainB = 16;
    ASSERT_TRUE(generateLut(mono, 7, 5)); // any non-zero row is row 1
    for (int ch = 0; ch < 3; ++ch)
        EXPECT_EQ(table(b.baseLut[1][ch][mono]), table(b.freeLut[0][mono]));
}

TEST_F(Lut, UnknownPresetsAndTheIdentityPreset)
{
    ASSERT_TRUE(generateLut(dev_, 0, 4));
    auto before = base(0);
    EXPECT_FALSE(generateLut(dev_, 0, 6));
    EXPECT_FALSE(generateLut(dev_, 0, 0xFFFFFFFE));
    EXPECT_EQ(base(0), before) << "refused presets leave the tables alone";
    user().gain[0] = 3.0;
    ASSERT_TRUE(generateLut(dev_, 0, quorin::kIdentityPreset));
    EXPECT_EQ(base(0)[700], 700);
}

TEST_F(Lut, UploadSendsEightBitCurvesPerLinkTypeAndModel)
{
    std::int32_t err = 0;
    EXPECT_EQ(quorin::uploadLut(dev_, 10, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_OUT_OF_RANGE);

    struct Case {
        std::uint32_t model, type;
        std::vector<std::uint32_t> sendLengths;
        std::uint32_t p1;
    } cases[] = {{VCAM_K5C, 3, {10, 1024, 1024, 1024}, 1},
                 {VCAM_K5, 3, {10, 1024}, 0},
                 {VCAM_K5C, 2, {4 + 3072}, 0},
                 {VCAM_K5, 4, {2 + 1024}, 0}};
    for (const Case &c : cases) {
        std::uint32_t dev = openVirtual(config(c.model, c.type));
        ASSERT_TRUE(generateLut(dev, 0, 0));
        VcamCamera *cam = lastCamera();
        vcam_trace_clear(cam);
        ASSERT_EQ(quorin::uploadLut(dev, 11, &err), 1u) << c.type;
        std::vector<std::uint32_t> lengths;
        for (std::size_t i = 0; i < vcam_trace_size(cam); ++i) {
            VcamTraceEntry e;
            vcam_trace_entry(cam, i, &e);
            if (e.call == VCAM_CALL_SEND)
                lengths.push_back(e.length);
        }
        EXPECT_EQ(lengths, c.sendLengths) << "model " << c.model << " type " << c.type;
        EXPECT_EQ(commands(cam).at(0).code, 187);
        EXPECT_EQ(commands(cam).at(0).p1, c.p1);
        close(dev);
    }
}
