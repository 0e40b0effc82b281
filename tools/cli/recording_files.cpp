// The three kinds of download output.
#include "recording_files.h"

#include "cli_error.h"
#include "quorin/quorin.h"

#include <hdf5.h>
#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <unistd.h>

namespace quorin::cli {

FrameStamp decodeStamp(std::uint32_t frame, const unsigned char *r)
{
    FrameStamp s;
    s.frame = frame;
    std::memcpy(&s.day, r, 4);
    s.hour = r[4];
    s.minute = r[5];
    s.second = r[6];
    std::memcpy(&s.microsecond, r + 8, 4);
    s.timeCode = r[12];
    return s;
}

std::int64_t stampMicroseconds(const FrameStamp &s)
{
    return (((std::int64_t{s.day} * 24 + s.hour) * 60 + s.minute) * 60 + s.second) * 1000000 + s.microsecond;
}

std::string timeOfDay(const FrameStamp &s)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u.%06u", s.hour, s.minute, s.second, s.microsecond);
    return text;
}

bool isOneFile(const OutputPattern &pattern)
{
    return pattern.format == ImageFormat::Hdf5 || (pattern.format == ImageFormat::Tiff && !pattern.numbered);
}

namespace {

// A file created for the frames: exclusively, unless it may be replaced.
int createFile(const std::string &path, bool overwrite, int access)
{
    const int fd = ::open(path.c_str(), access | O_CREAT | (overwrite ? O_TRUNC : O_EXCL) | O_CLOEXEC, 0644);
    if (fd < 0)
        throw CliError("cannot create '" + path + "': " + std::strerror(errno));
    return fd;
}

// ---- Numbered files and their CSV ----------------------------------------

// A file name as a CSV field: quoted when it holds a comma or a quote.
std::string csvField(const std::string &text)
{
    if (text.find_first_of(",\"\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

class NumberedFiles : public FrameSink {
public:
    NumberedFiles(const SinkOptions &o, const RecordingLayout &layout)
        : pattern_(o.pattern), csvPath_(o.csv), layout_(layout)
    {
        fd_ = createFile(csvPath_, o.overwrite, O_WRONLY | O_APPEND);
        writeAll(fd_, "frame,file,day,hour,minute,second,microsecond,time_code,time,seconds\n", csvPath_);
    }
    ~NumberedFiles() override
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    // Image files are encoded side by side, one per core.
    unsigned writers() const override { return std::max(1u, std::thread::hardware_concurrency()); }
    void write(const void *pixels, const FrameStamp &s, std::uint64_t) override
    {
        writeImage(pattern_.path(s.frame), pattern_.format,
                   {pixels, layout_.width, layout_.height, layout_.channels, layout_.bits, false, 10});
    }
    // The CSV line follows the file, in frame order, straight to the file.
    void written(const FrameStamp &s, std::uint64_t) override
    {
        char text[128];
        std::snprintf(text, sizeof text, ",%u,%u,%u,%u,%u,%u,%s,%.6f\n", s.day, s.hour, s.minute, s.second,
                      s.microsecond, s.timeCode, timeOfDay(s).c_str(), s.seconds);
        writeAll(fd_,
                 std::to_string(s.frame) + "," +
                     csvField(std::filesystem::path(pattern_.path(s.frame)).filename().string()) + text,
                 csvPath_);
    }
    void close(std::uint64_t) override
    {
        const int fd = fd_;
        fd_ = -1;
        if (::close(fd) != 0)
            throw CliError("cannot write '" + csvPath_ + "': " + std::strerror(errno));
    }
    std::string describe() const override { return pattern_.folder; }

private:
    OutputPattern pattern_;
    std::string csvPath_;
    RecordingLayout layout_;
    int fd_ = -1;
};

// ---- HDF5 -----------------------------------------------------------------

// The time stamp as the file stores it.
struct StoredStamp {
    std::uint16_t day;
    std::uint8_t hour, minute, second, timeCode;
    std::uint32_t microsecond;
};

// Closes an HDF5 identifier when it goes out of scope.
struct Handle {
    hid_t id = H5I_INVALID_HID;
    herr_t (*closer)(hid_t) = nullptr;
    Handle() = default;
    Handle(hid_t i, herr_t (*c)(hid_t)) : id(i), closer(c) {}
    Handle(Handle &&o) noexcept : id(o.id), closer(o.closer) { o.id = H5I_INVALID_HID; }
    Handle &operator=(Handle &&o) noexcept
    {
        std::swap(id, o.id);
        std::swap(closer, o.closer);
        return *this;
    }
    ~Handle()
    {
        if (id >= 0 && closer != nullptr)
            closer(id);
    }
    operator hid_t() const { return id; }
};

// Every dataset holds `frames` entries from the start, all their space
// allocated when the file is made: writing a frame then changes no
// metadata, so that the file on disk is whole at every moment. Entries not
// written yet read as zeros (frame number 0); the end of a download cuts
// the datasets to the frames written.
class Hdf5File : public FrameSink {
public:
    Hdf5File(const SinkOptions &o, const RecordingLayout &layout) : path_(o.pattern.path(0)), layout_(layout)
    {
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // failures are reported below, in one line
        errno = 0;
        // Exclusive creation refuses a file made since the checks.
        file_ = {H5Fcreate(path_.c_str(), o.overwrite ? H5F_ACC_TRUNC : H5F_ACC_EXCL, H5P_DEFAULT, H5P_DEFAULT),
                 H5Fclose};
        check(file_ >= 0, "create");
        const hsize_t n = layout.frames;
        const int rank = layout.channels == 3 ? 4 : 3;
        const hsize_t dims[4] = {n, layout.height, layout.width, 3};
        pixelType_ = layout.bits == 16 ? H5T_NATIVE_UINT16 : H5T_NATIVE_UINT8;
        frames_ = dataset("frames", layout.bits == 16 ? H5T_STD_U16LE : H5T_STD_U8LE, rank, dims);
        stampType_ = {H5Tcreate(H5T_COMPOUND, sizeof(StoredStamp)), H5Tclose};
        H5Tinsert(stampType_, "day", HOFFSET(StoredStamp, day), H5T_NATIVE_UINT16);
        H5Tinsert(stampType_, "hour", HOFFSET(StoredStamp, hour), H5T_NATIVE_UINT8);
        H5Tinsert(stampType_, "minute", HOFFSET(StoredStamp, minute), H5T_NATIVE_UINT8);
        H5Tinsert(stampType_, "second", HOFFSET(StoredStamp, second), H5T_NATIVE_UINT8);
        H5Tinsert(stampType_, "microsecond", HOFFSET(StoredStamp, microsecond), H5T_NATIVE_UINT32);
        H5Tinsert(stampType_, "time_code", HOFFSET(StoredStamp, timeCode), H5T_NATIVE_UINT8);
        stamps_ = dataset("timestamps", stampType_, 1, dims);
        numbers_ = dataset("frame_number", H5T_STD_U32LE, 1, dims);
        seconds_ = dataset("seconds", H5T_IEEE_F64LE, 1, dims);
        text(frames_, "axes", layout.channels == 3 ? "frame,y,x,rgb" : "frame,y,x");
        number(frames_, "significant_bits", layout.bits == 16 ? 10 : 8);
        text(seconds_, "unit", "s since the first frame of the file");
        for (const RecordedSetting &s : layout.settings)
            s.isText ? text(file_, s.name, s.text) : number(file_, s.name, s.number);
        check(H5Fflush(file_, H5F_SCOPE_LOCAL) >= 0, "write");
    }

    void write(const void *pixels, const FrameStamp &s, std::uint64_t index) override
    {
        errno = 0;
        const hsize_t start[4] = {index, 0, 0, 0};
        const hsize_t count[4] = {1, layout_.height, layout_.width, 3};
        put(frames_, pixelType_, layout_.channels == 3 ? 4 : 3, start, count, pixels);
        const StoredStamp stored{static_cast<std::uint16_t>(s.day), s.hour, s.minute, s.second, s.timeCode,
                                 s.microsecond};
        put(stamps_, stampType_, 1, start, count, &stored);
        put(numbers_, H5T_NATIVE_UINT32, 1, start, count, &s.frame);
        put(seconds_, H5T_NATIVE_DOUBLE, 1, start, count, &s.seconds);
        // Whatever HDF5 still holds goes to the file: the frame is in.
        check(H5Fflush(file_, H5F_SCOPE_LOCAL) >= 0, "write");
    }

    void close(std::uint64_t count) override
    {
        if (count < layout_.frames)
            for (hid_t d : {frames_.id, stamps_.id, numbers_.id, seconds_.id}) {
                hsize_t dims[4] = {};
                Handle space{H5Dget_space(d), H5Sclose};
                const int rank = H5Sget_simple_extent_dims(space, dims, nullptr);
                dims[0] = count;
                check(rank > 0 && H5Dset_extent(d, dims) >= 0, "shorten");
            }
        frames_ = {};
        stamps_ = {};
        numbers_ = {};
        seconds_ = {};
        const hid_t f = file_.id;
        file_.id = H5I_INVALID_HID;
        check(H5Fclose(f) >= 0, "close");
    }

    std::string describe() const override { return path_; }

private:
    void check(bool ok, const char *what) const
    {
        if (!ok)
            throw CliError(std::string("cannot ") + what + " the HDF5 file '" + path_ + "'" +
                           (errno != 0 ? std::string(": ") + std::strerror(errno) : std::string()));
    }

    Handle dataset(const char *name, hid_t type, int rank, const hsize_t *dims)
    {
        hsize_t maxDims[4] = {H5S_UNLIMITED, dims[1], dims[2], dims[3]};
        // A frame per chunk; the stamps in chunks of a few thousand.
        hsize_t chunk[4] = {rank == 1 ? std::min<hsize_t>(4096, std::max<hsize_t>(dims[0], 1)) : 1, dims[1], dims[2],
                            dims[3]};
        Handle space{H5Screate_simple(rank, dims, maxDims), H5Sclose};
        Handle props{H5Pcreate(H5P_DATASET_CREATE), H5Pclose};
        H5Pset_chunk(props, rank, chunk);
        H5Pset_alloc_time(props, H5D_ALLOC_TIME_EARLY);
        H5Pset_fill_time(props, rank == 1 ? H5D_FILL_TIME_ALLOC : H5D_FILL_TIME_NEVER);
        Handle d{H5Dcreate2(file_, name, type, space, H5P_DEFAULT, props, H5P_DEFAULT), H5Dclose};
        check(d >= 0, "write");
        return d;
    }

    void put(hid_t d, hid_t type, int rank, const hsize_t *start, const hsize_t *count, const void *data)
    {
        Handle fileSpace{H5Dget_space(d), H5Sclose};
        Handle memSpace{H5Screate_simple(rank, count, nullptr), H5Sclose};
        check(H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, start, nullptr, count, nullptr) >= 0 &&
                  H5Dwrite(d, type, memSpace, fileSpace, H5P_DEFAULT, data) >= 0,
              "write");
    }

    void number(hid_t object, const std::string &name, std::int64_t value)
    {
        Handle space{H5Screate(H5S_SCALAR), H5Sclose};
        Handle a{H5Acreate2(object, name.c_str(), H5T_STD_I64LE, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose};
        check(a >= 0 && H5Awrite(a, H5T_NATIVE_INT64, &value) >= 0, "write");
    }

    void text(hid_t object, const std::string &name, const std::string &value)
    {
        Handle type{H5Tcopy(H5T_C_S1), H5Tclose};
        H5Tset_size(type, H5T_VARIABLE);
        H5Tset_cset(type, H5T_CSET_UTF8);
        Handle space{H5Screate(H5S_SCALAR), H5Sclose};
        Handle a{H5Acreate2(object, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose};
        const char *c = value.c_str();
        check(a >= 0 && H5Awrite(a, type, &c) >= 0, "write");
    }

    std::string path_;
    RecordingLayout layout_;
    Handle file_, frames_, stamps_, numbers_, seconds_, stampType_;
    hid_t pixelType_ = H5I_INVALID_HID;
};

// ---- Multi-page BigTIFF ----------------------------------------------------

// A page per frame, its time stamp in the page's ImageDescription as a
// line of JSON. libtiff links each page in only once it is complete.
class TiffPages : public FrameSink {
public:
    TiffPages(const SinkOptions &o, const RecordingLayout &layout) : path_(o.pattern.path(0)), layout_(layout)
    {
        catchTiffMessages();
        const int fd = createFile(path_, o.overwrite, O_RDWR);
        tif_ = TIFFFdOpen(fd, path_.c_str(), "w8");
        if (tif_ == nullptr) {
            ::close(fd);
            throw CliError("cannot write '" + path_ + "'" + takeTiffMessage());
        }
    }
    ~TiffPages() override
    {
        if (tif_ != nullptr)
            TIFFClose(tif_);
    }

    void write(const void *pixels, const FrameStamp &s, std::uint64_t) override
    {
        char description[256];
        std::snprintf(description, sizeof description,
                      "{\"frame\": %u, \"day\": %u, \"time\": \"%s\", \"seconds\": %.6f, \"time_code\": %u}", s.frame,
                      s.day, timeOfDay(s).c_str(), s.seconds, s.timeCode);
        const ImageView view{pixels, layout_.width, layout_.height, layout_.channels, layout_.bits, false, 10};
        bool ok = TIFFSetField(tif_, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE) &&
                  TIFFSetField(tif_, TIFFTAG_IMAGEWIDTH, layout_.width) &&
                  TIFFSetField(tif_, TIFFTAG_IMAGELENGTH, layout_.height) &&
                  TIFFSetField(tif_, TIFFTAG_SAMPLESPERPIXEL, layout_.channels) &&
                  TIFFSetField(tif_, TIFFTAG_BITSPERSAMPLE, layout_.bits) &&
                  TIFFSetField(tif_, TIFFTAG_PHOTOMETRIC,
                               layout_.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
                  TIFFSetField(tif_, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                  TIFFSetField(tif_, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
                  TIFFSetField(tif_, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                  TIFFSetField(tif_, TIFFTAG_ROWSPERSTRIP, layout_.height) &&
                  TIFFSetField(tif_, TIFFTAG_IMAGEDESCRIPTION, description) &&
                  TIFFSetField(tif_, TIFFTAG_SOFTWARE, "quorin " QUORIN_VERSION_STRING);
        const void *data = pixels;
        if (layout_.bits == 16) { // scaled to the 16-bit range, as single TIFF files are
            scaled_.resize(layout_.frameBytes());
            std::vector<unsigned char> row;
            const std::size_t rowBytes = layout_.frameBytes() / layout_.height;
            for (std::uint32_t y = 0; y < layout_.height; ++y) {
                fileRow(view, y, row);
                std::memcpy(scaled_.data() + rowBytes * y, row.data(), rowBytes);
            }
            data = scaled_.data();
        }
        ok = ok && TIFFWriteEncodedStrip(tif_, 0, const_cast<void *>(data), static_cast<tmsize_t>(layout_.frameBytes())) >= 0;
        if (!ok || !TIFFWriteDirectory(tif_))
            throw CliError("cannot write '" + path_ + "'" + takeTiffMessage());
    }

    void close(std::uint64_t) override
    {
        const bool ok = TIFFFlush(tif_) == 1;
        TIFFClose(tif_);
        tif_ = nullptr;
        if (!ok)
            throw CliError("cannot write '" + path_ + "'" + takeTiffMessage());
    }

    std::string describe() const override { return path_; }

private:
    std::string path_;
    RecordingLayout layout_;
    TIFF *tif_ = nullptr;
    std::vector<unsigned char> scaled_;
};

} // namespace

std::unique_ptr<FrameSink> openSink(const SinkOptions &options, const RecordingLayout &layout)
{
    if (options.pattern.format == ImageFormat::Hdf5)
        return std::make_unique<Hdf5File>(options, layout);
    if (isOneFile(options.pattern))
        return std::make_unique<TiffPages>(options, layout);
    return std::make_unique<NumberedFiles>(options, layout);
}

} // namespace quorin::cli
