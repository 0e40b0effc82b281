// Image transfers through the shipped library against virtual cameras:
// the guards, the output depth, the live cache, the recorded-frame
// numbering, and frame reads and failures on every link type.
#include "caps_fixture.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr uint8_t kFill = 0xA7;
constexpr uint32_t kW = 128, kH = 64, kPixels = kW * kH;
constexpr int32_t kLinkFault = 0x6A6A;

struct Shot {
    int32_t ok;
    int32_t err;
    std::vector<uint8_t> data; // the destination, kFill where nothing was written
};

bool untouched(const std::vector<uint8_t> &d, size_t from = 0)
{
    return std::all_of(d.begin() + static_cast<std::ptrdiff_t>(from), d.end(), [](uint8_t b) { return b == kFill; });
}

// The 8-bit values after the shift 2 set at open, from a 16-bit image.
bool reducesTo(const std::vector<uint8_t> &sixteen, const std::vector<uint8_t> &eight, size_t values)
{
    std::vector<uint16_t> v(values);
    std::memcpy(v.data(), sixteen.data(), 2 * values);
    for (size_t i = 0; i < values; ++i)
        if (std::min(v[i] >> 2, 255) != eight[i])
            return false;
    return true;
}

testing::AssertionResult refused(const Shot &s, int32_t code)
{
    if (s.ok == 0 && s.err == code && untouched(s.data))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "result " << s.ok << ", error " << s.err
                                       << (untouched(s.data) ? "" : ", destination written");
}

} // namespace

class TransferTest : public CapsTest {
protected:
    // Opens a camera with a 128 x 64 picture.
    void openSmall(uint32_t model, uint32_t type)
    {
        open(model, type);
        ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(kW, kH)).ok, 1);
        mode(0);
    }
    // Camera mode 1 (playback) or 0 (live). The reads fill the row the
    // transfers of that mode use: in playback the row of the channel, known
    // once the channel number was read.
    void mode(uint32_t m)
    {
        ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, m).ok, 1);
        if (m == 1) {
            ASSERT_EQ(get(QUORIN_CAP_CHANNEL_NUMBER).value, 1u);
        }
        ASSERT_EQ(get(QUORIN_CAP_RESOLUTION).value, packed(kW, kH));
        for (uint32_t id : {QUORIN_CAP_VALUE_73, QUORIN_CAP_TRIGGER_MODE, QUORIN_CAP_TRIGGER_COUNTS})
            ASSERT_EQ(get(id).ok, 1);
    }
    // Runs one transfer into a fresh destination of bytes + 64 filled bytes.
    template <typename Call> static Shot shot(size_t bytes, Call call)
    {
        Shot s{0, 0, std::vector<uint8_t>(bytes + 64, kFill)};
        s.ok = call(s.data.data(), &s.err);
        return s;
    }
    Shot live(int32_t depth, size_t bytes)
    {
        return shot(bytes, [&](uint8_t *d, int32_t *e) { return DEV_TransferLiveImage(dev_, 0, depth, d, e); });
    }
    Shot memory(uint32_t n, int32_t depth, size_t bytes)
    {
        return shot(bytes, [&](uint8_t *d, int32_t *e) { return DEV_TransferMemImage(dev_, 0, n, depth, d, e); });
    }
    Shot split(uint32_t n, int32_t depth, size_t bytes)
    {
        return shot(bytes, [&](uint8_t *d, int32_t *e) {
            return DEV_TransferMemImageStart(dev_, 0, n, 0, 0, e) && DEV_TransferMemImageEnd(dev_, 0, depth, d, e);
        });
    }
    Shot end(size_t bytes)
    {
        return shot(bytes, [&](uint8_t *d, int32_t *e) { return DEV_TransferMemImageEnd(dev_, 0, 8, d, e); });
    }
    Shot cache(size_t bytes)
    {
        return shot(bytes, [&](uint8_t *d, int32_t *e) {
            return DEV_TransferLiveImageCache(dev_, 0, d, reinterpret_cast<uint32_t *>(e));
        });
    }
    // The memory image request among the commands sent since the last look.
    CameraCommand lastRequest()
    {
        CameraCommand found{0, 0, 0};
        for (const CameraCommand &c : sent())
            if (c.code == 178)
                found = c;
        return found;
    }
    void checkCache(uint32_t model, uint32_t type);
};

TEST(TransferGuards, EveryTransferNeedsTheLibraryInitialised)
{
    int32_t e[4] = {0, 0, 0, 0};
    uint32_t cacheErr = 0;
    DEV_Exit(e);
    std::vector<uint8_t> dest(64, kFill);
    EXPECT_EQ(DEV_TransferLiveImage(0, 0, 8, dest.data(), &e[0]) + DEV_TransferMemImage(0, 0, 1, 8, dest.data(), &e[1]) +
                  DEV_TransferMemImageStart(0, 0, 1, 0, 0, &e[2]) + DEV_TransferMemImageEnd(0, 0, 8, dest.data(), &e[3]) +
                  DEV_TransferLiveImageCache(0, 0, dest.data(), &cacheErr),
              0);
    for (int32_t err : e)
        EXPECT_EQ(err, QUORIN_ERR_NOT_INITIALISED);
    EXPECT_EQ(cacheErr, static_cast<uint32_t>(QUORIN_ERR_NOT_INITIALISED));
    EXPECT_TRUE(untouched(dest));
}

TEST_F(TransferTest, ModeGuardsAreCheckedBeforeTheCameraIsAsked)
{
    openSmall(VCAM_K5, 7);
    sent();
    EXPECT_TRUE(refused(memory(1, 8, kPixels), QUORIN_ERR_NOT_PLAYBACK));
    EXPECT_TRUE(refused(split(1, 8, kPixels), QUORIN_ERR_NOT_PLAYBACK));
    EXPECT_TRUE(refused(end(kPixels), QUORIN_ERR_NOT_PLAYBACK));
    EXPECT_TRUE(refused(cache(2 * kPixels), QUORIN_ERR_NOT_ALLOWED)) << "the cache is not kept";
    EXPECT_TRUE(sent().empty());

    // An area that does not fit the 1024 x 1024 sensor.
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(1100, 64)).ok, 1);
    sent();
    EXPECT_TRUE(refused(live(8, 1100 * 64), QUORIN_ERR_NOT_ALLOWED));
    EXPECT_TRUE(sent().empty());
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(kW, kH)).ok, 1);

    mode(1);
    sent();
    EXPECT_TRUE(refused(live(8, kPixels), QUORIN_ERR_PLAYBACK));
    EXPECT_TRUE(refused(cache(2 * kPixels), QUORIN_ERR_PLAYBACK)) << "playback is checked before the cache switch";
    EXPECT_TRUE(sent().empty());

    // Exactly 16 selects 16-bit output; any other depth gives one byte per pixel.
    Shot eight = memory(3, 8, 2 * kPixels);
    ASSERT_EQ(eight.ok, 1);
    EXPECT_FALSE(untouched(eight.data));
    EXPECT_TRUE(untouched(eight.data, kPixels));
    for (int32_t depth : {0, 12, 15, 17, -16})
        EXPECT_EQ(memory(3, depth, 2 * kPixels).data, eight.data) << "depth " << depth;
    Shot sixteen = memory(3, 16, 2 * kPixels);
    ASSERT_EQ(sixteen.ok, 1);
    EXPECT_TRUE(untouched(sixteen.data, 2 * kPixels));
    EXPECT_TRUE(reducesTo(sixteen.data, eight.data, kPixels));

    // Start and End give the frame the single call gives.
    EXPECT_EQ(split(3, 16, 2 * kPixels).data, sixteen.data);
    EXPECT_EQ(split(3, 8, 2 * kPixels).data, eight.data);
}

void TransferTest::checkCache(uint32_t model, uint32_t type)
{
    openSmall(model, type);
    const size_t values = kPixels * (model == VCAM_K5C ? 3 : 1);
    ASSERT_EQ(set(QUORIN_CAP_KEEP_LIVE_CACHE, 1).ok, 1);
    Shot c = cache(2 * values);
    ASSERT_EQ(c.ok, 1);
    EXPECT_TRUE(std::all_of(c.data.begin(), c.data.begin() + 2 * values, [](uint8_t b) { return b == 0; }))
        << "zeros after open";
    EXPECT_TRUE(untouched(c.data, 2 * values)) << "two bytes per value";
    ASSERT_EQ(live(16, 2 * values).ok, 1);
    EXPECT_EQ(cache(2 * values).data, c.data) << "a 16-bit transfer leaves the cache alone";

    Shot eight = live(8, 2 * values);
    ASSERT_EQ(eight.ok, 1);
    EXPECT_TRUE(untouched(eight.data, values));
    c = cache(2 * values);
    ASSERT_EQ(c.ok, 1);
    EXPECT_TRUE(reducesTo(c.data, eight.data, values)) << "the 16-bit values of the 8-bit transfer";
    EXPECT_FALSE(std::all_of(c.data.begin(), c.data.end() - 64, [](uint8_t b) { return b == 0; }));

    // The same recorded frame at both depths: the cache holds the 16-bit image.
    mode(1);
    ASSERT_EQ(memory(2, 8, values).ok, 1);
    Shot sixteen = memory(2, 16, 2 * values);
    ASSERT_EQ(sixteen.ok, 1);
    mode(0);
    EXPECT_EQ(cache(2 * values).data, sixteen.data);
}

TEST_F(TransferTest, LiveCacheKeepsTheLastEightBitResultMonochrome) { checkCache(VCAM_K5, 7); }

TEST_F(TransferTest, LiveCacheKeepsSixBytesPerPixelColour) { checkCache(VCAM_K5C, 3); }

TEST_F(TransferTest, RecordedFramesMapToCameraFramesAndSegments)
{
    openSmall(VCAM_K5, 7);
    ASSERT_EQ(get(QUORIN_CAP_FRAME_COUNT).ok, 1);
    auto configure = [&](uint32_t trigger, uint32_t k, uint32_t ratio, uint32_t frames) {
        mode(0);
        ASSERT_EQ(set(QUORIN_CAP_TRIGGER_COUNTS, k, ratio).ok, 1);
        ASSERT_EQ(set(QUORIN_CAP_TRIGGER_MODE, trigger, frames).ok, 1);
        mode(1);
        sent();
    };
    struct Case {
        uint32_t n, p1, segment; // segment 0: no segment bits
    };
    auto expect = [&](std::initializer_list<Case> cases) {
        for (const Case &c : cases) {
            ASSERT_EQ(memory(c.n, 8, kPixels).ok, 1);
            const CameraCommand r = lastRequest();
            EXPECT_EQ(r.p1, c.p1) << "frame " << c.n;
            EXPECT_EQ(r.p2, 1u << 24 | c.segment << 20 | 0x00010000) << "frame " << c.n;
        }
    };
    // Two halves swapped, ten frames per segment, two segments.
    configure(0x06000000, 10, 2, 0);
    expect({{1, 6, 1}, {5, 10, 1}, {6, 1, 1}, {10, 5, 1}, {11, 6, 2}, {21, 6, 1}});
    ASSERT_EQ(DEV_TransferMemImageStart(dev_, 0, 15, 0, 0, nullptr), 1);
    const CameraCommand started = lastRequest();
    EXPECT_EQ(started.p1, 10u);
    EXPECT_EQ(started.p2, 0x01210000u);
    // An odd count puts the extra frame in the second half.
    configure(0x06000000, 9, 3, 0);
    expect({{1, 6, 1}, {4, 9, 1}, {5, 1, 1}, {9, 5, 1}, {10, 6, 2}, {19, 6, 3}, {28, 6, 1}});
    // Frame 1 of a segment lies at ring position s.
    configure(0x07000000, 10, 1, 3);
    expect({{1, 4, 1}, {7, 10, 1}, {8, 1, 1}, {10, 3, 1}});
    configure(0x07000000, 10, 1, 0);
    expect({{10, 10, 1}});
    // Any other trigger: the frame number as it is, no segment.
    configure(0, 10, 1, 0);
    expect({{1, 1, 0}, {37, 37, 0}});
}

TEST_F(TransferTest, EveryLinkTypeReadsFramesAndFailsWithoutTouchingTheDestination)
{
    const struct {
        uint32_t type, model;
        VcamCall call;
        uint32_t nth; // the first failing call: on types 2 and 7 the data follows the command's reply
        int32_t err;
    } links[] = {{2, VCAM_K5C, VCAM_CALL_RECEIVE, 2, QUORIN_ERR_LINK_RETRIES},
                 {7, VCAM_K5, VCAM_CALL_RECEIVE, 2, QUORIN_ERR_LINK_RETRIES},
                 {3, VCAM_K5, VCAM_CALL_AWAIT_TRANSFER, 1, kLinkFault},
                 {4, VCAM_K5C, VCAM_CALL_TRANSACT_DATA, 1, kLinkFault}};
    for (const auto &link : links) {
        SCOPED_TRACE(testing::Message() << "link type " << link.type);
        openSmall(link.model, link.type);
        const size_t values = kPixels * (link.model == VCAM_K5C ? 3 : 1);
        sent();
        Shot good = live(8, values);
        ASSERT_EQ(good.ok, 1);
        EXPECT_FALSE(untouched(good.data));
        EXPECT_TRUE(untouched(good.data, values));
        const std::vector<CameraCommand> cmds = sent();
        ASSERT_FALSE(cmds.empty());
        EXPECT_EQ(cmds.back().code, 183);
        EXPECT_EQ(cmds.back().p1, 0u);
        EXPECT_EQ(cmds.back().p2, 0x00010000u);
        if (link.type == 3) {
            ASSERT_EQ(cmds.size(), 2u);
            EXPECT_EQ(cmds[0].code, 188);
            EXPECT_EQ(cmds[0].p2, kPixels * 10 / 8) << "the packed frame's bytes";
        }

        vcam_fail_calls(camera(), link.call, link.nth, 0, kLinkFault);
        EXPECT_TRUE(refused(live(8, values), link.err));
        vcam_clear_faults(camera());
        EXPECT_EQ(live(16, 2 * values).ok, 1);
    }
}

namespace {

struct Probe {
    uint32_t ok;
    int32_t err;
    uint32_t rgb[3];
};

Probe probe(uint32_t dev, uint32_t x, uint32_t y)
{
    Probe p{0, 0x5A5A, {0, 0, 0}};
    uint32_t size = 0;
    p.ok = DEV_GetData(dev, 0, QUORIN_DATA_PIXEL_PROBE, x, y, p.rgb, &size, &p.err);
    if (p.ok) {
        EXPECT_EQ(size, 12u);
    }
    return p;
}

} // namespace

// The probe reads the last image, whichever depth produced it: the colour
// 8-bit path keeps planes before its matrix and look-up, the 16-bit path
// finished triples, and both must give the values of the 16-bit image.
TEST_F(TransferTest, PixelProbeReadsTheLastImageInRedGreenBlue)
{
    openSmall(VCAM_K5C, 2);
    Probe p = probe(dev_, kW + 1, 0);
    EXPECT_EQ(p.ok, 0u);
    EXPECT_EQ(p.err, QUORIN_ERR_OUT_OF_RANGE) << "bounds are checked first";
    p = probe(dev_, 3, 3);
    EXPECT_EQ(p.ok, 0u);
    EXPECT_EQ(p.err, QUORIN_ERR_NOT_ALLOWED) << "no image yet";

    mode(1);
    // A gamma curve, so that the look-up shows; reading the mode in
    // playback rebuilds the tables of recorded frames.
    ASSERT_EQ(set(QUORIN_CAP_LUT_MODE, 2).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_LUT_MODE).value, 2u);
    Shot sixteen = memory(5, 16, 6 * kPixels);
    ASSERT_EQ(sixteen.ok, 1);
    std::vector<uint16_t> image(3 * kPixels);
    std::memcpy(image.data(), sixteen.data.data(), 6 * kPixels);
    // Corners, x = width, and a whole row across the scene's colour bars.
    std::vector<std::array<uint32_t, 2>> points = {{0, 0}, {1, 0}, {0, 1}, {kW - 1, kH - 1}, {kW, 0}};
    for (uint32_t x = 0; x < kW; ++x)
        points.push_back({x, 31});
    for (bool eightBit : {false, true}) {
        if (eightBit) {
            ASSERT_EQ(memory(5, 8, 3 * kPixels).ok, 1);
        }
        for (const auto &pt : points) {
            SCOPED_TRACE(testing::Message() << (eightBit ? "8" : "16") << "-bit, x " << pt[0] << " y " << pt[1]);
            p = probe(dev_, pt[0], pt[1]);
            ASSERT_EQ(p.ok, 1u);
            EXPECT_EQ(p.err, 0x5A5A) << "success leaves the error word";
            const size_t i = size_t{pt[1]} * kW + pt[0]; // x = width is the next row's first pixel
            // Stored blue, green, red after open; the probe answers red first.
            EXPECT_EQ(p.rgb[0], image[3 * i + 2]);
            EXPECT_EQ(p.rgb[1], image[3 * i + 1]);
            EXPECT_EQ(p.rgb[2], image[3 * i]);
        }
    }
    EXPECT_EQ(probe(dev_, kW, kH).ok, 1u) << "both bounds are inclusive";
    EXPECT_EQ(probe(dev_, 0, kH + 1).err, QUORIN_ERR_OUT_OF_RANGE);

}

TEST_F(TransferTest, PixelProbeOfAMonochromeImageIsItsCorrectedValueThreeTimes)
{
    openSmall(VCAM_K5, 7);
    int32_t err = 0;
    // With the identity curve the 16-bit image is the corrected value itself.
    ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 0xFFFFFFFF, 0, nullptr, 0, &err), 1u);
    Shot sixteen = live(16, 2 * kPixels);
    ASSERT_EQ(sixteen.ok, 1);
    std::vector<uint16_t> image(kPixels);
    std::memcpy(image.data(), sixteen.data.data(), 2 * kPixels);
    for (uint32_t i : {0u, 1u, 9u * kW + 100, kPixels - 1}) {
        const Probe p = probe(dev_, i % kW, i / kW);
        ASSERT_EQ(p.ok, 1u);
        EXPECT_EQ(p.rgb[0], image[i]);
        EXPECT_EQ(p.rgb[1], image[i]);
        EXPECT_EQ(p.rgb[2], image[i]);
    }
    // A refused transfer leaves the last image in place.
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(1100, 64)).ok, 1);
    EXPECT_EQ(live(8, 1100 * 64).ok, 0);
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(kW, kH)).ok, 1);
    EXPECT_EQ(probe(dev_, 100, 9).rgb[0], image[9 * kW + 100]);

    // The largest area: its inclusive corner lies past the image buffers.
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(1024, 1024)).ok, 1);
    EXPECT_EQ(probe(dev_, 1023, 1023).ok, 1u);
    EXPECT_EQ(probe(dev_, 1024, 1023).err, QUORIN_ERR_OUT_OF_RANGE);
}
