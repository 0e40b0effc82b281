// Fuzz target: a camera that answers from the fuzzer's bytes. The link
// functions take every answer from the input - reply frames (mostly with
// the proper reply code, so that opens get far), failed and short reads,
// block data, the type-3 transfer values and the type-4 data phases - on
// the link type the first byte chooses. The end of the input picks the
// exports run between the open and the close; when the answers run out the
// camera answers properly with zeros.
#include "fuzz_input.h"

#include "quorin/quorin.h"

#include <cstring>
#include <vector>

namespace {

constexpr std::int32_t kLinkError = 0x6F00;
constexpr std::uint32_t kLinkTypes[] = {2, 3, 4, 5};

FuzzInput g_in{nullptr, 0};
std::uint32_t g_type = 2;
std::uint16_t g_lastCode = 0; // the command code of the last frame sent
std::uint8_t *g_armed = nullptr;
std::uint32_t g_armedLength = 0;

// Links opened and not closed: no call may reach a closed link.
int g_openLinks = 0;

// One in eight calls fails, as the input says.
bool fails(std::int32_t *err)
{
    if (g_openLinks <= 0)
        std::abort(); // a host call after the close
    if ((g_in.byte() & 7) != 7)
        return false;
    *err = kLinkError;
    return true;
}

std::uint16_t properReply(std::uint16_t code)
{
    return code >= 112 ? static_cast<std::uint16_t>(code + 16) : static_cast<std::uint16_t>((code & 127) + 48);
}

// A reply frame for the last command: the proper code or any, two values.
void replyFrame(std::uint8_t *frame, std::uint32_t length)
{
    const std::uint8_t how = g_in.byte();
    const std::uint16_t code = (how & 3) == 3 ? static_cast<std::uint16_t>(g_in.word()) : properReply(g_lastCode);
    std::memset(frame, 0, length);
    frame[0] = static_cast<std::uint8_t>(code >> 8);
    frame[1] = static_cast<std::uint8_t>(code);
    g_in.fill(frame + 2, length - 2);
}

// Block data: what the input holds, the rest one repeated byte.
void blockData(std::uint8_t *data, std::uint32_t length)
{
    const std::uint8_t fill = g_in.byte();
    const std::size_t taken = g_in.fill(data, std::min<std::size_t>(length, g_in.byte() * 16u));
    std::memset(data + taken, fill, length - taken);
}

void noteCommand(const std::uint8_t *data, std::uint32_t length)
{
    if (length >= 2)
        g_lastCode = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

std::int32_t linkOpen(std::uint32_t, std::uint32_t *handle, std::int32_t *err)
{
    *handle = 1;
    if ((g_in.byte() & 31) == 31) {
        *err = kLinkError;
        return 0;
    }
    ++g_openLinks;
    return 1;
}
std::int32_t linkClose(std::uint32_t, std::int32_t *)
{
    --g_openLinks;
    return 1;
}
std::int32_t linkSend(std::uint32_t, const std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    noteCommand(data, length);
    return !fails(err);
}
std::int32_t linkReceive(std::uint32_t, std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    if (fails(err))
        return 0;
    if (length == 0) // leaving playback reads nothing, into no buffer
        return 1;
    if (length <= 12) {
        replyFrame(data, length);
        return 1;
    }
    blockData(data, length);
    return (g_in.byte() & 15) == 15 ? (*err = kLinkError, 0) : 1; // a short read after the data
}
std::int32_t linkReset(std::uint32_t, std::int32_t *err)
{
    return !fails(err);
}
std::int32_t linkArm(std::uint32_t, std::uint8_t *buffer, std::uint32_t length, std::uint32_t *a, std::uint32_t *b,
                     std::int32_t *err)
{
    g_armed = buffer;
    g_armedLength = length;
    *a = g_in.word();
    *b = g_in.word();
    return !fails(err);
}
std::int32_t linkAwait(std::uint32_t, std::int32_t *err)
{
    if (fails(err) || g_armed == nullptr)
        return 0;
    blockData(g_armed, g_armedLength);
    return 1;
}
std::int32_t linkTransact(std::uint32_t, const std::uint8_t *frame, std::uint8_t *reply, std::int32_t *err)
{
    noteCommand(frame, 10);
    if (fails(err))
        return 0;
    replyFrame(reply, 10);
    return 1;
}
std::int32_t linkTransactData(std::uint32_t, const std::uint8_t *frame, std::uint8_t *reply, void *data,
                              std::int32_t length, std::int32_t *err)
{
    noteCommand(frame, 10);
    if (fails(err))
        return 0;
    if (length > 0)
        blockData(static_cast<std::uint8_t *>(data), static_cast<std::uint32_t>(length));
    replyFrame(reply, 10);
    return 1;
}

InterfaceTable table(std::uint32_t type)
{
    return InterfaceTable{.type = type, .inUseWord = 1, .Open = linkOpen, .Close = linkClose, .Send = linkSend,
                          .Receive = linkReceive, .Reset = linkReset, .armTransfer = linkArm,
                          .awaitTransfer = linkAwait, .Transact = linkTransact, .TransactData = linkTransactData};
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startQuietLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // The link type, then the answers from the front and the exports from
    // the back: a short input opens a camera and runs exports on it.
    FuzzInput in{data, size};
    g_type = kLinkTypes[in.byte() & 3];
    const std::size_t opsLength = std::min(in.size, std::size_t{in.byte()} * 4);
    FuzzInput ops{in.data + in.size - opsLength, opsLength};
    g_in = FuzzInput{in.data, in.size - opsLength};
    g_armed = nullptr;
    const InterfaceTable t = table(g_type);
    std::uint32_t dev = 0;
    std::int32_t err = 0;
    if (DEV_OpenDevice(g_type, &t, 1, &dev, &err) == 1)
        runExports(ops, dev, kOperationsPerRun);
    closeAll();
    if (g_openLinks != 0)
        std::abort(); // a link the library opened and never closed
    return 0;
}
