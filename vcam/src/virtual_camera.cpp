// The virtual camera's link: the shared InterfaceTable functions, the
// byte stream a camera sends back, transfers, and creating and destroying
// cameras.
#include "camera_state.h"
#include "delivery.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using CameraPtr = std::shared_ptr<VcamCamera>;

// Every live camera, by link handle and by host argument. Never destroyed,
// so that link calls made while the process exits find an empty registry
// rather than a destroyed one.
struct Registry {
    std::mutex lock;
    std::map<std::uint32_t, CameraPtr> byHandle;
    std::uint32_t nextHandle = 1;
    std::uint32_t nextSerial = 1;
};

Registry &registry()
{
    static Registry *r = new Registry;
    return *r;
}

CameraPtr findByHandle(std::uint32_t handle)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    auto it = r.byHandle.find(handle);
    return it == r.byHandle.end() ? nullptr : it->second;
}

CameraPtr findByHostArg(std::uint32_t hostArg)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    for (auto &[h, cam] : r.byHandle)
        if (cam->config.hostArg == hostArg)
            return cam;
    return nullptr;
}

// One host call in progress: counts and traces it, applies the link delay
// and decides whether an injected fault fails it.
class Call {
public:
    Call(VcamCamera &cam, VcamCall kind, std::uint32_t length, std::int32_t *err)
        : cam_(cam), err_(err)
    {
        entry_.call = kind;
        entry_.length = length;
        cam.counts[kind] += 1;
        std::uint32_t number = ++cam.seen[kind];
        for (const auto &f : cam.faults[kind])
            if (number >= f.first && number <= f.last)
                injected_ = f.code;
        if (cam.config.linkDelayMs != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(cam.config.linkDelayMs));
    }
    ~Call() { cam_.trace.push_back(entry_); }

    bool faulted() const { return injected_ != 0; }
    void command(const vcam::Frame &f)
    {
        entry_.hasCommand = 1;
        entry_.command = CameraCommand{f.code, f.first, f.second};
        cam_.commands.push_back(entry_.command);
    }
    std::int32_t fail(std::int32_t code)
    {
        if (err_ != nullptr)
            *err_ = code;
        entry_.result = 0;
        entry_.err = code;
        return 0;
    }
    std::int32_t failInjected() { return fail(injected_); }
    std::int32_t succeed()
    {
        entry_.result = 1;
        return 1;
    }

private:
    VcamCamera &cam_;
    std::int32_t *err_;
    VcamTraceEntry entry_{};
    std::int32_t injected_ = 0;
};

std::uint16_t replyCode(VcamCamera &cam, std::uint16_t command)
{
    auto it = cam.replyOverride.find(command);
    return it != cam.replyOverride.end() ? it->second : vcam::replyCodeFor(command);
}

// The reply code of an answer: the universal code, 0 for a refusal, else
// the command's own.
std::uint16_t answerCode(VcamCamera &cam, std::uint16_t command, const vcam::Answer &a)
{
    return a.universalReply ? std::uint16_t(177) : a.refused ? std::uint16_t(0) : replyCode(cam, command);
}

void queueFrame(VcamCamera &cam, const vcam::Frame &reply)
{
    VcamCamera::Chunk c{};
    c.length = vcam::wireFrameLength(cam.config.linkType);
    vcam::writeFrame(cam.config.linkType, reply, c.frame);
    cam.outgoing.push_back(c);
}

// Sends bulk data the way the link carries it: into an announced armed
// transfer on type 3, otherwise into the byte stream for Receive.
void deliverBulk(VcamCamera &cam, const vcam::Bulk &bulk, bool imageData)
{
    if (cam.config.linkType == 3 && imageData) {
        if (!cam.announced || cam.armedBuffer == nullptr)
            return; // nobody listens on the image channel
        std::size_t n = std::min<std::size_t>(bulk->size(), cam.armedLength);
        vcam::deliverBytes(cam.armedBuffer, bulk->data(), n);
        cam.transferDone = n == cam.armedLength;
        cam.announced = false;
        return;
    }
    VcamCamera::Chunk c{};
    c.bulk = bulk;
    c.length = bulk->size();
    cam.outgoing.push_back(c);
}

// Runs a decoded command frame and queues what the camera sends back.
void runCommand(VcamCamera &cam, const vcam::Frame &f)
{
    if (f.code == 188 && cam.config.linkType == 3)
        cam.announced = cam.armedBuffer != nullptr && f.first == cam.armedTag && f.second == cam.armedLength;
    vcam::Answer a = cam.model.command(f.code, f.first, f.second);
    cam.blocksExpected = a.blocksExpected;
    if (a.replies)
        queueFrame(cam, {answerCode(cam, f.code, a), a.value1, a.value2});
    if (a.bulk)
        deliverBulk(cam, a.bulk, a.imageData);
}

std::int32_t linkOpen(std::uint32_t hostArg, std::uint32_t *outHandle, std::int32_t *err)
{
    CameraPtr cam = findByHostArg(hostArg);
    if (!cam) {
        if (err != nullptr)
            *err = VCAM_ERR_NO_LINK;
        return 0;
    }
    std::lock_guard<std::mutex> g(cam->lock);
    Call call(*cam, VCAM_CALL_OPEN, 0, err);
    if (call.faulted())
        return call.failInjected();
    cam->outgoing.clear();
    if (outHandle != nullptr)
        *outHandle = cam->handle;
    return call.succeed();
}

// Runs body on the camera behind handle under its lock, or fails with
// VCAM_ERR_NO_LINK.
template <typename Body> std::int32_t withCamera(std::uint32_t handle, std::int32_t *err, Body body)
{
    CameraPtr cam = findByHandle(handle);
    if (!cam) {
        if (err != nullptr)
            *err = VCAM_ERR_NO_LINK;
        return 0;
    }
    std::lock_guard<std::mutex> g(cam->lock);
    return body(*cam);
}

std::int32_t linkClose(std::uint32_t handle, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_CLOSE, 0, err);
        if (call.faulted())
            return call.failInjected();
        cam.outgoing.clear();
        cam.armedBuffer = nullptr;
        return call.succeed();
    });
}

std::int32_t linkSend(std::uint32_t handle, const std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_SEND, length, err);
        if (call.faulted())
            return call.failInjected();
        if (data == nullptr && length != 0)
            return call.fail(VCAM_ERR_BAD_FRAME);
        const std::uint32_t type = cam.config.linkType;
        if (cam.blocksExpected > 0 && length == 1024) {
            cam.model.block(data, length);
            cam.blocksExpected -= 1;
            return call.succeed();
        }
        const std::size_t frameLength = vcam::wireFrameLength(type);
        const std::size_t headLength = vcam::wireHeadLength(type);
        if (length >= headLength && length != frameLength && vcam::CameraModel::takesData(vcam::readCode(data))) {
            std::uint16_t code = vcam::readCode(data);
            call.command({code, 0, 0});
            vcam::Answer a = cam.model.dataCommand(code, data + headLength, length - headLength);
            if (a.replies)
                queueFrame(cam, {replyCode(cam, code), a.value1, a.value2});
            return call.succeed();
        }
        if (length != frameLength)
            return call.succeed(); // the camera cannot read it and stays silent
        vcam::Frame f = vcam::readFrame(type, data);
        call.command(f);
        // A new command starts a new exchange: what the host left unread of
        // the last answer is dropped.
        cam.outgoing.clear();
        runCommand(cam, f);
        return call.succeed();
    });
}

std::int32_t linkReceive(std::uint32_t handle, std::uint8_t *data, std::uint32_t length, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_RECEIVE, length, err);
        if (call.faulted())
            return call.failInjected();
        std::size_t available = 0;
        for (const auto &c : cam.outgoing)
            available += c.length - c.offset;
        if (available < length || (data == nullptr && length != 0))
            return call.fail(VCAM_ERR_TIMEOUT);
        std::size_t done = 0;
        while (done < length) {
            VcamCamera::Chunk &c = cam.outgoing.front();
            std::size_t n = std::min<std::size_t>(length - done, c.length - c.offset);
            vcam::deliverBytes(data + done, c.data() + c.offset, n);
            done += n;
            c.offset += n;
            if (c.offset == c.length)
                cam.outgoing.pop_front();
        }
        return call.succeed();
    });
}

std::int32_t linkReset(std::uint32_t handle, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_RESET, 0, err);
        if (call.faulted())
            return call.failInjected();
        cam.outgoing.clear();
        cam.blocksExpected = 0;
        return call.succeed();
    });
}

std::int32_t linkArm(std::uint32_t handle, std::uint8_t *buffer, std::uint32_t length, std::uint32_t *outA,
                     std::uint32_t *outB, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_ARM_TRANSFER, length, err);
        if (call.faulted())
            return call.failInjected();
        std::uint32_t a = cam.handle & 0xFFFF;
        std::uint32_t b = cam.armSerial++ & 0xFFFF;
        cam.armedBuffer = buffer;
        cam.armedLength = length;
        cam.armedTag = a << 16 | b;
        cam.announced = false;
        cam.transferDone = false;
        if (outA != nullptr)
            *outA = a;
        if (outB != nullptr)
            *outB = b;
        return call.succeed();
    });
}

std::int32_t linkAwait(std::uint32_t handle, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_AWAIT_TRANSFER, cam.armedLength, err);
        if (call.faulted())
            return call.failInjected();
        bool done = cam.transferDone;
        cam.armedBuffer = nullptr;
        cam.transferDone = false;
        cam.announced = false;
        return done ? call.succeed() : call.fail(VCAM_ERR_TIMEOUT);
    });
}

std::int32_t linkTransact(std::uint32_t handle, const std::uint8_t *frame, std::uint8_t *reply, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_TRANSACT, 10, err);
        if (call.faulted())
            return call.failInjected();
        if (frame == nullptr || reply == nullptr)
            return call.fail(VCAM_ERR_BAD_FRAME);
        vcam::Frame f = vcam::readFrame(4, frame);
        call.command(f);
        vcam::Answer a = cam.model.command(f.code, f.first, f.second);
        vcam::writeFrame(4, {answerCode(cam, f.code, a), a.value1, a.value2}, reply);
        cam.outgoing.clear();
        // Data asked for without a data phase (frame headers, or an image
        // requested by a plain transaction, as a split memory transfer
        // does) follows by Receive.
        if (a.bulk) {
            VcamCamera::Chunk c{};
            c.bulk = a.bulk;
            c.length = a.bulk->size();
            cam.outgoing.push_back(c);
        }
        return call.succeed();
    });
}

std::int32_t linkTransactData(std::uint32_t handle, const std::uint8_t *frame, std::uint8_t *reply, void *data,
                              std::int32_t length, std::int32_t *err)
{
    return withCamera(handle, err, [&](VcamCamera &cam) {
        Call call(cam, VCAM_CALL_TRANSACT_DATA, static_cast<std::uint32_t>(length), err);
        if (call.faulted())
            return call.failInjected();
        if (frame == nullptr || reply == nullptr || length < 0 || (data == nullptr && length != 0))
            return call.fail(VCAM_ERR_BAD_FRAME);
        vcam::Frame f = vcam::readFrame(4, frame);
        call.command(f);
        vcam::Answer a = cam.model.command(f.code, f.first, f.second);
        std::size_t have = a.bulk ? a.bulk->size() : 0;
        if (static_cast<std::size_t>(length) > have)
            return call.fail(VCAM_ERR_TIMEOUT); // the data phase never completes
        if (length != 0)
            vcam::deliverBytes(static_cast<std::uint8_t *>(data), a.bulk->data(), static_cast<std::size_t>(length));
        vcam::writeFrame(4, {answerCode(cam, f.code, a), a.value1, a.value2}, reply);
        return call.succeed();
    });
}

} // namespace

extern "C" {

VCAM_API void vcam_default_config(VcamConfig *cfg, uint32_t model, uint32_t linkType)
{
    if (cfg == nullptr)
        return;
    *cfg = VcamConfig{};
    cfg->model = model == VCAM_K5C ? VCAM_K5C : VCAM_K5;
    cfg->linkType = linkType;
    cfg->modelCode = cfg->model == VCAM_K5C ? 0x0501 : 0x0500;
    cfg->sensorKind = 2;
    cfg->firmwareVersion = 120;
    cfg->cameraNumber = 1;
    cfg->powerMode = 0;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            cfg->colourMatrix[r][c] = r == c ? 320 : 32;
    for (uint32_t i = 0; i < 20; ++i)
        for (uint32_t k = 0; k < 6; ++k)
            cfg->modeTable[i][k] = (i + 1) * 1000 + k;
    for (uint32_t k = 0; k < 5; ++k)
        cfg->extraWords[k] = 100 + k;
    cfg->modeWord79 = 0x79;
    cfg->settlePolls = 2;
    cfg->extClockHz = 10000000;
    cfg->recordFrames = 32;
    for (uint32_t n = 0; n < 10; ++n) {
        cfg->cameraEntries[n][0] = n < 4 ? 100 + n : 0xFFFFFFFFu; // four cameras on the bus
        cfg->cameraEntries[n][1] = (n + 1) << 20 | (n == 0 ? 1u : 0u);
    }
}

VCAM_API VcamCamera *vcam_create(const VcamConfig *cfg)
{
    if (cfg == nullptr)
        return nullptr;
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    VcamConfig config = *cfg;
    if (config.hostArg == 0)
        config.hostArg = (config.cameraNumber & 0xFF) | (r.nextSerial++ << 8);
    for (auto &[h, cam] : r.byHandle)
        if (cam->config.hostArg == config.hostArg)
            return nullptr;
    std::uint32_t handle = r.nextHandle++;
    auto cam = std::make_shared<VcamCamera>(config, handle);
    InterfaceTable &t = cam->table;
    t.type = config.linkType;
    t.inUseWord = 1;
    t.Open = linkOpen;
    t.Close = linkClose;
    t.Send = linkSend;
    t.Receive = linkReceive;
    t.Reset = linkReset;
    t.armTransfer = linkArm;
    t.awaitTransfer = linkAwait;
    t.Transact = linkTransact;
    t.TransactData = linkTransactData;
    r.byHandle[handle] = cam;
    return cam.get();
}

VCAM_API void vcam_destroy(VcamCamera *cam)
{
    if (cam == nullptr)
        return;
    CameraPtr keep;
    Registry &r = registry();
    {
        std::lock_guard<std::mutex> g(r.lock);
        auto it = r.byHandle.find(cam->handle);
        if (it == r.byHandle.end())
            return;
        keep = std::move(it->second);
        r.byHandle.erase(it);
    }
    // keep goes out of scope here; calls in progress hold their own reference.
}

VCAM_API const InterfaceTable *vcam_interface(const VcamCamera *cam)
{
    return cam != nullptr ? &cam->table : nullptr;
}

VCAM_API uint32_t vcam_host_arg(const VcamCamera *cam)
{
    return cam != nullptr ? cam->config.hostArg : 0;
}

VCAM_API void vcam_get_config(const VcamCamera *cam, VcamConfig *out)
{
    if (cam != nullptr && out != nullptr)
        *out = cam->config;
}

} // extern "C"
