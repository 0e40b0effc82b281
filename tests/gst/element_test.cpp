// quorinsrc in pipelines of this process, against virtual cameras and the
// camera of the test link driver (whose trace and faults the tests reach):
// caps, time stamps, refusals, failures and the camera's lifecycle.
#include "quorin_src.h"
#include "vcam/vcam.h"

#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <vector>

namespace {

const std::string kDriver = std::string("camera=driver:") + QUORIN_GST_TEST_DRIVER + " host-arg=10759 ";

// The driver's camera: the element loads the same file.
VcamCamera *driverCamera()
{
    static void *driver = dlopen(QUORIN_GST_TEST_DRIVER, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<VcamCamera *(*)()>(dlsym(driver, "quorin_gst_test_camera"))();
}

// Whether the driver's camera was asked to leave live mode (command 114
// into playback, or a recorded frame) since its trace was cleared.
bool modeChanged()
{
    std::vector<CameraCommand> commands(vcam_commands(driverCamera(), nullptr, 0));
    vcam_commands(driverCamera(), commands.data(), commands.size());
    return std::any_of(commands.begin(), commands.end(),
                       [](const CameraCommand &c) { return (c.code == 114 && c.p1 >> 24 == 4) || c.code == 178; });
}

struct Outcome {
    GstStateChangeReturn change = GST_STATE_CHANGE_FAILURE;
    std::string error;                            // the first error on the bus
    GstVideoInfo info{};                          // of the source's caps
    std::vector<GstBuffer *> buffers;             // the source pushed
    GstClockTime end = 0;                         // the running time at the end
    std::function<void(std::size_t)> onBuffer{};  // sees the count of buffers pushed
    ~Outcome() { std::for_each(buffers.begin(), buffers.end(), gst_buffer_unref); }
};

GstPadProbeReturn collect(GstPad *pad, GstPadProbeInfo *info, gpointer data)
{
    Outcome &r = *static_cast<Outcome *>(data);
    if (r.buffers.empty()) {
        GstCaps *caps = gst_pad_get_current_caps(pad);
        gst_video_info_from_caps(&r.info, caps);
        gst_caps_unref(caps);
    }
    r.buffers.push_back(gst_buffer_ref(GST_PAD_PROBE_INFO_BUFFER(info)));
    if (r.onBuffer)
        r.onBuffer(r.buffers.size());
    return GST_PAD_PROBE_OK;
}

// Runs "quorinsrc <properties> ! fakesink" to its end.
void run(Outcome &r, const std::string &properties)
{
    GstElement *pipeline = gst_parse_launch(("quorinsrc name=src " + properties + " ! fakesink").c_str(), nullptr);
    GstElement *src = gst_bin_get_by_name(GST_BIN(pipeline), "src");
    GstPad *pad = gst_element_get_static_pad(src, "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, collect, &r, nullptr);
    GstBus *bus = gst_element_get_bus(pipeline);
    r.change = gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstMessage *m = gst_bus_timed_pop_filtered(bus, 60 * GST_SECOND,
                                               static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
    EXPECT_NE(m, nullptr) << "the pipeline hangs";
    GError *e = nullptr;
    if (m != nullptr && GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR)
        gst_message_parse_error(m, &e, nullptr);
    r.error = e != nullptr ? e->message : "";
    g_clear_error(&e);
    gst_clear_message(&m);
    r.end = gst_element_get_current_running_time(pipeline);
    EXPECT_EQ(gst_element_set_state(pipeline, GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
    for (gpointer object : {gpointer(pad), gpointer(src), gpointer(bus), gpointer(pipeline)})
        gst_object_unref(object);
}

TEST(Caps, FollowTheCameraTheDepthAndThePipeline)
{
    struct Case {
        std::string properties;
        const char *caps; // format, size and rate
    } cases[] = {
        {"camera=virtual:k5 link=7", "GRAY8 1024x1024 1000"},
        {"camera=virtual:k5 link=7 bits=16 settings=resolution=64x32", "GRAY16_LE 64x32 1000"},
        {"link=7 settings=\"resolution=510x256;frame-rate=2000\"", "BGR 510x256 2000"},
        {"link=7 settings=resolution=510x256 ! video/x-raw,format=RGB", "RGB 510x256 1000"},
        {"link=7 bits=16 settings=resolution=128x64", "RGBA64_LE 128x64 1000"},
        {"link=7 settings=\"resolution=130x64 image-output=0x10100\"", "GRAY8 130x64 1000"},
        {kDriver + "source=recording frames=3-4 bits=16", "GRAY16_LE 1024x1024 1000"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.properties);
        Outcome r;
        run(r, "num-buffers=2 " + c.properties);
        ASSERT_EQ(r.buffers.size(), 2u) << r.error;
        const GstVideoInfo &info = r.info;
        EXPECT_EQ(std::string(GST_VIDEO_INFO_NAME(&info)) + " " + std::to_string(GST_VIDEO_INFO_WIDTH(&info)) + "x" +
                      std::to_string(GST_VIDEO_INFO_HEIGHT(&info)) + " " + std::to_string(GST_VIDEO_INFO_FPS_N(&info)),
                  c.caps);
        GstMapInfo map;
        ASSERT_TRUE(gst_buffer_map(r.buffers[1], &map, GST_MAP_READ));
        EXPECT_EQ(map.size, GST_VIDEO_INFO_SIZE(&info));
        // 16-bit samples are 10-bit values scaled up, the alpha opaque.
        const auto *v16 = reinterpret_cast<const std::uint16_t *>(map.data);
        for (std::size_t i = 0; GST_VIDEO_INFO_COMP_DEPTH(&info, 0) == 16 && i < map.size / 2; ++i)
            ASSERT_EQ(v16[i] % 64, (GST_VIDEO_INFO_HAS_ALPHA(&info) && i % 4 == 3) ? 0xFFFF % 64 : 0) << i;
        gst_buffer_unmap(r.buffers[1], &map);
    }
}

TEST(Caps, RedAndBlueFollowTheFormatAndRowsTheirStride)
{
    Outcome bgr, rgb;
    const std::string frame = "link=7 source=recording frames=7 settings=resolution=510x64 ! video/x-raw,format=";
    run(bgr, frame + "BGR");
    run(rgb, frame + "RGB");
    ASSERT_EQ(bgr.buffers.size() + rgb.buffers.size(), 2u) << bgr.error << rgb.error;
    ASSERT_EQ(GST_VIDEO_INFO_PLANE_STRIDE(&rgb.info, 0), 1532); // rows padded to 4 bytes
    GstMapInfo b, c;
    ASSERT_TRUE(gst_buffer_map(bgr.buffers[0], &b, GST_MAP_READ) && gst_buffer_map(rgb.buffers[0], &c, GST_MAP_READ));
    for (std::size_t i = 0, k = 0; i < b.size; ++i, k = i % 1532 % 3) // the padding is zero in both
        ASSERT_EQ(b.data[i], c.data[i % 1532 < 1530 ? i - k + 2 - k : i]) << i;
    gst_buffer_unmap(bgr.buffers[0], &b);
    gst_buffer_unmap(rgb.buffers[0], &c);
}

TEST(TimeStamps, RecordedFramesFollowTheCameraClock)
{
    struct Case {
        std::string properties;
        std::uint64_t first;
        std::vector<GstClockTime> pts; // microsecond time codes, so within 1 us
        std::vector<bool> discont;
    } cases[] = {
        // 3000 frames per second play at that rate.
        {"settings=\"frame-rate=3000 resolution=256x128\" frames=5-9", 5,
         {0, 333333, 666667, 1000000, 1333333}, {true, false, false, false, false}},
        // The second segment of a segmented recording lies 1,000,000 frames on.
        {"settings=\"trigger-counts=10,2 trigger-mode=0x07000000 resolution=64x64\" frames=9-12", 9,
         {0, 1000000, 999992000000, 999993000000}, {true, false, true, false}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.properties);
        Outcome r;
        run(r, "link=7 source=recording " + c.properties);
        ASSERT_EQ(r.buffers.size(), c.pts.size()) << r.error;
        for (std::size_t i = 0; i < c.pts.size(); ++i) {
            GstBuffer *b = r.buffers[i];
            EXPECT_NEAR(static_cast<double>(GST_BUFFER_PTS(b)), static_cast<double>(c.pts[i]), 1000.0) << i;
            EXPECT_EQ(GST_BUFFER_OFFSET(b), c.first + i);
            EXPECT_EQ(GST_BUFFER_FLAG_IS_SET(b, GST_BUFFER_FLAG_DISCONT), c.discont[i]) << i;
            EXPECT_NE(gst_buffer_get_reference_timestamp_meta(b, nullptr), nullptr);
        }
        EXPECT_EQ(GST_BUFFER_DURATION(r.buffers[0]), GST_SECOND / GST_VIDEO_INFO_FPS_N(&r.info));
    }
}

TEST(TimeStamps, LiveFramesCarryRunningTime)
{
    Outcome r;
    run(r, "camera=virtual:k5 link=7 num-buffers=5 settings=resolution=64x64");
    ASSERT_EQ(r.buffers.size(), 5u) << r.error;
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(GST_BUFFER_OFFSET(r.buffers[i]), i);
        const GstClockTime pts = GST_BUFFER_PTS(r.buffers[i]);
        EXPECT_TRUE(pts <= r.end && (i == 0 || pts > GST_BUFFER_PTS(r.buffers[i - 1]))) << i;
    }
}

// Refused at the state change, with the reason on the bus; a camera is
// opened only once the properties are good, and a recording's camera leaves
// live mode only once its range and caps are.
TEST(Refusals, AtTheStateChange)
{
    struct Case {
        std::string properties;
        const char *words;
    } cases[] = {
        {"camera=virtual:k7", "unknown virtual camera 'k7'"},
        {"camera=virtual:k5 host-arg=3", "--host-arg applies to driver: cameras only"},
        {"camera=driver:/no/such/driver.so", "link driver '/no/such/driver.so' not found"},
        {"settings=resolution", "settings takes NAME=VALUE, not 'resolution'"},
        {"settings=resolution=2000x1", "invalid value '2000x1'"},
        {"bits=12", "bits must be 8 or 16, not 12"},
        {"frames=1-2", "frames apply to source=recording only"},
        {"source=recording frames=9-3", "invalid frames '9-3'"},
        {"camera=driver:" QUORIN_GST_TEST_DRIVER, "could not open the camera: error 28674 (virtual link: no camera"},
        {kDriver + "settings=colour-temperature=3100K",
         "could not set colour-temperature: error 21 (not supported by this camera model, firmware or link)"},
        {kDriver + "source=recording frames=2-99999", "frames 2-99999 lie outside the recording (frames 1-3276)"},
        {kDriver + "source=recording ! video/x-raw,format=RGB", "the camera gives video/x-raw, format=(string)GRAY8"},
        {kDriver + "! video/x-raw,width=640", "which the pipeline does not accept"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.properties);
        vcam_trace_clear(driverCamera());
        Outcome r;
        run(r, c.properties);
        EXPECT_EQ(r.change, GST_STATE_CHANGE_FAILURE);
        EXPECT_NE(r.error.find(c.words), std::string::npos) << r.error;
        EXPECT_FALSE(modeChanged());
        EXPECT_EQ(vcam_call_count(driverCamera(), VCAM_CALL_OPEN), vcam_call_count(driverCamera(), VCAM_CALL_CLOSE));
    }
}

TEST(Failures, EndTheStreamWithTheErrorCodeInWords)
{
    struct Case {
        VcamCall call;
        std::size_t after; // buffers pushed before the fault
        const char *words;
    } cases[] = {
        {VCAM_CALL_OPEN, 0, "could not open the camera: error 28676 (virtual link: injected fault)"},
        {VCAM_CALL_RECEIVE, 3, "could not transfer live frame 4: error 9 (the link failed three times in a row)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.words);
        Outcome r;
        r.onBuffer = [&](std::size_t pushed) {
            if (pushed == c.after)
                vcam_fail_calls(driverCamera(), c.call, 1, 0, VCAM_ERR_INJECTED);
        };
        r.onBuffer(0);
        run(r, kDriver + "settings=resolution=64x64");
        vcam_clear_faults(driverCamera());
        EXPECT_NE(r.error.find(c.words), std::string::npos) << r.error;
        EXPECT_EQ(r.buffers.size(), c.after);
    }
}

// Every cycle NULL -> PLAYING -> NULL opens the camera once and closes it
// once; the sanitizer build runs 100 cycles and its leak check.
TEST(Lifecycle, EachCycleOpensAndClosesTheCamera)
{
    vcam_trace_clear(driverCamera());
    for (int i = 0; i < QUORIN_GST_CYCLES; ++i) {
        Outcome r;
        run(r, kDriver + (i % 2 ? "num-buffers=2" : "source=recording frames=1-2"));
        ASSERT_EQ(r.error, "");
    }
    EXPECT_EQ(vcam_call_count(driverCamera(), VCAM_CALL_OPEN), unsigned{QUORIN_GST_CYCLES});
    EXPECT_EQ(vcam_call_count(driverCamera(), VCAM_CALL_CLOSE), unsigned{QUORIN_GST_CYCLES});
}

} // namespace

int main(int argc, char **argv)
{
    gst_init(&argc, &argv);
    testing::InitGoogleTest(&argc, argv);
    if (!quorin_src_register_static())
        return 1;
    const int status = RUN_ALL_TESTS();
    gst_deinit();
    return status;
}
