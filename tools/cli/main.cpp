// quorin: the command-line tool for ORBILUX-VELTA K5 and K5C cameras. It
// parses the command line, checks every argument before any camera is
// opened, opens the camera named by --camera, applies --set settings, runs
// one sub-command and closes the camera again. Every failure is one line
// on stderr and a non-zero exit status (2 for bad arguments).
#include "camera_session.h"
#include "cli_error.h"
#include "commands.h"
#include "interrupt.h"
#include "settings.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace quorin::cli;

namespace {

constexpr const char kCameraHelp[] =
    "Cameras (--camera, else the environment variable QUORIN_CAMERA, else virtual:k5c):\n"
    "  virtual:k5c, virtual:k5   a virtual camera in this process (--link, default 7, --firmware,\n"
    "                            --camera-number)\n"
    "  driver:/path/libfoo.so    a host link driver, given --host-arg as the host argument of the\n"
    "                            camera's Open. The driver is a shared library exporting\n"
    "                              extern \"C\" const InterfaceTable *quorin_interface(void);\n"
    "                            which returns its filled interface table (quorin/quorin.h); the\n"
    "                            table's type is the interface code the camera is opened with.\n"
    "\n"
    "Every sub-command has --help. Settings given with --set NAME=VALUE (repeatable) are made\n"
    "after the camera is opened and before the sub-command runs, e.g. --set resolution=512x256.\n"
    "Exit status: 0 success, 1 failure, 2 bad arguments (no camera touched), 130 interrupted.";

// One line for stderr.
std::string oneLine(std::string text)
{
    for (char &c : text)
        if (c == '\n' || c == '\r')
            c = ' ';
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

int fail(const std::string &message, int status)
{
    std::fprintf(stderr, "quorin: %s\n", oneLine(message).c_str());
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"quorin - drive ORBILUX-VELTA K5 and K5C high-speed cameras through the QUORIN library", "quorin"};
    app.fallthrough(); // camera options may follow the sub-command
    // Words nobody takes are collected and refused below, by name.
    app.allow_extras();
    app.footer(kCameraHelp);

    CameraOptions camera;
    std::vector<std::string> settingTexts;
    app.set_version_flag("--version", "quorin " QUORIN_VERSION_STRING " (library header " QUORIN_VERSION_STRING ")");
    app.add_option("--camera", camera.choice,
                   "virtual:k5c, virtual:k5 or driver:PATH (default: $QUORIN_CAMERA, else virtual:k5c)");
    app.add_option("--link", camera.link, "Link type of the virtual camera: 2, 3, 4 or 7")->capture_default_str();
    app.add_option("--firmware", camera.firmware, "Firmware revision of the virtual camera (default 120)");
    app.add_option("--camera-number", camera.cameraNumber, "Number of the virtual camera (default 1)");
    app.add_option("--host-arg", camera.hostArg, "Host argument for the driver's Open (driver: cameras)");
    app.add_option("--set", settingTexts, "NAME=VALUE: a setting made before the sub-command (repeatable)");

    std::vector<Command> commands = {
        addInfoCommand(app),     addGetCommand(app),  addSetCommand(app),
        addListCommand(app),     addGrabCommand(app), addDownloadCommand(app),
        addLutCommand(app),      addDefectsCommand(app), addFlatfieldCommand(app),
        addRecordCommand(app),   addViewCommand(app, camera, settingTexts),
    };

    for (const Command &c : commands)
        c.app->footer(c.app->get_footer() +
                      "\n\nCamera (before or after the sub-command): --camera virtual:k5c|virtual:k5|driver:PATH, "
                      "--link, --firmware,\n--camera-number, --host-arg; settings first: --set NAME=VALUE. See "
                      "quorin --help.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == 0)
            return app.exit(e); // --help
        return fail(e.what(), kExitUsage);
    }

    try {
        const Command *command = nullptr;
        for (const Command &c : commands)
            if (app.got_subcommand(c.app))
                command = &c;
        const std::vector<std::string> extras = app.remaining(true);
        if (!extras.empty())
            throw UsageError((command == nullptr ? "unknown sub-command '" : "unexpected argument '") + extras[0] +
                             "' (see quorin --help)");
        if (command == nullptr)
            throw UsageError("a sub-command is required: info, get, set, list, grab, record, download, lut, "
                             "defects, flatfield or view (see quorin --help)");
        // Everything the command line says is checked before the camera
        // is touched; the command's own checks last, as they may create
        // its output folder.
        const CameraChoice choice = checkCameraOptions(camera);
        const std::vector<Setting> settings = checkSettings(settingTexts, "--set");
        command->check();
        if (command->runOwnCamera)
            return command->runOwnCamera();

        // Ctrl-C from here on lets the command end at a safe point, with
        // the camera back in live mode and closed.
        InterruptGuard guard;
        CameraSession session(choice);
        if (interruptRequested()) {
            session.close();
            return fail("interrupted while the camera was opened; nothing was done", kExitInterrupted);
        }
        applySettings(session, settings);
        const int status = command->run(session);
        session.close();
        return status;
    } catch (const CliError &e) {
        return fail(e.what(), e.exitStatus());
    } catch (const std::exception &e) {
        return fail(e.what(), kExitFailure);
    }
}
