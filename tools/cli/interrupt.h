// SIGINT and SIGTERM during long commands: the handler only records the
// request, and the command stops at its next safe point (after the frame
// it is writing), so that files stay whole and the camera is put back.
#pragma once

namespace quorin::cli {

class InterruptGuard {
public:
    InterruptGuard();  // installs the handlers
    ~InterruptGuard(); // restores the previous ones
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;
};

// True once SIGINT or SIGTERM arrived while a guard was installed.
bool interruptRequested();

} // namespace quorin::cli
