// quorin defects: show the camera's defect pixels, replace them with a
// list from a text file of "x y" lines, or clear them.
#include "commands.h"

#include "cli_error.h"
#include "values.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

namespace quorin::cli {
namespace {

struct DefectOptions {
    std::string file;
    bool clear = false;
    std::vector<std::uint32_t> entries; // (x << 16) | y
};

std::vector<std::uint32_t> readDefectFile(const std::string &path)
{
    std::error_code ec;
    std::ifstream in(path);
    if (!in || !std::filesystem::is_regular_file(path, ec))
        throw UsageError("cannot read the defect file '" + path + "'");
    return parseDefectList(in, path);
}

} // namespace

Command addDefectsCommand(CLI::App &parent)
{
    auto o = std::make_shared<DefectOptions>();
    Command c;
    c.app = parent.add_subcommand("defects", "Show, replace or clear the camera's defect pixels");
    c.app->add_option("file", o->file, "Text file of defect pixels, one 'x y' per line ('#' starts a comment)");
    c.app->add_flag("--clear", o->clear, "Remove every defect pixel");
    c.app->footer("Without a file the present list is shown. The library sorts the list by row, drops repeats\n"
                  "and sends it to the camera.\n"
                  "\nExamples:\n  quorin defects\n  quorin defects my_defects.txt\n  quorin defects --clear");
    c.check = [o] {
        if (o->clear && !o->file.empty())
            throw UsageError("give either a defect file or --clear, not both");
        if (!o->file.empty())
            o->entries = readDefectFile(o->file);
    };
    c.run = [o](CameraSession &camera) {
        if (o->clear || !o->file.empty()) {
            // The library rewrites the whole buffer as the stored list.
            std::vector<std::uint32_t> buffer(QUORIN_MAX_LIST_ENTRIES, 0xFFFFFFFFu);
            std::copy(o->entries.begin(), o->entries.end(), buffer.begin());
            std::uint32_t stored = 0;
            std::int32_t err = 0;
            CameraSession::check(DEV_SetList(camera.device(), 0, QUORIN_SETLIST_DEFECTS, 0, buffer.data(),
                                             static_cast<std::uint32_t>(o->entries.size()), &stored, &err),
                                 err, "send the defect list");
            std::printf("stored %u defect pixels", stored);
            if (stored < o->entries.size())
                std::printf(" (%zu repeats dropped)", o->entries.size() - stored);
            std::printf("\n");
            return 0;
        }
        const auto entries = camera.list(QUORIN_LIST_DEFECTS, "of defect pixels");
        std::printf("%zu defect pixels\n", entries.size());
        for (std::uint32_t e : entries)
            std::printf("  %u %u\n", e >> 16, e & 0xFFFF);
        return 0;
    };
    return c;
}

} // namespace quorin::cli
