// A virtual camera's state: its model, the bytes it has sent and the host
// not yet read, an armed transfer, and the trace and faults of its link.
#pragma once

#include "vcam/vcam.h"

#include "camera_model.h"
#include "wire.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

struct VcamCamera {
    VcamCamera(const VcamConfig &cfg, std::uint32_t id) : config(cfg), handle(id), model(cfg, cfg.linkType) {}

    // A stretch of bytes the camera has sent and the host not yet read.
    struct Chunk {
        std::uint8_t frame[12];
        vcam::Bulk bulk; // when set, the chunk is this data instead of frame
        std::size_t length;
        std::size_t offset;
        const std::uint8_t *data() const { return bulk ? bulk->data() : frame; }
    };
    struct Fault {
        std::uint32_t first; // call numbers first .. last (inclusive) fail
        std::uint32_t last;
        std::int32_t code;
    };

    std::mutex lock;
    VcamConfig config;
    InterfaceTable table{};
    std::uint32_t handle;
    vcam::CameraModel model;

    std::deque<Chunk> outgoing;
    std::uint32_t blocksExpected = 0;

    // Link type 3 transfer armed by the host.
    std::uint8_t *armedBuffer = nullptr;
    std::uint32_t armedLength = 0;
    std::uint32_t armedTag = 0; // (A << 16) | B
    bool announced = false;
    bool transferDone = false;
    std::uint32_t armSerial = 1;

    std::vector<VcamTraceEntry> trace;
    std::vector<CameraCommand> commands;
    std::uint32_t counts[VCAM_CALL_COUNT] = {};
    std::uint32_t seen[VCAM_CALL_COUNT] = {}; // never cleared: numbers calls for faults
    std::vector<Fault> faults[VCAM_CALL_COUNT];
    std::map<std::uint16_t, std::uint16_t> replyOverride;
};
