// The test hooks and the general allocator, shared by both systems.
#include "platform/test_hooks.h"

#include "platform/platform.h"

#include <atomic>
#include <cstdlib>

namespace quorin::platform {
namespace hooks {
namespace {

std::atomic<bool> g_skipPauses{false};
std::atomic<std::uint32_t> g_failAt{0};
std::atomic<std::uint32_t> g_allocations{0};
std::atomic<std::int64_t> g_held{0};

} // namespace

void skipPauses(bool skip)
{
    g_skipPauses = skip;
}

void failAllocation(std::uint32_t nth)
{
    g_failAt = nth;
    g_allocations = 0;
}

std::uint32_t allocations()
{
    return g_allocations;
}

std::int64_t blocksHeld()
{
    return g_held;
}

bool pausesSkipped()
{
    return g_skipPauses;
}

bool allocationAllowed()
{
    const std::uint32_t n = ++g_allocations;
    return n != g_failAt;
}

void blockTaken()
{
    ++g_held;
}

void blockReturned()
{
    --g_held;
}

} // namespace hooks

void *blockAlloc(std::size_t bytes)
{
    if (!hooks::allocationAllowed())
        return nullptr;
    void *block = std::malloc(bytes == 0 ? 1 : bytes);
    if (block != nullptr)
        hooks::blockTaken();
    return block;
}

void blockFree(void *block)
{
    if (block == nullptr)
        return;
    hooks::blockReturned();
    std::free(block);
}

} // namespace quorin::platform
