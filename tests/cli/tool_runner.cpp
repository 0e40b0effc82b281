// Running the tool and reading its images back.
#include "tool_runner.h"

#include <png.h>
#include <tiffio.h>

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <algorithm>
#include <sstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace cli_test {
namespace {

namespace fs = std::filesystem;

constexpr const char kHostArg[] = "10759"; // 0x2A07, the test driver's camera

} // namespace

std::vector<std::string> driverArgs()
{
    return {"--camera", std::string("driver:") + QUORIN_TEST_DRIVER_PATH, "--host-arg", kHostArg};
}

std::vector<std::string> operator+(std::vector<std::string> args, const std::vector<std::string> &more)
{
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

Workspace::Workspace()
{
    std::string tmpl = (fs::temp_directory_path() / "quorin-cli-test.XXXXXX").string();
    if (mkdtemp(tmpl.data()) == nullptr)
        throw std::runtime_error("cannot create a test folder");
    path_ = tmpl;
}

Workspace::~Workspace()
{
    std::error_code ec;
    fs::remove_all(path_, ec);
}

void Workspace::setEnv(const std::string &name, const std::string &value)
{
    extraEnv_.push_back(name + "=" + value);
}

pid_t Workspace::start(const std::vector<std::string> &args) const
{
    // The child's environment: ours, with the settings folders and the
    // driver's log inside the workspace.
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "XDG_", 4) != 0 && std::strncmp(*e, "QUORIN_TEST_", 12) != 0)
            env.emplace_back(*e);
    env.push_back("XDG_CONFIG_HOME=" + path_ + "/config");
    env.push_back("XDG_DATA_HOME=" + path_ + "/data");
    env.push_back("QUORIN_TEST_DRIVER_LOG=" + path_ + "/driver.log");
    env.insert(env.end(), extraEnv_.begin(), extraEnv_.end());

    std::vector<std::string> argv = {QUORIN_CLI_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char *> argp, envp;
    for (std::string &a : argv)
        argp.push_back(a.data());
    argp.push_back(nullptr);
    for (std::string &e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    const std::string out = path_ + "/.tool-stdout", err = path_ + "/.tool-stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addchdir_np(&actions, path_.c_str());
    pid_t pid = -1;
    int rc = posix_spawn(&pid, argp[0], &actions, nullptr, argp.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(rc));
    return pid;
}

ToolResult Workspace::wait(pid_t pid) const
{
    int raw = 0;
    while (waitpid(pid, &raw, 0) < 0 && errno == EINTR) {
    }
    ToolResult r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    r.out = readText(path_ + "/.tool-stdout");
    r.err = readText(path_ + "/.tool-stderr");
    return r;
}

ToolResult Workspace::run(const std::vector<std::string> &args) const
{
    return wait(start(args));
}

std::string Workspace::driverLog() const
{
    return exists(path_ + "/driver.log") ? readText(path_ + "/driver.log") : std::string();
}

std::string readText(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool exists(const std::string &path)
{
    std::error_code ec;
    return fs::exists(path, ec);
}

std::vector<std::string> listFolder(const std::string &folder)
{
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(folder, ec))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

namespace {

// libpng reports errors by longjmp: this function keeps its own state in
// plain locals and writes through pointers to the caller's objects.
bool readPngRows(std::FILE *f, Image *img, std::vector<unsigned char> *row)
{
    png_structp p = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(p);
    if (setjmp(png_jmpbuf(p))) {
        png_destroy_read_struct(&p, &info, nullptr);
        return false;
    }
    png_init_io(p, f);
    png_read_info(p, info);
    img->width = png_get_image_width(p, info);
    img->height = png_get_image_height(p, info);
    img->bits = png_get_bit_depth(p, info);
    img->channels = png_get_channels(p, info);
    png_color_8p sig = nullptr;
    if (png_get_sBIT(p, info, &sig) && sig != nullptr)
        img->significantBits = img->channels == 3 ? sig->red : sig->gray;
    row->resize(png_get_rowbytes(p, info));
    img->samples.reserve(std::size_t{img->width} * img->height * img->channels);
    for (std::uint32_t y = 0; y < img->height; ++y) {
        png_read_row(p, row->data(), nullptr);
        const unsigned char *r = row->data();
        for (std::size_t i = 0; i < std::size_t{img->width} * img->channels; ++i)
            img->samples.push_back(img->bits == 16 ? static_cast<std::uint16_t>(r[2 * i] << 8 | r[2 * i + 1]) : r[i]);
    }
    png_read_end(p, nullptr);
    png_destroy_read_struct(&p, &info, nullptr);
    return true;
}

Image readPng(const std::string &path)
{
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        throw std::runtime_error(path + ": cannot open");
    Image img;
    std::vector<unsigned char> row;
    const bool ok = readPngRows(f, &img, &row);
    std::fclose(f);
    if (!ok)
        throw std::runtime_error(path + ": damaged or incomplete PNG file");
    return img;
}

Image readTiff(const std::string &path)
{
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    TIFF *t = TIFFOpen(path.c_str(), "r");
    if (t == nullptr)
        throw std::runtime_error(path + ": cannot open as TIFF");
    Image img;
    std::uint16_t bits = 0, channels = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &img.width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &img.height);
    TIFFGetField(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetField(t, TIFFTAG_SAMPLESPERPIXEL, &channels);
    img.bits = bits;
    img.channels = channels;
    std::vector<unsigned char> row(static_cast<std::size_t>(TIFFScanlineSize(t)));
    for (std::uint32_t y = 0; y < img.height; ++y) {
        if (TIFFReadScanline(t, row.data(), y, 0) != 1) {
            TIFFClose(t);
            throw std::runtime_error(path + ": incomplete TIFF file");
        }
        for (std::size_t i = 0; i < std::size_t{img.width} * img.channels; ++i) {
            std::uint16_t v = row[i];
            if (bits == 16)
                std::memcpy(&v, row.data() + 2 * i, 2);
            img.samples.push_back(v);
        }
    }
    TIFFClose(t);
    return img;
}

} // namespace

Image readImage(const std::string &path)
{
    const std::string ext = fs::path(path).extension().string();
    return ext == ".png" ? readPng(path) : readTiff(path);
}

} // namespace cli_test
