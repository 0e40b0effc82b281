// Device data by id, and the capabilities and lists whose answers depend
// on a camera's state or make: exposure times by shutter speed, the fine
// lists by width, the lists by the mode of command 69, firmware and sensor.
#include "every_id.h"

#include <algorithm>
#include <cstring>
#include <vector>

// DEV_GetData and DEV_SetData by data id. Reads: what is written and the
// sum of its 16-bit words (a status word left as it was reads kKept).
TEST_F(EveryId, DeviceData)
{
    struct Read {
        uint32_t id, sub, param;
        uint32_t ok;
        int32_t err;
        uint32_t size;
        unsigned long long sum16; // of the written bytes as 16-bit words
        uint32_t k5[3], k5c[3];   // the first three u32 written, where they differ by model
    };
    const int32_t kept = static_cast<int32_t>(kKept);
    const Read reads[] = {
        {QUORIN_DATA_TIME_STAMPS, 1, 1, 0, QUORIN_ERR_NO_DATA, kKept, 0, {}, {}}, // no recording rate in live
        {QUORIN_DATA_CHANNELS, 1, 1, 0, QUORIN_ERR_NOT_PLAYBACK, kKept, 0, {}, {}},
        {QUORIN_DATA_TIME_AND_CHANNELS, 1, 1, 0, QUORIN_ERR_NO_DATA, kKept, 0, {}, {}},
        {QUORIN_DATA_LUT_SETTINGS, 1, 0, 1, QUORIN_SUCCESS, 76, 98208, {}, {}},  // identity
        {QUORIN_DATA_LUT_SETTINGS, 2, 0, 1, QUORIN_SUCCESS, 76, 334104, {}, {}}, // gamma 0.7
        {QUORIN_DATA_LUT_SETTINGS, 3, 0, 1, QUORIN_SUCCESS, 76, 98256, {}, {}},  // gain 2
        {QUORIN_DATA_LUT_SETTINGS, 4, 0, 1, QUORIN_SUCCESS, 76, 98304, {}, {}},  // gain 4
        {QUORIN_DATA_LUT_SETTINGS, 5, 0, 1, QUORIN_SUCCESS, 76, 98466, {}, {}},  // negative
        {QUORIN_DATA_LUT_SETTINGS, 11, 0, 1, QUORIN_SUCCESS, 76, 98208, {}, {}}, // the user's, set to preset 1
        {QUORIN_DATA_LUT_SETTINGS, 7, 0, 0, QUORIN_ERR_OUT_OF_RANGE, kKept, 0, {}, {}},
        {QUORIN_DATA_GAIN_TABLES, 1, 0, 1, kept, 2097152, 1044381696ull, {}, {}}, // the camera's table
        {QUORIN_DATA_GAIN_TABLES, 2, 0, 1, kept, 2097152, 1045430272ull, {}, {}}, // 997 everywhere
        {QUORIN_DATA_GAIN_TABLES, 3, 0, 0, QUORIN_ERR_OUT_OF_RANGE, kKept, 0, {}, {}},
        {QUORIN_DATA_FLAT_FIELD, 0, 0, 0, QUORIN_ERR_NOT_SUPPORTED, kKept, 0, {}, {}},
        {QUORIN_DATA_PIXEL_PROBE, 10, 10, 1, kept, 12, 0, {899, 899, 899}, {899, 897, 897}},
        {QUORIN_DATA_PIXEL_PROBE, 512, 512, 1, kept, 12, 0, {58, 58, 58}, {58, 56, 56}},
        {QUORIN_DATA_PIXEL_PROBE, 1024, 1024, 0, QUORIN_ERR_OUT_OF_RANGE, kKept, 0, {}, {}},
        {7, 0, 0, 0, QUORIN_ERR_NOT_SUPPORTED, kKept, 0, {}, {}},
    };
    // Writes, each followed by a read of the LUT settings (id 3) or of the
    // file's gain table (id 4, sub 2).
    struct Write {
        uint32_t id, sub;
        uint32_t ok;
        int32_t err;
        unsigned long long readBack, readBackK5c;
    };
    const Write writes[] = {
        {QUORIN_DATA_LUT_SETTINGS, 11, 1, QUORIN_SUCCESS, 334104, 334104},         // preset 2 as the user's
        {QUORIN_DATA_LUT_SETTINGS, 0xFFFFFFFF, 1, QUORIN_SUCCESS, 334104, 334104}, // the identity curve only
        {QUORIN_DATA_LUT_SETTINGS, 4, 0, QUORIN_ERR_OUT_OF_RANGE, 334104, 334104},
        {QUORIN_DATA_GAIN_TABLES, 0, 1, QUORIN_SUCCESS, 1048576000ull, 1048576000ull}, // 1000 everywhere
        // Gains from a field of 500..799, per mosaic class on the K5C.
        {QUORIN_DATA_FLAT_FIELD, 0, 1, QUORIN_SUCCESS, 1304291128ull, 1304710565ull},
        {QUORIN_DATA_TIME_STAMPS, 0, 0, QUORIN_ERR_NOT_SUPPORTED, 1304291128ull, 1304710565ull},
        {QUORIN_DATA_PIXEL_PROBE, 0, 0, QUORIN_ERR_NOT_SUPPORTED, 1304291128ull, 1304710565ull},
    };
    auto sum16 = [](const std::vector<uint8_t> &b, uint32_t size) {
        unsigned long long sum = 0;
        for (uint32_t i = 0; i + 1 < size && size != kKept; i += 2)
            sum += b[i] | b[i + 1] << 8;
        return sum;
    };
    for (const uint32_t model : {VCAM_K5, VCAM_K5C}) {
        open(model, 7);
        std::vector<uint8_t> buffer(2097152 * 3);
        get(QUORIN_CAP_RESOLUTION);
        int32_t err = 0;
        ASSERT_EQ(DEV_TransferLiveImage(dev_, 0, 8, buffer.data(), &err), 1); // a picture for the probe
        // The user's setting as preset 1 (on Windows the registry may hold
        // another test's).
        uint32_t lutSize = 0;
        ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 1, 0, buffer.data(), &lutSize, &err), 1u);
        ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, buffer.data(), 0, &err), 1u);
        for (const Read &r : reads) {
            std::fill(buffer.begin(), buffer.end(), 0xEE);
            uint32_t size = kKept;
            err = kept;
            EXPECT_EQ(DEV_GetData(dev_, 0, r.id, r.sub, r.param, buffer.data(), &size, &err), r.ok) << r.id;
            EXPECT_EQ(err, r.err) << "data " << r.id << " sub " << r.sub;
            EXPECT_EQ(size, r.size) << "data " << r.id << " sub " << r.sub;
            if (r.id == QUORIN_DATA_PIXEL_PROBE && r.ok) {
                uint32_t rgb[3];
                std::memcpy(rgb, buffer.data(), sizeof rgb);
                const uint32_t *want = model == VCAM_K5 ? r.k5 : r.k5c;
                EXPECT_TRUE(std::equal(rgb, rgb + 3, want))
                    << "model " << model << " probe " << r.sub << ": " << rgb[0] << " " << rgb[1] << " " << rgb[2];
            } else {
                EXPECT_EQ(sum16(buffer, size), r.sum16) << "data " << r.id << " sub " << r.sub;
            }
        }
        std::vector<uint8_t> preset2(76);
        uint32_t size = 0;
        ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 2, 0, preset2.data(), &size, &err), 1u);
        std::vector<uint16_t> gains(1024 * 1024, 1000), field(1024 * 1024);
        for (size_t i = 0; i < field.size(); ++i)
            field[i] = static_cast<uint16_t>(500 + i * 7 % 300);
        for (const Write &w : writes) {
            void *from = w.id == QUORIN_DATA_GAIN_TABLES ? static_cast<void *>(gains.data())
                         : w.id == QUORIN_DATA_FLAT_FIELD ? static_cast<void *>(field.data())
                                                           : static_cast<void *>(preset2.data());
            err = 0;
            EXPECT_EQ(DEV_SetData(dev_, 0, w.id, w.sub, 0, from, 0, &err), w.ok) << w.id;
            EXPECT_EQ(err, w.err) << "data " << w.id << " sub " << w.sub;
            const bool lut = w.id == QUORIN_DATA_LUT_SETTINGS;
            ASSERT_EQ(DEV_GetData(dev_, 0, lut ? QUORIN_DATA_LUT_SETTINGS : QUORIN_DATA_GAIN_TABLES, lut ? 11 : 2, 0,
                                  buffer.data(), &size, &err),
                      1u);
            EXPECT_EQ(sum16(buffer, size), model == VCAM_K5 ? w.readBack : w.readBackK5c) << "data " << w.id;
        }
    }
}

// With exposure control on, the exposure times (ids 5 and 127) follow the
// shutter: the frame period at the frame rate, the exposure table's row,
// or for a speed outside the table the period in microseconds (scaled as
// the table's 1e-10 s units are, as the camera family does). The fine
// lists take the column of the picture's width.
TEST_F(EveryId, ExposureTimesAndFineListsFollowShutterAndWidth)
{
    struct Shutter {
        uint32_t speed, exposureUs, exposureNs;
    };
    const Shutter shutters[] = {
        {1000, 1000, 1000000}, {4000, 250, 249778}, {3333, 1000, 100}, {100000, 1000, 100}, {2000, 500, 499873},
    };
    struct Width {
        uint32_t width, rates, firstRate, times, firstUs, timesNs, firstNs;
    };
    const Width widths[] = {
        {1024, 166, 60, 166, 16806, 166, 16806206}, {896, 166, 60, 166, 16807, 166, 16806603},
        {768, 166, 60, 166, 16807, 166, 16806619},   {640, 166, 60, 166, 16806, 166, 16806444},
        {512, 166, 60, 166, 16806, 166, 16806397},   {384, 166, 60, 166, 16807, 166, 16806603},
        {256, 166, 60, 166, 16807, 166, 16806683},   {128, 166, 60, 166, 16807, 166, 16806667},
    };
    open(VCAM_K5, 7);
    ASSERT_EQ(set(QUORIN_CAP_EXPOSURE_ENABLE, 0).ok, 1);
    for (const Shutter &s : shutters) {
        ASSERT_EQ(set(QUORIN_CAP_SHUTTER, s.speed).ok, 1);
        EXPECT_EQ(get(QUORIN_CAP_SHUTTER).value, s.speed);
        EXPECT_EQ(get(QUORIN_CAP_EXPOSURE_US).value, s.exposureUs) << s.speed;
        EXPECT_EQ(get(QUORIN_CAP_EXPOSURE_NS).value, s.exposureNs) << s.speed;
    }
    for (const Width &w : widths) {
        ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, w.width << 16 | 16).ok, 1);
        const uint32_t ids[3] = {QUORIN_LIST_FINE_FRAME_RATES, QUORIN_LIST_FINE_EXPOSURE_US,
                                 QUORIN_LIST_FINE_EXPOSURE_NS};
        const uint32_t counts[3] = {w.rates, w.times, w.timesNs}, firsts[3] = {w.firstRate, w.firstUs, w.firstNs};
        for (int i = 0; i < 3; ++i) {
            const ListResult l = list(ids[i]);
            ASSERT_EQ(l.entries.size(), counts[i]) << "width " << w.width << " list " << ids[i];
            EXPECT_EQ(l.entries[0], firsts[i]) << "width " << w.width << " list " << ids[i];
        }
    }
}

// The lists whose rows depend on how the camera came up: the mode of
// command 69 (0 tables, 1 a preset's size, 2 the frame-time model) and the
// firmware and sensor kind that choose the frame-rate tables. Each row:
// DEV_GetList's count and first entry for lists 0, 1 and 11.
TEST_F(EveryId, ListsFollowTheModeFirmwareAndSensor)
{
    struct Config {
        uint32_t mode69, value69, firmware, sensorKind;
        struct {
            int32_t ok;
            uint32_t count, first;
        } lists[3];
    };
    const Config configs[] = {
        {0, 0, 120, 2, {{1, 26, 60}, {1, 23, 1024u << 16 | 1024}, {1, 72, 60}}},
        {2, 0, 120, 2, {{1, 1, 0}, {1, 23, 1024u << 16 | 1024}, {1, 72, 60}}}, // the rate not yet read
        {1, 3, 120, 2, {{1, 26, 60}, {1, 1, 0xBBA}, {1, 72, 60}}},             // preset 3's size
        {1, 25, 120, 2, {{1, 26, 60}, {0, 0, kKept}, {1, 72, 60}}},            // no preset 25
        {0, 0, 107, 3, {{1, 26, 50}, {1, 23, 1024u << 16 | 1024}, {1, 73, 50}}},
        {0, 0, 300, 3, {{1, 27, 50}, {1, 23, 1024u << 16 | 1024}, {1, 73, 50}}},
    };
    for (const Config &c : configs) {
        VcamConfig cfg = config(VCAM_K5, 7);
        cfg.mode69 = c.mode69;
        cfg.value69 = c.value69;
        cfg.firmwareVersion = c.firmware;
        cfg.sensorKind = c.sensorKind;
        open(cfg);
        EXPECT_EQ(get(QUORIN_CAP_MODE_69).value, c.mode69); // read into the record
        const uint32_t ids[3] = {QUORIN_LIST_FRAME_RATES, QUORIN_LIST_PICTURE_SIZES, QUORIN_LIST_EXT_SYNC_FRAME_RATES};
        for (int i = 0; i < 3; ++i) {
            std::vector<uint32_t> entries(QUORIN_MAX_LIST_ENTRIES, kKept);
            uint32_t count = kKept;
            int32_t err = 0;
            EXPECT_EQ(DEV_GetList(dev_, 0, ids[i], 0, entries.data(), &count, &err), c.lists[i].ok);
            EXPECT_EQ(count, c.lists[i].count) << "mode " << c.mode69 << " firmware " << c.firmware << " list " << ids[i];
            EXPECT_EQ(entries[0], c.lists[i].first) << "mode " << c.mode69 << " firmware " << c.firmware;
        }
        DEV_CloseDevice(dev_, nullptr);
    }
    // Action 5 of command 145 waits a second and repeats the start-up
    // status read, which sets the flag that id 16 reads.
    ASSERT_EQ(set(QUORIN_CAP_ACTION_145, 5).ok, 0) << "the last camera is closed";
    open(VCAM_K5, 7);
    const CapResult action = set(QUORIN_CAP_ACTION_145, 5);
    EXPECT_EQ(action.ok, 1);
    EXPECT_EQ(action.err, QUORIN_SUCCESS);
    EXPECT_EQ(get(QUORIN_CAP_ACTION_145).value, 1u);
}
