// quorin get / set / list: any capability or value list by name or number,
// values shown and read in their units.
#include "commands.h"

#include "names.h"
#include "settings.h"
#include "values.h"

#include <cstdio>
#include <memory>
#include <optional>

namespace quorin::cli {
namespace {

// "frame-rate (2)", or "capability 97" for ids the table does not name.
std::string label(const char *name, std::uint32_t id, const char *unnamed)
{
    if (std::string(name) == unnamed)
        return std::string(unnamed) + " " + std::to_string(id);
    return std::string(name) + " (" + std::to_string(id) + ")";
}

struct CapsOptions {
    std::vector<std::string> names;
    std::string name, value;
    std::optional<std::uint32_t> subIndex;
    bool raw = false;
    bool json = false;
    std::vector<CapabilityName> capabilities;
    ListName listEntry{};
    Value parsed;
};

} // namespace

Command addGetCommand(CLI::App &parent)
{
    auto o = std::make_shared<CapsOptions>();
    Command c;
    c.app = parent.add_subcommand("get", "Read capabilities by name or number");
    c.app->add_option("capability", o->names, "Capability names or numbers 0..162")->required();
    c.app->add_option("--sub", o->subIndex, "Sub-index (for the ids that take one)");
    c.app->add_flag("--raw", o->raw, "Show the plain numbers value and value2");
    c.app->add_flag("--json", o->json, "One JSON object: each name with its id, value, value2 and text");
    c.app->footer("Capabilities:\n" + capabilityTable() +
                  "\nExamples:\n  quorin get resolution frame-rate\n  quorin get 2\n  quorin get 34 --sub 2\n"
                  "  quorin get frame-rate shutter --json");
    c.check = [o] {
        o->capabilities.clear();
        for (const std::string &n : o->names)
            o->capabilities.push_back(resolveCapability(n, kGet));
    };
    c.run = [o](CameraSession &camera) {
        std::string json;
        for (const CapabilityName &cap : o->capabilities) {
            const std::string what = label(cap.name, cap.id, "capability");
            std::uint32_t value2 = 0;
            const std::uint32_t value = camera.get(cap.id, what, o->subIndex.value_or(cap.subIndex), &value2);
            const std::string shown =
                o->raw ? std::to_string(value) + " " + std::to_string(value2) : formatValue(cap.format, value, value2);
            if (o->json)
                json += (json.empty() ? "{" : ", ") + jsonText(std::string(cap.name) == "capability" ? what : cap.name) +
                        ": {\"id\": " + std::to_string(cap.id) + ", \"value\": " + std::to_string(value) +
                        ", \"value2\": " + std::to_string(value2) + ", \"text\": " +
                        jsonText(formatValue(cap.format, value, value2)) + "}";
            else
                std::printf("%s: %s\n", what.c_str(), shown.c_str());
        }
        if (o->json)
            std::printf("%s}\n", json.c_str());
        return 0;
    };
    return c;
}

Command addSetCommand(CLI::App &parent)
{
    auto o = std::make_shared<CapsOptions>();
    Command c;
    c.app = parent.add_subcommand("set", "Change a capability by name or number, then read it back");
    c.app->add_option("capability", o->name, "Capability name or number 0..162")->required();
    c.app->add_option("value", o->value, "The new value in the capability's notation")->required();
    c.app->add_option("--sub", o->subIndex, "Sub-index (for the ids that take one)");
    c.app->footer("Values: sizes WxH (512x256), rates in fps (2000), shutter speeds N or 1/N, switches on/off,\n"
                  "LUT modes by name (normal, gamma-0.7, gain-2, gain-4, negative, user), colour temperatures\n"
                  "5100K, 3100K, user-1, user-2, trigger modes CODE[,PARAMETER], numbers in decimal or 0x hex.\n"
                  "\nCapabilities:\n" +
                  capabilityTable() +
                  "\nExamples:\n  quorin set resolution 512x256\n  quorin set lut-mode gamma-0.7\n"
                  "  quorin set shutter 1/4000\n  quorin set 2 500");
    c.check = [o] {
        o->capabilities = {resolveCapability(o->name, kSet)};
        o->parsed = parseValue(o->capabilities[0].format, o->value);
    };
    c.run = [o](CameraSession &camera) {
        const CapabilityName &cap = o->capabilities[0];
        const std::string what = label(cap.name, cap.id, "capability");
        const std::uint32_t sub = o->subIndex.value_or(cap.subIndex);
        setExplained(camera, cap.id, o->parsed.value, what, sub, o->parsed.value2);
        // Read back where the id reads the same setting; set-only ids and
        // actions report what was sent.
        std::uint32_t value = o->parsed.value, value2 = o->parsed.value2;
        std::int32_t err = 0;
        if ((cap.access & kGet) && !(cap.access & kDiffers) && !camera.tryGet(cap.id, sub, value, value2, err)) {
            value = o->parsed.value;
            value2 = o->parsed.value2;
        }
        std::printf("%s: %s\n", what.c_str(), formatValue(cap.format, value, value2).c_str());
        return 0;
    };
    return c;
}

Command addListCommand(CLI::App &parent)
{
    auto o = std::make_shared<CapsOptions>();
    Command c;
    c.app = parent.add_subcommand("list", "Show a value list by name or number");
    c.app->add_option("list", o->name, "List name or number 0..41")->required();
    c.app->add_option("--sub", o->subIndex, "Sub-index (for the lists that take one)");
    c.app->add_flag("--raw", o->raw, "Show the plain numbers");
    c.app->add_flag("--json", o->json, "One JSON object: the list's name, id, entries and their texts");
    c.app->footer("Lists:\n" + listTable() +
                  "\nExamples:\n  quorin list frame-rates\n  quorin list 1\n  quorin list picture-sizes --json");
    c.check = [o] { o->listEntry = resolveList(o->name); };
    c.run = [o](CameraSession &camera) {
        const ListName &l = o->listEntry;
        const std::string what = label(l.name, l.id, "list");
        const auto entries = camera.list(l.id, what, o->subIndex.value_or(l.subIndex));
        if (o->json) {
            std::string values, texts;
            for (std::uint32_t e : entries) {
                values += (values.empty() ? "" : ", ") + std::to_string(e);
                texts += (texts.empty() ? "" : ", ") + jsonText(formatValue(l.format, e));
            }
            std::printf("{\"name\": %s, \"id\": %u, \"entries\": [%s], \"texts\": [%s]}\n", jsonText(l.name).c_str(),
                        l.id, values.c_str(), texts.c_str());
            return 0;
        }
        std::printf("%s: %s\n", what.c_str(), counted(entries.size(), "entry", "entries").c_str());
        for (std::uint32_t e : entries)
            std::printf("  %s\n", o->raw ? std::to_string(e).c_str() : formatValue(l.format, e).c_str());
        return 0;
    };
    return c;
}

} // namespace quorin::cli
