// Running the quorin tool in the tests: a private folder per test (also
// its settings folders), the tool started with posix_spawn and its exit
// status and output collected, and images read back with libpng and
// libtiff.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cli_test {

struct ToolResult {
    int status = -1; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// A fresh folder for one test, removed afterwards. The tool runs inside it
// with XDG_CONFIG_HOME and XDG_DATA_HOME below it, so that the library's
// settings and pixel-gain files stay private to the test.
class Workspace {
public:
    Workspace();
    ~Workspace();
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

    // Runs the tool to its end.
    ToolResult run(const std::vector<std::string> &args) const;
    // Starts the tool and returns its process id; finish with wait().
    pid_t start(const std::vector<std::string> &args) const;
    ToolResult wait(pid_t pid) const;

    // An environment variable for the tool's later runs.
    void setEnv(const std::string &name, const std::string &value);

    // The driver's log (empty when the driver was never used).
    std::string driverLog() const;

private:
    std::string path_;
    std::vector<std::string> extraEnv_;
};

// Arguments that select the test link driver (its camera answers this
// host argument).
std::vector<std::string> driverArgs();
// args followed by more.
std::vector<std::string> operator+(std::vector<std::string> args, const std::vector<std::string> &more);

std::string readText(const std::string &path);
bool exists(const std::string &path);
// Names in a folder, sorted.
std::vector<std::string> listFolder(const std::string &folder);
std::vector<std::string> lines(const std::string &text);

// An image read back from a file: samples in file order (RGB), 16-bit
// samples as read.
struct Image {
    std::uint32_t width = 0, height = 0, channels = 0, bits = 0;
    std::uint32_t significantBits = 0; // PNG sBIT, 0 when absent
    std::vector<std::uint16_t> samples;
    std::uint16_t at(std::uint32_t x, std::uint32_t y, std::uint32_t c) const
    {
        return samples[(std::size_t{y} * width + x) * channels + c];
    }
};
// Read with libpng or libtiff by extension; throws std::runtime_error on a
// damaged or incomplete file.
Image readImage(const std::string &path);

} // namespace cli_test
