// grab and download: the files they write (read back with libpng and
// libtiff), the time-stamp CSV, and an interrupted download.
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <hdf5.h>
#include <tiffio.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <thread>

using namespace cli_test;

namespace {

using Args = std::vector<std::string>;

// Files of a folder that are not finished images: the tool's temporary
// files start with a dot.
std::vector<std::string> hiddenFiles(const std::string &folder)
{
    std::vector<std::string> hidden;
    for (const std::string &n : listFolder(folder))
        if (n[0] == '.')
            hidden.push_back(n);
    return hidden;
}

void expectShape(const Image &img, std::uint32_t w, std::uint32_t h, std::uint32_t channels, std::uint32_t bits)
{
    EXPECT_EQ(img.width, w);
    EXPECT_EQ(img.height, h);
    EXPECT_EQ(img.channels, channels);
    EXPECT_EQ(img.bits, bits);
}

} // namespace

TEST(Images, GrabWritesColourAndGreyFilesOfTheRequestedDepth)
{
    Workspace ws;
    struct Case {
        Args args;
        const char *folder;
        const char *first;
        std::size_t files;
        std::uint32_t channels, bits;
    };
    const Case cases[] = {
        {{"--camera", "virtual:k5c", "grab", "-n", "3", "-o", "c8/live_%04d.png"}, "c8", "live_0001.png", 3, 3, 8},
        {{"--camera", "virtual:k5c", "grab", "-n", "2", "--bits", "16", "-o", "c16/f%d.tiff"}, "c16", "f1.tiff", 2, 3,
         16},
        {{"--camera", "virtual:k5", "--link", "4", "grab", "-n", "2", "--bits", "16", "-o", "g16/f%02d.png"}, "g16",
         "f01.png", 2, 1, 16},
        {{"--camera", "virtual:k5", "--link", "7", "grab", "-n", "2", "--format", "tiff", "-o", "g8/f%d.img"}, "g8",
         "f1.img", 2, 1, 8},
    };
    for (const Case &c : cases) {
        const ToolResult r = ws.run(Args{"--set", "resolution=256x128"} + c.args);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("frames per second"), std::string::npos) << r.out;
        const std::string folder = ws.file(c.folder);
        const auto files = listFolder(folder);
        EXPECT_EQ(files.size(), c.files) << folder;
        EXPECT_TRUE(hiddenFiles(folder).empty()) << folder;
        for (const std::string &f : files)
            expectShape(readImage(folder + "/" + f), 256, 128, c.channels, c.bits);
        const std::string first = folder + "/" + c.first;
        ASSERT_TRUE(exists(first)) << first;
        if (c.bits == 16) {
            // The 10-bit values are scaled to the 16-bit range, and a PNG
            // file says how many bits are significant.
            const Image img = readImage(first);
            std::uint16_t high = 0;
            for (std::uint16_t v : img.samples) {
                ASSERT_EQ(v % 64, 0) << first;
                high = std::max(high, v);
            }
            EXPECT_GT(high, 32768) << first;
            if (std::string(c.first).ends_with(".png")) {
                EXPECT_EQ(img.significantBits, 10u);
            }
        }
    }
}

TEST(Images, ColourFilesAreStoredRedGreenBlue)
{
    // The full picture shows colour bars along the top: red at x 640..767,
    // blue at 768..895.
    Workspace ws;
    for (const char *name : {"bars.png", "bars16.tiff"}) {
        const bool sixteen = std::string(name).ends_with(".tiff");
        const ToolResult r = ws.run({"grab", "--bits", sixteen ? "16" : "8", "-o", name});
        ASSERT_EQ(r.status, 0) << r.err;
        const Image img = readImage(ws.file(name));
        expectShape(img, 1024, 1024, 3, sixteen ? 16 : 8);
        const std::uint32_t full = sixteen ? 65535 : 255;
        EXPECT_GT(img.at(700, 100, 0), full * 3 / 4) << name;
        EXPECT_LT(img.at(700, 100, 2), full / 4) << name;
        EXPECT_GT(img.at(830, 100, 2), full * 3 / 4) << name;
        EXPECT_LT(img.at(830, 100, 0), full / 4) << name;
    }
}

TEST(Images, DownloadWritesNumberedFilesAndTimeStamps)
{
    Workspace ws;
    ws.setEnv("QUORIN_TEST_DRIVER_MODEL", "k5c");
    const ToolResult r = ws.run(driverArgs() + Args{"--set", "resolution=128x64", "download", "--frames", "3-7",
                                                    "--bits", "16", "-o", "rec/frame_%04d.tiff"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listFolder(ws.file("rec")),
              (std::vector<std::string>{"frame_0003.tiff", "frame_0004.tiff", "frame_0005.tiff", "frame_0006.tiff",
                                        "frame_0007.tiff", "timestamps.csv"}));
    for (int n = 3; n <= 7; ++n)
        expectShape(readImage(ws.file("rec/frame_000" + std::to_string(n) + ".tiff")), 128, 64, 3, 16);

    // One line per file; the recording runs at 1000 frames per second from
    // 23:59:58.5 on day 200.
    const auto csv = lines(readText(ws.file("rec/timestamps.csv")));
    ASSERT_EQ(csv.size(), 6u);
    EXPECT_EQ(csv[0], "frame,file,day,hour,minute,second,microsecond,time_code,time,seconds");
    EXPECT_EQ(csv[1], "3,frame_0003.tiff,200,23,59,58,502000,1,23:59:58.502000,0.000000");
    EXPECT_EQ(csv[5], "7,frame_0007.tiff,200,23,59,58,506000,1,23:59:58.506000,0.004000");
    EXPECT_NE(r.out.find("downloaded 5 128x64 RGB 16-bit frames"), std::string::npos) << r.out;
    EXPECT_EQ(ws.driverLog(), "interface\nopen 10759 ok\nclose\n");
}

TEST(Images, FramesOutsideTheRecordingAreRefusedBeforeAnyChange)
{
    Workspace ws;
    const ToolResult r = ws.run(driverArgs() + Args{"download", "--frames", "10-99999", "-o", "rec/f_%d.png"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(lines(r.err).size(), 1u);
    EXPECT_NE(r.err.find("outside the recording (frames 1-3276)"), std::string::npos) << r.err;
    EXPECT_TRUE(listFolder(ws.file("rec")).empty());
}

TEST(Interrupt, SigintDuringDownloadLeavesCompleteFilesAndALiveCamera)
{
    Workspace ws;
    const pid_t pid = ws.start(driverArgs() + Args{"download", "--frames", "1-3000", "-o", "rec/f_%05d.png"});
    // Wait for the first frames, then interrupt.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (listFolder(ws.file("rec")).size() < 4 + hiddenFiles(ws.file("rec")).size() &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(pid, SIGINT);
    const ToolResult r = ws.wait(pid);
    EXPECT_EQ(r.status, 130) << r.err;
    EXPECT_NE(r.err.find("interrupted after"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("back in live mode"), std::string::npos) << r.err;

    EXPECT_TRUE(hiddenFiles(ws.file("rec")).empty()) << "temporary files left behind";
    auto files = listFolder(ws.file("rec"));
    ASSERT_FALSE(files.empty());
    ASSERT_EQ(files.back(), "timestamps.csv");
    files.pop_back();
    EXPECT_GE(files.size(), 3u);
    EXPECT_LT(files.size(), 3000u);
    for (const std::string &f : files)
        expectShape(readImage(ws.file("rec/" + f)), 1024, 1024, 1, 8);
    // The CSV lists exactly the files written, in order.
    const auto csv = lines(readText(ws.file("rec/timestamps.csv")));
    ASSERT_EQ(csv.size(), files.size() + 1);
    for (std::size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(csv[i + 1].substr(0, csv[i + 1].find(',', csv[i + 1].find(',') + 1)),
                  std::to_string(i + 1) + "," + files[i]);
    // The camera was closed properly.
    EXPECT_EQ(ws.driverLog(), "interface\nopen 10759 ok\nclose\n");
}

namespace {

// What a downloaded HDF5 file holds, read with the HDF5 library.
struct Hdf5Recording {
    std::vector<hsize_t> dims;            // of "frames"
    std::vector<std::uint32_t> numbers;   // "frame_number"
    std::vector<double> seconds;          // "seconds"
    std::vector<std::uint16_t> days;      // the day of "timestamps"
};

template <typename T>
std::vector<T> readAll(hid_t file, const char *name, hid_t type, const char *member = nullptr)
{
    const hid_t d = H5Dopen2(file, name, H5P_DEFAULT);
    const hid_t space = H5Dget_space(d);
    std::vector<T> out(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
    hid_t memType = type;
    if (member != nullptr) { // one member of a compound
        memType = H5Tcreate(H5T_COMPOUND, sizeof(T));
        H5Tinsert(memType, member, 0, type);
    }
    if (H5Dread(d, memType, H5S_ALL, H5S_ALL, H5P_DEFAULT, out.data()) < 0)
        out.clear();
    if (member != nullptr)
        H5Tclose(memType);
    H5Sclose(space);
    H5Dclose(d);
    return out;
}

Hdf5Recording readHdf5(const std::string &path)
{
    Hdf5Recording r;
    const hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    if (f < 0)
        return r;
    const hid_t d = H5Dopen2(f, "frames", H5P_DEFAULT);
    const hid_t space = H5Dget_space(d);
    r.dims.resize(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
    H5Sget_simple_extent_dims(space, r.dims.data(), nullptr);
    H5Sclose(space);
    H5Dclose(d);
    r.numbers = readAll<std::uint32_t>(f, "frame_number", H5T_NATIVE_UINT32);
    r.seconds = readAll<double>(f, "seconds", H5T_NATIVE_DOUBLE);
    r.days = readAll<std::uint16_t>(f, "timestamps", H5T_NATIVE_UINT16, "day");
    H5Fclose(f);
    return r;
}

// The ImageDescription of each page of a TIFF file.
std::vector<std::string> tiffPages(const std::string &path)
{
    std::vector<std::string> pages;
    TIFFSetErrorHandler(nullptr);
    TIFF *t = TIFFOpen(path.c_str(), "r");
    if (t == nullptr)
        return pages;
    do {
        char *text = nullptr;
        pages.emplace_back(TIFFGetField(t, TIFFTAG_IMAGEDESCRIPTION, &text) && text != nullptr ? text : "");
    } while (TIFFReadDirectory(t));
    TIFFClose(t);
    return pages;
}

// Frames 1..n in order, each `period` seconds after the one before.
void expectFramesInTime(const Hdf5Recording &r, std::size_t n, double period, const std::string &what)
{
    ASSERT_EQ(r.numbers.size(), n) << what;
    for (std::size_t i = 0; i < n; ++i) {
        EXPECT_EQ(r.numbers[i], i + 1) << what;
        EXPECT_NEAR(r.seconds[i], static_cast<double>(i) * period, 1e-6) << what << " frame " << i + 1;
    }
}

int dayOfYear()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local.tm_yday + 1;
}

} // namespace

TEST(Images, RecordingsComeAtTheirRateInTheirOrderWithTodaysTimeCodes)
{
    Workspace ws;
    struct Case {
        Args args;
        const char *file;
        std::size_t frames;
        double period;
    };
    const Args small = {"--set", "resolution=256x128", "--set", "frame-rate=2000", "record"};
    const Case cases[] = {
        {small + Args{"--trigger", "frames,50", "--download", "1-50", "-o", "a.h5"}, "a.h5", 50, 0.0005},
        // The segmented numberings download in recording order.
        {small + Args{"--trigger", "segments-centre", "--segment-length", "9", "--segments", "2", "--download", "1-18",
                      "-o", "b.h5"},
         "b.h5", 18, 0.0005},
        {small + Args{"--trigger", "segments-offset,3", "--segment-length", "10", "--segments", "2", "--download",
                      "1-20", "--bits", "16", "-o", "c.h5"},
         "c.h5", 20, 0.0005},
        {small + Args{"--mode", "ready-record", "--trigger-after", "0.2", "--trigger", "frames,5", "--download", "1-5",
                      "-o", "d.h5"},
         "d.h5", 5, 0.0005},
    };
    for (const Case &c : cases) {
        const ToolResult r = ws.run(c.args);
        ASSERT_EQ(r.status, 0) << c.file << "\n" << r.err;
        EXPECT_NE(r.out.find("recorded " + std::to_string(c.frames) + " frames at 2000 fps"), std::string::npos) << r.out;
        const Hdf5Recording rec = readHdf5(ws.file(c.file));
        ASSERT_EQ(rec.dims, (std::vector<hsize_t>{c.frames, 128, 256, 3})) << c.file;
        expectFramesInTime(rec, c.frames, c.period, c.file);
        EXPECT_NEAR(rec.days[0], dayOfYear(), 1) << c.file;
    }
    // Multi-page TIFF: a page per frame, its time stamp in its description.
    const ToolResult pages = ws.run({"--set", "resolution=128x64", "download", "--frames", "4-6", "-o", "p.tif"});
    ASSERT_EQ(pages.status, 0) << pages.err;
    EXPECT_EQ(tiffPages(ws.file("p.tif")),
              (std::vector<std::string>{
                  R"({"frame": 4, "day": 200, "time": "23:59:58.503000", "seconds": 0.000000, "time_code": 1})",
                  R"({"frame": 5, "day": 200, "time": "23:59:58.504000", "seconds": 0.001000, "time_code": 1})",
                  R"({"frame": 6, "day": 200, "time": "23:59:58.505000", "seconds": 0.002000, "time_code": 1})"}));
}

TEST(Interrupt, KillDuringDownloadLeavesEveryFrameWrittenReadable)
{
    for (const char *name : {"k.h5", "k.tif", "k/f_%04d.tif"}) {
        Workspace ws;
        const pid_t pid = ws.start({"--set", "resolution=512x256", "download", "--frames", "1-3000", "-o", name});
        // Each frame is reported once it is written.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (readText(ws.file(".tool-stdout")).find("frame 5 ->") == std::string::npos &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        kill(pid, SIGKILL);
        ws.wait(pid);
        std::size_t frames = 0;
        if (std::string(name) == "k.h5") {
            const Hdf5Recording r = readHdf5(ws.file(name));
            ASSERT_EQ(r.numbers.size(), 3000u) << "the file opens";
            while (frames < r.numbers.size() && r.numbers[frames] == frames + 1)
                ++frames;
            for (std::size_t i = frames; i < r.numbers.size(); ++i)
                ASSERT_EQ(r.numbers[i], 0u) << "frames not written read as frame 0";
        } else if (std::string(name) == "k.tif") {
            const auto pages = tiffPages(ws.file(name));
            for (const std::string &p : pages)
                EXPECT_EQ(p.rfind("{\"frame\": " + std::to_string(++frames) + ",", 0), 0u) << p;
        } else {
            // The CSV names only files that are complete.
            const auto csv = lines(readText(ws.file("k/timestamps.csv")));
            for (std::size_t i = 1; i < csv.size(); ++i, ++frames) {
                const std::size_t file = csv[i].find(',') + 1;
                expectShape(readImage(ws.file("k/" + csv[i].substr(file, csv[i].find(',', file) - file))), 512, 256, 3,
                            8);
            }
        }
        EXPECT_GE(frames, 5u) << name;
    }
}

TEST(Interrupt, CtrlCWhileTheCameraOpensEndsWithoutADownloadReport)
{
    Workspace ws;
    const pid_t pid = ws.start(driverArgs() + Args{"download", "--frames", "1-5", "-o", "r/f_%d.png"});
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    kill(pid, SIGINT);
    const ToolResult r = ws.wait(pid);
    EXPECT_EQ(r.status, 130) << r.err;
    EXPECT_EQ(r.out.find("downloaded"), std::string::npos) << r.out;
}
