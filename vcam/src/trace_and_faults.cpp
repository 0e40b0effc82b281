// What a test or a tool asks of a virtual camera from beside the link:
// the trace of host calls and camera commands, injected faults, and the
// camera's side of uploads, triggers and recordings.
#include "camera_state.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>

extern "C" {

VCAM_API size_t vcam_trace_size(const VcamCamera *cam)
{
    if (cam == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    return cam->trace.size();
}

VCAM_API int vcam_trace_entry(const VcamCamera *cam, size_t index, VcamTraceEntry *out)
{
    if (cam == nullptr || out == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    if (index >= cam->trace.size())
        return 0;
    *out = cam->trace[index];
    return 1;
}

VCAM_API uint32_t vcam_call_count(const VcamCamera *cam, VcamCall call)
{
    if (cam == nullptr || static_cast<unsigned>(call) >= VCAM_CALL_COUNT)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    return cam->counts[call];
}

VCAM_API size_t vcam_commands(const VcamCamera *cam, CameraCommand *out, size_t max)
{
    if (cam == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    if (out != nullptr)
        for (size_t i = 0; i < max && i < cam->commands.size(); ++i)
            out[i] = cam->commands[i];
    return cam->commands.size();
}

VCAM_API void vcam_trace_clear(VcamCamera *cam)
{
    if (cam == nullptr)
        return;
    std::lock_guard<std::mutex> g(cam->lock);
    cam->trace.clear();
    cam->commands.clear();
    std::fill(std::begin(cam->counts), std::end(cam->counts), 0u);
}

VCAM_API void vcam_fail_calls(VcamCamera *cam, VcamCall call, uint32_t nth, uint32_t count, int32_t code)
{
    if (cam == nullptr || static_cast<unsigned>(call) >= VCAM_CALL_COUNT)
        return;
    std::lock_guard<std::mutex> g(cam->lock);
    std::uint32_t first = cam->seen[call] + (nth == 0 ? 1 : nth);
    std::uint32_t last = count == 0 ? 0xFFFFFFFFu : first + count - 1;
    cam->faults[call].push_back({first, last, code != 0 ? code : VCAM_ERR_INJECTED});
}

VCAM_API void vcam_override_reply_code(VcamCamera *cam, uint16_t command, uint16_t replyCode)
{
    if (cam == nullptr)
        return;
    std::lock_guard<std::mutex> g(cam->lock);
    if (replyCode == 0)
        cam->replyOverride.erase(command);
    else
        cam->replyOverride[command] = replyCode;
}

VCAM_API void vcam_set_link_delay(VcamCamera *cam, uint32_t milliseconds)
{
    if (cam == nullptr)
        return;
    std::lock_guard<std::mutex> g(cam->lock);
    cam->config.linkDelayMs = milliseconds;
}

VCAM_API void vcam_clear_faults(VcamCamera *cam)
{
    if (cam == nullptr)
        return;
    std::lock_guard<std::mutex> g(cam->lock);
    for (auto &f : cam->faults)
        f.clear();
    cam->replyOverride.clear();
}

} // extern "C"

extern "C" {

VCAM_API size_t vcam_lut_upload(const VcamCamera *cam, uint8_t *out, size_t max)
{
    if (cam == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    const auto &data = cam->model.lutUpload();
    if (out != nullptr)
        std::memcpy(out, data.data(), std::min(max, data.size()));
    return data.size();
}

VCAM_API int vcam_trigger(VcamCamera *cam)
{
    if (cam == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(cam->lock);
    return cam->model.trigger() ? 1 : 0;
}

VCAM_API int vcam_recording(const VcamCamera *cam, uint32_t *recorded, uint32_t *length)
{
    if (cam == nullptr)
        return 0;
    auto *c = const_cast<VcamCamera *>(cam);
    std::lock_guard<std::mutex> g(c->lock);
    std::uint32_t r = 0, n = 0;
    const int state = c->model.recording(r, n);
    if (recorded != nullptr)
        *recorded = r;
    if (length != nullptr)
        *length = n;
    return state;
}

VCAM_API uint32_t vcam_resolution(const VcamCamera *cam)
{
    if (cam == nullptr)
        return 0;
    std::lock_guard<std::mutex> g(const_cast<VcamCamera *>(cam)->lock);
    return cam->model.resolution();
}

} // extern "C"
