// Output name patterns and output folder checks.
#include "output_names.h"

#include "cli_error.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
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

// Creates the folder when missing; refuses one that cannot be written.
void checkFolder(const std::string &folder, const std::string &forWhat)
{
    std::error_code ec;
    if (!fs::exists(folder, ec)) {
        fs::create_directories(folder, ec);
        if (ec)
            throw UsageError("cannot create the folder '" + folder + "' for " + forWhat + ": " + ec.message());
    }
    if (!fs::is_directory(folder, ec))
        throw UsageError("'" + folder + "' (for " + forWhat + ") is not a folder");
    // Permission bits say little for root or on special file systems:
    // create (and remove) a file, as the output will be.
    std::string probe = (fs::path(folder) / ".quorin-probe.XXXXXX").string();
    const int fd = mkstemp(probe.data());
    if (fd < 0)
        throw UsageError("the folder '" + folder + "' for " + forWhat + " is not writable");
    close(fd);
    unlink(probe.c_str());
}

std::string folderOf(const std::string &path)
{
    std::string folder = fs::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

} // namespace

std::string OutputPattern::path(std::uint32_t n) const
{
    if (!numbered)
        return prefix;
    std::string digits = std::to_string(n);
    if (static_cast<int>(digits.size()) < width)
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
    return prefix + digits + suffix;
}

OutputPattern checkOutputPattern(const std::string &pattern, const std::string &formatOption, std::uint32_t files)
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
    if (!out.numbered && files > 1)
        throw UsageError("output name '" + pattern + "' needs a number field such as %04d for " +
                         std::to_string(files) + " files");

    std::string fmt = lower(formatOption);
    if (fmt.empty()) {
        std::string ext = lower(fs::path(out.path(1)).extension().string());
        if (ext == ".png")
            fmt = "png";
        else if (ext == ".tif" || ext == ".tiff")
            fmt = "tiff";
        else
            throw UsageError("cannot tell the image format of '" + pattern +
                             "': use the extension .png, .tif or .tiff, or --format");
    }
    if (fmt == "png")
        out.format = ImageFormat::Png;
    else if (fmt == "tiff" || fmt == "tif")
        out.format = ImageFormat::Tiff;
    else
        throw UsageError("unknown image format '" + formatOption + "' (use png or tiff)");

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

} // namespace quorin::cli
