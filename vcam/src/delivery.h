// How image data reaches host memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vcam {

// Copies n bytes the way a camera's DMA engine fills host memory, without
// holding up the host's thread for a whole frame: a large copy is shared
// with a helper thread (on Linux; the Windows DLL copies on the calling
// thread).
void deliverBytes(std::uint8_t *to, const std::uint8_t *from, std::size_t n);

} // namespace vcam
