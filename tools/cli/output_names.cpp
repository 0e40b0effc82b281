// Output name patterns and output folder checks.
#include "output_names.h"

#include "cli_error.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <sys/statvfs.h>
#include <unistd.h>

namespace quorin::cli {
namespace {

namespace fs = std::filesystem;

std::string lower(std::string s)
{
    for (char &c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The folder itself, or the nearest folder above it that exists.
fs::path existingAncestor(const fs::path &folder)
{
    std::error_code ec;
    fs::path p = folder;
    while (!p.empty() && !fs::exists(p, ec))
        p = p.parent_path();
    return p.empty() ? fs::path(".") : p;
}

// Refuses a folder that cannot be written, or created where it is missing;
// creates nothing, so that a later refusal leaves no empty folder behind.
void checkFolder(const std::string &folder, const std::string &forWhat)
{
    std::error_code ec;
    const fs::path base = existingAncestor(folder);
    if (!fs::is_directory(base, ec))
        throw UsageError("'" + base.string() + "' (for " + forWhat + ") is not a folder");
    // Permission bits say little for root or on special file systems:
    // create (and remove) a file, as the output will be.
    std::string probe = (base / ".quorin-probe.XXXXXX").string();
    const int fd = mkstemp(probe.data());
    if (fd < 0)
        throw UsageError("the folder '" + (base == fs::path(folder) ? folder : base.string()) + "' for " + forWhat +
                         " is not writable");
    close(fd);
    unlink(probe.c_str());
}

} // namespace

std::string folderOf(const std::string &path)
{
    std::string folder = fs::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

std::string OutputPattern::path(std::uint32_t n) const
{
    if (!numbered)
        return prefix;
    std::string digits = std::to_string(n);
    if (static_cast<int>(digits.size()) < width)
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), pad);
    return prefix + digits + suffix;
}

OutputPattern checkOutputPattern(const std::string &pattern, const std::string &formatOption, std::uint32_t files,
                                 bool oneFile)
{
    OutputPattern out;
    std::string text; // the pattern with %% resolved, up to the field
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') {
            text += pattern[i];
            continue;
        }
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            text += '%';
            ++i;
            continue;
        }
        // %d, %Nd or %0Nd
        std::size_t j = i + 1;
        while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j])))
            ++j;
        if (j >= pattern.size() || pattern[j] != 'd' || out.numbered || j - i > 4)
            throw UsageError("output name '" + pattern + "' must hold at most one number field %d, %4d or %04d");
        out.numbered = true;
        out.width = j > i + 1 ? std::stoi(pattern.substr(i + 1, j - i - 1)) : 0;
        out.pad = j > i + 1 && pattern[i + 1] == '0' ? '0' : ' ';
        out.prefix = text;
        text.clear();
        i = j;
    }
    if (out.numbered)
        out.suffix = text;
    else
        out.prefix = text;
    if (out.suffix.find('/') != std::string::npos)
        throw UsageError("output name '" + pattern + "' must number the files, not their folder");

    std::string fmt = lower(formatOption);
    const char *formats = oneFile ? ".png, .tif, .tiff, .h5 or .hdf5" : ".png, .tif or .tiff";
    if (fmt.empty()) {
        std::string ext = lower(fs::path(out.path(1)).extension().string());
        if (ext == ".png")
            fmt = "png";
        else if (ext == ".tif" || ext == ".tiff")
            fmt = "tiff";
        else if (ext == ".h5" || ext == ".hdf5")
            fmt = "hdf5";
        else
            throw UsageError("cannot tell the image format of '" + pattern + "': use the extension " + formats +
                             ", or --format");
    }
    if (fmt == "png")
        out.format = ImageFormat::Png;
    else if (fmt == "tiff" || fmt == "tif")
        out.format = ImageFormat::Tiff;
    else if (fmt == "hdf5" && oneFile)
        out.format = ImageFormat::Hdf5;
    else
        throw UsageError("unknown image format '" + formatOption + "' (use " + (oneFile ? "png, tiff or hdf5" : "png or tiff") + ")");
    const bool manyInOne = oneFile && out.format != ImageFormat::Png;
    if (out.numbered && out.format == ImageFormat::Hdf5)
        throw UsageError("output name '" + pattern + "': an HDF5 file holds every frame, it takes no number field");
    if (!out.numbered && files > 1 && !manyInOne)
        throw UsageError("output name '" + pattern + "' needs a number field such as %04d for " +
                         std::to_string(files) + " files" + (oneFile ? ", or a .tif or .h5 file for all" : ""));

    out.folder = folderOf(out.path(0));
    checkFolder(out.folder, "the images");
    return out;
}

void checkOutputFile(const std::string &path, const char *what)
{
    if (path.empty() || path.back() == '/')
        throw UsageError(std::string("the ") + what + " needs a file name, not '" + path + "'");
    checkFolder(folderOf(path), what);
}

void checkNewFile(const std::string &path, bool overwrite)
{
    std::error_code ec;
    if (!overwrite && fs::exists(path, ec))
        throw UsageError("'" + path + "' exists (use --overwrite to replace it)");
}

void createFolder(const std::string &folder)
{
    std::error_code ec;
    if (fs::exists(folder, ec))
        return;
    fs::create_directories(folder, ec);
    if (ec)
        throw CliError("cannot create the folder '" + folder + "': " + ec.message());
}

void checkRoom(const std::string &folder, std::uint64_t bytes, const std::string &forWhat)
{
    struct statvfs fsInfo {};
    if (statvfs(existingAncestor(folder).c_str(), &fsInfo) != 0)
        return; // nothing to go by: the writes themselves will tell
    const std::uint64_t free = std::uint64_t{fsInfo.f_bavail} * fsInfo.f_frsize;
    constexpr std::uint64_t kMiB = 1 << 20;
    if (bytes > free)
        throw UsageError("not enough room on the disk of '" + folder + "': " + forWhat + " need about " +
                         std::to_string((bytes + kMiB - 1) / kMiB) + " MiB, " + std::to_string(free / kMiB) +
                         " MiB are free");
}

} // namespace quorin::cli
