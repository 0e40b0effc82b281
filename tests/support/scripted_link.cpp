#include "support/scripted_link.h"

#include <algorithm>
#include <cstring>

namespace testing_support {

ScriptedLink *ScriptedLink::active = nullptr;

namespace {

bool next(std::deque<bool> &results)
{
    if (results.empty())
        return true;
    bool r = results.front();
    results.pop_front();
    return r;
}

std::int32_t fail(std::int32_t *err)
{
    *err = ScriptedLink::active != nullptr ? ScriptedLink::active->failCode : 0x5151;
    return 0;
}

// A link whose script has ended (the fixture closes devices after the
// test's own objects are gone) fails every call.
#define REQUIRE_ACTIVE(err)                                                                                            \
    if (ScriptedLink::active == nullptr)                                                                               \
        return fail(err);

std::int32_t sOpen(std::uint32_t arg, std::uint32_t *handle, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->opens += 1;
    l->lastOpenArg = arg;
    if (!next(l->openResults))
        return fail(err);
    *handle = l->handleToGive;
    return 1;
}

std::int32_t sClose(std::uint32_t handle, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    ScriptedLink::active->closes += 1;
    ScriptedLink::active->lastHandle = handle;
    return 1;
}

std::int32_t sSend(std::uint32_t handle, const std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->lastHandle = handle;
    l->sent.emplace_back(data, data + length);
    return next(l->sendResults) ? 1 : fail(err);
}

std::int32_t sReceive(std::uint32_t handle, std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->lastHandle = handle;
    l->receiveLengths.push_back(length);
    if (!next(l->receiveResults) || l->receiveQueue.empty())
        return fail(err);
    auto bytes = l->receiveQueue.front();
    l->receiveQueue.pop_front();
    std::memcpy(data, bytes.data(), std::min<std::size_t>(bytes.size(), length));
    return 1;
}

std::int32_t sReset(std::uint32_t, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->resets += 1;
    return next(l->resetResults) ? 1 : fail(err);
}

std::int32_t sAwait(std::uint32_t, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    ScriptedLink::active->awaits += 1;
    return 1;
}

std::int32_t sTransact(std::uint32_t, const std::uint8_t *frame, std::uint8_t *reply, std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->transacts += 1;
    l->sent.emplace_back(frame, frame + 10);
    if (!l->transactResult)
        return fail(err);
    std::memcpy(reply, l->transactReply.data(), 10);
    return 1;
}

std::int32_t sTransactData(std::uint32_t, const std::uint8_t *frame, std::uint8_t *reply, void *, std::int32_t,
                           std::int32_t *err)
{
    REQUIRE_ACTIVE(err)
    auto *l = ScriptedLink::active;
    l->transactDatas += 1;
    l->sent.emplace_back(frame, frame + 10);
    if (!l->transactResult)
        return fail(err);
    std::memcpy(reply, l->transactReply.data(), 10);
    return 1;
}

} // namespace

ScriptedLink::ScriptedLink(std::uint32_t type)
{
    active = this;
    std::memset(&table_, 0, sizeof table_);
    table_.type = type;
    table_.inUseWord = 1;
    table_.Open = sOpen;
    table_.Close = sClose;
    table_.Send = sSend;
    table_.Receive = sReceive;
    table_.Reset = sReset;
    table_.awaitTransfer = sAwait;
    table_.Transact = sTransact;
    table_.TransactData = sTransactData;
}

void ScriptedLink::clearRecord()
{
    sent.clear();
    receiveLengths.clear();
    opens = closes = resets = transacts = transactDatas = awaits = 0;
}

ScriptedLink::~ScriptedLink()
{
    if (active == this)
        active = nullptr;
}

} // namespace testing_support
