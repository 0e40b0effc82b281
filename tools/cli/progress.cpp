// Progress bar or progress lines.
#include "progress.h"

#include <unistd.h>

namespace quorin::cli {
namespace {

constexpr int kBarWidth = 30;

std::string minutesSeconds(double seconds)
{
    long s = static_cast<long>(seconds + 0.5);
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

} // namespace

Progress::Progress(std::uint32_t total)
    : total_(total), terminal_(isatty(STDERR_FILENO) != 0), start_(std::chrono::steady_clock::now())
{
}

double Progress::elapsedSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::step(const std::string &line)
{
    ++done_;
    const double elapsed = elapsedSeconds();
    const double rate = elapsed > 0 ? done_ / elapsed : 0.0;
    if (!terminal_) {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        return;
    }
    const int filled = total_ ? static_cast<int>(static_cast<double>(done_) / total_ * kBarWidth) : kBarWidth;
    const double left = rate > 0 ? (total_ - done_) / rate : 0.0;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(kBarWidth - filled), '.');
    std::fprintf(stderr, "\r[%s] %u/%u frames  %.1f fps  %s left \x1b[K", bar.c_str(), done_, total_, rate,
                 minutesSeconds(left).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish()
{
    if (drawn_)
        std::fputc('\n', stderr);
    drawn_ = false;
}

} // namespace quorin::cli
