// quorin view in a tool built without GStreamer: the command exists and
// says what it needs.
#include "commands.h"

#include "cli_error.h"

namespace quorin::cli {

Command addViewCommand(CLI::App &parent, const CameraOptions &, const std::vector<std::string> &)
{
    Command c;
    c.app = parent.add_subcommand("view", "Show the live picture in a window (needs a build with GStreamer)");
    // The options of view, so that they reach the message below.
    c.app->add_option("-n,--count");
    c.app->add_option("--sink");
    c.check = [] {
        throw UsageError("this quorin was built without GStreamer: install libgstreamer1.0-dev and "
                         "libgstreamer-plugins-base1.0-dev and build again to get view");
    };
    return c;
}

} // namespace quorin::cli
