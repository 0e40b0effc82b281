// Image files through libpng and libtiff.
#include "image_files.h"

#include "cli_error.h"

#include <png.h>
#include <tiffio.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quorin::cli {
namespace {

// A temporary file beside the final one: ".name.XXXXXX" in the same folder,
// so that the rename stays on one file system.
struct TempFile {
    std::string path;
    int fd = -1;

    explicit TempFile(const std::string &finalPath)
    {
        std::filesystem::path p(finalPath);
        std::string name = p.filename().string();
        name.insert(name.begin(), '.');
        name.append(".XXXXXX");
        path = (p.parent_path() / name).string();
        fd = mkstemp(path.data());
        if (fd < 0)
            throw CliError("cannot create a file in the folder of '" + finalPath + "': " + std::strerror(errno));
    }
    ~TempFile()
    {
        if (fd >= 0)
            ::close(fd);
        if (!path.empty())
            unlink(path.c_str());
    }
    // Renames the finished file to its final name.
    void commit(const std::string &finalPath)
    {
        fchmod(fd, 0644);
        if (std::rename(path.c_str(), finalPath.c_str()) != 0)
            throw CliError("cannot rename the new file to '" + finalPath + "': " + std::strerror(errno));
        path.clear();
    }
};

bool hostIsLittleEndian()
{
    const std::uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

} // namespace

void fileRow(const ImageView &img, std::uint32_t y, std::vector<unsigned char> &row)
{
    const std::size_t samples = std::size_t{img.width} * img.channels;
    if (img.bits == 8) {
        const auto *src = static_cast<const std::uint8_t *>(img.pixels) + samples * y;
        row.assign(src, src + samples);
        if (img.channels == 3 && img.blueFirst)
            for (std::size_t i = 0; i < samples; i += 3)
                std::swap(row[i], row[i + 2]);
        return;
    }
    const auto *src = static_cast<const std::uint16_t *>(img.pixels) + samples * y;
    const unsigned shift = img.significantBits < 16 ? 16 - img.significantBits : 0;
    row.resize(samples * 2);
    auto *out = reinterpret_cast<std::uint16_t *>(row.data());
    for (std::size_t i = 0; i < samples; ++i)
        out[i] = static_cast<std::uint16_t>(src[i] << shift);
    if (img.channels == 3 && img.blueFirst)
        for (std::size_t i = 0; i < samples; i += 3)
            std::swap(out[i], out[i + 2]);
}

namespace {

// libpng reports errors by longjmp; this function keeps only plain data
// across the setjmp, and every row is prepared before it is handed over.
bool writePngRows(std::FILE *f, const ImageView &img, std::vector<std::vector<unsigned char>> &rows,
                  std::string &message)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &message,
                                              [](png_structp p, png_const_charp msg) {
                                                  *static_cast<std::string *>(png_get_error_ptr(p)) = msg;
                                                  png_longjmp(p, 1);
                                              },
                                              [](png_structp, png_const_charp) {});
    if (png == nullptr)
        return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, img.width, img.height, static_cast<int>(img.bits),
                 img.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (img.bits == 16) {
        png_color_8 sig{};
        sig.red = sig.green = sig.blue = sig.gray = static_cast<png_byte>(img.significantBits);
        png_set_sBIT(png, info, &sig);
    }
    png_set_compression_level(png, 1); // speed over size for long sequences
    png_write_info(png, info);
    if (img.bits == 16 && hostIsLittleEndian())
        png_set_swap(png); // PNG stores 16-bit samples big-endian
    for (auto &row : rows)
        png_write_row(png, row.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

void writePng(const std::string &path, const ImageView &img)
{
    std::vector<std::vector<unsigned char>> rows(img.height);
    for (std::uint32_t y = 0; y < img.height; ++y)
        fileRow(img, y, rows[y]);
    TempFile tmp(path);
    std::FILE *f = fdopen(tmp.fd, "wb");
    if (f == nullptr)
        throw CliError("cannot write '" + path + "': " + std::strerror(errno));
    tmp.fd = -1; // the stream owns it now
    std::string message;
    bool ok = writePngRows(f, img, rows, message);
    ok = (std::fflush(f) == 0) && ok;
    int fd = dup(fileno(f));
    ok = (std::fclose(f) == 0) && ok;
    tmp.fd = fd;
    if (!ok)
        throw CliError("cannot write '" + path + "'" + (message.empty() ? "" : ": " + message));
    tmp.commit(path);
}

void writeTiff(const std::string &path, const ImageView &img)
{
    catchTiffMessages();
    TempFile tmp(path);
    TIFF *tif = TIFFFdOpen(tmp.fd, tmp.path.c_str(), "w");
    if (tif == nullptr)
        throw CliError("cannot write '" + path + "'" + takeTiffMessage());
    bool ok = TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, img.width) && TIFFSetField(tif, TIFFTAG_IMAGELENGTH, img.height) &&
              TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, img.channels) &&
              TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, img.bits) &&
              TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, img.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
              TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
              TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
              TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    std::vector<unsigned char> row;
    for (std::uint32_t y = 0; ok && y < img.height; ++y) {
        fileRow(img, y, row);
        ok = TIFFWriteScanline(tif, row.data(), y, 0) == 1;
    }
    // TIFFClose flushes the directory; the descriptor stays ours to close.
    ok = TIFFFlush(tif) == 1 && ok;
    TIFFCleanup(tif);
    if (!ok)
        throw CliError("cannot write '" + path + "'" + takeTiffMessage());
    tmp.commit(path);
}

// libtiff reports errors through a handler; keep the last message.
thread_local std::string g_tiffMessage;

void tiffError(const char *, const char *fmt, va_list args)
{
    char text[256];
    std::vsnprintf(text, sizeof text, fmt, args);
    g_tiffMessage = text;
}

} // namespace

void catchTiffMessages()
{
    TIFFSetErrorHandler(tiffError);
    TIFFSetWarningHandler(nullptr);
    g_tiffMessage.clear();
}

std::string takeTiffMessage()
{
    std::string m = g_tiffMessage.empty() ? "" : ": " + g_tiffMessage;
    g_tiffMessage.clear();
    return m;
}

void writeImage(const std::string &path, ImageFormat format, const ImageView &image)
{
    if (format == ImageFormat::Png)
        writePng(path, image);
    else
        writeTiff(path, image);
}

void writeAll(int fd, const std::string &text, const std::string &path)
{
    const char *p = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            throw CliError("cannot write '" + path + "': " + std::strerror(errno));
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

} // namespace quorin::cli
