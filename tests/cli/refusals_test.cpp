// Bad command lines: each is refused with one line on stderr and exit
// status 2 before the camera is touched. The camera is the test link
// driver, whose log shows any use of it (even loading its table).
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <cstdio>

using namespace cli_test;

namespace {

void expectRefused(const Workspace &ws, const std::vector<std::string> &args, const char *expected)
{
    std::string shown;
    for (const std::string &a : args)
        shown += a + " ";
    const ToolResult r = ws.run(args);
    EXPECT_EQ(r.status, 2) << shown << "\n" << r.err;
    const auto errLines = lines(r.err);
    ASSERT_EQ(errLines.size(), 1u) << shown << "\n" << r.err;
    EXPECT_EQ(errLines[0].rfind("quorin: ", 0), 0u) << errLines[0];
    EXPECT_NE(errLines[0].find(expected), std::string::npos) << shown << "\n" << errLines[0];
    EXPECT_EQ(r.out, "") << shown;
    EXPECT_EQ(ws.driverLog(), "") << shown << ": the camera was touched";
}

} // namespace

TEST(Refusals, BadArgumentsOfEverySubCommandTouchNoCamera)
{
    Workspace ws;
    {
        std::FILE *f = std::fopen(ws.file("plain-file").c_str(), "w");
        std::fputs("x", f);
        std::fclose(f);
        f = std::fopen(ws.file("bad-defects.txt").c_str(), "w");
        std::fputs("1 2\n3 four\n", f);
        std::fclose(f);
        f = std::fopen(ws.file("far-defects.txt").c_str(), "w");
        std::fputs("1 2\n1024 5\n", f);
        std::fclose(f);
        f = std::fopen(ws.file("no-defects.txt").c_str(), "w");
        std::fputs("# nothing yet\n\n", f);
        std::fclose(f);
        std::fclose(std::fopen(ws.file("exists.h5").c_str(), "w"));
    }
    const std::vector<std::pair<std::vector<std::string>, const char *>> cases = {
        {{"get", "frame_rate"}, "unknown capability 'frame_rate'"},
        {{"get", "163"}, "unknown capability '163'"},
        {{"get", "resolution", "nosuch"}, "unknown capability 'nosuch'"},
        {{"set", "resolution", "512x"}, "invalid value '512x'"},
        {{"set", "resolution", "2048x16"}, "invalid value '2048x16'"},
        {{"set", "lut-mode", "7"}, "invalid value '7'"},
        {{"set", "exposure", "100"}, "can only be read"},
        {{"set", "resolution"}, "value is required"},
        {{"list", "nosuch"}, "unknown list 'nosuch'"},
        {{"list", "42"}, "unknown list '42'"},
        {{"grab", "-n", "2", "-o", "one.png"}, "needs a number field"},
        {{"grab", "-o", "live_%d.bmp"}, "cannot tell the image format"},
        {{"grab", "-o", "plain-file/live_%d.png"}, "plain-file"},
        {{"grab", "--bits", "12"}, "--bits"},
        {{"grab", "-n", "0"}, "--count"},
        {{"download"}, "--frames is required"},
        {{"download", "--frames", "5-2"}, "invalid frame range '5-2'"},
        {{"download", "--frames", "0-3"}, "invalid frame range '0-3'"},
        {{"download", "--frames", "1-x"}, "invalid frame range '1-x'"},
        {{"download", "--frames", "1-3", "-o", "plain-file/f_%d.png"}, "plain-file"},
        {{"download", "--frames", "1-3", "--csv", "plain-file/t.csv"}, "plain-file"},
        {{"defects", "missing.txt"}, "cannot read the defect file 'missing.txt'"},
        {{"defects", "bad-defects.txt"}, "bad-defects.txt:2"},
        {{"defects", "far-defects.txt"}, "outside the 1024x1024 sensor"},
        {{"defects", "bad-defects.txt", "--clear"}, "not both"},
        {{"defects", "no-defects.txt"}, "use --clear"},
        {{"defects", "."}, "cannot read the defect file '.'"},
        {{"grab", "-o", "/proc/live_%d.png"}, "not writable"},
        {{"lut", "gamma-0.7", "--gamma", "0.5"}, "go with mode user"},
        {{"lut", "user", "--gamma", "0"}, "--gamma must be above 0"},
        {{"lut", "user", "--gain", "1,2"}, "one value or three"},
        {{"lut", "sepia"}, "invalid value 'sepia'"},
        {{"download", "--frames", "1-3", "-o", "exists.h5"}, "'exists.h5' exists (use --overwrite"},
        {{"download", "--frames", "1-3", "-o", "new/f_%d.png", "--csv", "/proc/new/t.csv"}, "not writable"},
        {{"download", "--frames", "1-3", "-o", "rec.h5", "--csv", "t.csv"}, "--csv goes with numbered files"},
        {{"download", "--frames", "1-3", "-o", "rec_%d.h5"}, "takes no number field"},
        {{"record", "--mode", "live"}, "--mode takes a recording state"},
        {{"record", "--segments", "2"}, "go together"},
        {{"record", "--trigger", "soon"}, "invalid value 'soon'"},
        {{"record", "--download", "1-5", "-o", "one.png"}, "a .tif or .h5 file for all"},
        {{"flatfield", "--table", "gains.jpg"}, "cannot tell the image format"},
        {{"--set", "nosuch=1", "info"}, "unknown capability 'nosuch'"},
        {{"--set", "resolution", "info"}, "NAME=VALUE"},
        {{"--firmware", "100", "info"}, "virtual: cameras only"},
        {{"nosuch"}, "unknown sub-command 'nosuch'"},
        {{"grab", "--bogus"}, "unexpected argument '--bogus'"},
        {{"info", "extra"}, "unexpected argument 'extra'"},
        {{}, "a sub-command is required"},
    };
    for (const auto &[args, expected] : cases)
        expectRefused(ws, driverArgs() + args, expected);
    EXPECT_FALSE(exists(ws.file("new"))) << "no folder is made before every check passed";
}

TEST(Refusals, BadCameraSpecifications)
{
    Workspace ws;
    expectRefused(ws, {"--camera", "virtual:k6", "info"}, "unknown virtual camera 'k6'");
    expectRefused(ws, {"--camera", "usb:0", "info"}, "unknown camera 'usb:0'");
    expectRefused(ws, {"--link", "5", "info"}, "link types 2, 3, 4 and 7");
    expectRefused(ws, {"--host-arg", "3", "info"}, "driver: cameras only");
    expectRefused(ws, {"--camera", "driver:" + ws.file("missing.so"), "info"}, "not found");
    ws.setEnv("QUORIN_CAMERA", "virtual:k6");
    expectRefused(ws, {"info"}, "unknown virtual camera 'k6' in --camera (from QUORIN_CAMERA)");
}

TEST(Refusals, HelpOfEverySubCommandSucceeds)
{
    Workspace ws;
    const ToolResult top = ws.run({"--help"});
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("quorin_interface"), std::string::npos) << "the driver convention is documented";
    for (const char *cmd : {"info", "get", "set", "list", "grab", "download", "record", "lut", "defects", "flatfield"}) {
        const ToolResult r = ws.run({cmd, "--help"});
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_NE(r.out.find("Example"), std::string::npos) << cmd;
    }
    EXPECT_EQ(ws.driverLog(), "");
}
