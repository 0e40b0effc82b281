// Test hooks of the platform layer. Tests and fuzz targets reach them by
// linking the library's static form; nothing in the library turns them on,
// and the shared library does not export them.
#pragma once

#include <cstdint>

namespace quorin::platform::hooks {

// Makes sleepMs return at once: the pauses of the start-up sequence, the
// command transaction and the setters are skipped, so that a test can run
// thousands of opens.
void skipPauses(bool skip);

// Makes the nth allocation counted from now (1-based) fail: library heap,
// virtual memory and general blocks alike. 0 fails none. Either way the
// count starts again.
void failAllocation(std::uint32_t nth);
// Allocations asked for since the last failAllocation call, failed ones included.
std::uint32_t allocations();
// Heap blocks, virtual memory and general blocks taken and not yet given back.
std::int64_t blocksHeld();

// For the platform layer: whether sleepMs pauses, whether the allocation
// now asked for may go ahead (counted), and the bookkeeping of blocksHeld.
bool pausesSkipped();
bool allocationAllowed();
void blockTaken();
void blockReturned();

} // namespace quorin::platform::hooks
