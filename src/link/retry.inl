// Template body of quorin::link::withRetries.
#pragma once

namespace quorin::link {

constexpr int kLinkTries = 3;

template <typename Attempt>
std::uint32_t withRetries(const InterfaceTable &entry, std::uint32_t handle, std::int32_t *err, Attempt attempt)
{
    for (int tryNo = 1;; ++tryNo) {
        if (attempt())
            return 1;
        if (!hasFunction(reinterpret_cast<const void *>(entry.Reset), err))
            return 0;
        if (!entry.Reset(handle, err))
            return 0;
        if (tryNo == kLinkTries) {
            *err = QUORIN_ERR_LINK_RETRIES;
            return 0;
        }
    }
}

} // namespace quorin::link
