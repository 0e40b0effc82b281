// The tool's failures: each is reported as one line on stderr and ends the
// program with a non-zero exit status that tells its kind.
#pragma once

#include <stdexcept>
#include <string>

namespace quorin::cli {

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;      // the camera, the library or a file failed
constexpr int kExitUsage = 2;        // bad arguments; the camera was not opened
constexpr int kExitInterrupted = 130; // stopped by SIGINT or SIGTERM

class CliError : public std::runtime_error {
public:
    CliError(const std::string &message, int exitStatus = kExitFailure)
        : std::runtime_error(message), status_(exitStatus)
    {
    }
    int exitStatus() const { return status_; }

private:
    int status_;
};

// A refusal of the command line, raised before any camera is opened.
class UsageError : public CliError {
public:
    explicit UsageError(const std::string &message) : CliError(message, kExitUsage) {}
};

} // namespace quorin::cli
