// Interrupt requests recorded by a signal handler.
#include "interrupt.h"

#include <csignal>

namespace quorin::cli {
namespace {

volatile std::sig_atomic_t g_requested = 0;
struct sigaction g_oldInt, g_oldTerm;

extern "C" void onSignal(int)
{
    g_requested = 1;
}

} // namespace

InterruptGuard::InterruptGuard()
{
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART; // file writes and the link's waits carry on
    sigaction(SIGINT, &sa, &g_oldInt);
    sigaction(SIGTERM, &sa, &g_oldTerm);
}

InterruptGuard::~InterruptGuard()
{
    sigaction(SIGINT, &g_oldInt, nullptr);
    sigaction(SIGTERM, &g_oldTerm, nullptr);
}

bool interruptRequested()
{
    return g_requested != 0;
}

} // namespace quorin::cli
