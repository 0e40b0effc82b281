// A hand-driven link driver for tests that need the exact bytes the library
// sends and full control over what each host call returns. One instance is
// active at a time (the link functions are plain C functions).
#pragma once

#include "quorin/quorin.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace testing_support {

class ScriptedLink {
public:
    explicit ScriptedLink(std::uint32_t type);
    ~ScriptedLink();

    const InterfaceTable &table() const { return table_; }
    InterfaceTable &table() { return table_; }

    // Everything the library sent, one entry per Send.
    std::vector<std::vector<std::uint8_t>> sent;
    // Lengths the library asked Receive for.
    std::vector<std::uint32_t> receiveLengths;
    // Bytes Receive hands out, one entry per call; an empty queue fails.
    std::deque<std::vector<std::uint8_t>> receiveQueue;
    // Results of the calls, consulted before the default (success); a false
    // entry fails that call with failCode.
    std::deque<bool> sendResults, receiveResults, resetResults, openResults;
    std::int32_t failCode = 0x5151;

    int opens = 0, closes = 0, resets = 0, transacts = 0, transactDatas = 0, awaits = 0;
    std::uint32_t handleToGive = 77;
    std::uint32_t lastOpenArg = 0;
    std::uint32_t lastHandle = 0;

    // Type 4 functions: the reply frame they write.
    std::vector<std::uint8_t> transactReply = std::vector<std::uint8_t>(10, 0);
    bool transactResult = true;

    // Forgets what was sent and counted so far (the script stays).
    void clearRecord();

    static ScriptedLink *active;

private:
    InterfaceTable table_;
};

} // namespace testing_support
