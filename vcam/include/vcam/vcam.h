/*
 * vcam.h - the QUORIN virtual camera.
 *
 * A software ORBILUX-VELTA K5 or K5C that plays the camera's side of the
 * link protocol behind an InterfaceTable, so that hosts, tools, tests and
 * benchmarks can drive QUORIN without hardware:
 *
 *     VcamConfig cfg;
 *     vcam_default_config(&cfg, VCAM_K5C, 3);      // colour camera, link type 3
 *     VcamCamera *cam = vcam_create(&cfg);
 *     DEV_OpenDevice(vcam_interface(cam)->type, vcam_interface(cam),
 *                    vcam_host_arg(cam), &deviceNo, &err);
 *     ...
 *     DEV_CloseDevice(deviceNo, &err);
 *     vcam_destroy(cam);
 *
 * Every virtual camera hands out the same link functions; the host argument
 * given to Open selects the camera, and the link handle Open returns names
 * it in every later call. The camera decodes each frame as its link type
 * frames it (12-byte frames on type 2, 10-byte frames otherwise), answers
 * with the reply code a camera gives (command + 48 below 112, command + 16
 * from 112 on), and delivers bulk data through TransactData on type 4
 * (data asked for by a plain Transact follows by Receive);
 * on type 3 image data goes into the buffer armed with armTransfer once
 * command 188 has announced it (and is lost otherwise), while calibration
 * images come by Receive; every other type delivers all bulk data by the
 * next Receive. Each new command starts a new exchange: bytes of an earlier
 * answer the host left unread are dropped.
 *
 * The camera keeps an operating mode (live, playback, recording states)
 * that commands 114, 160, 161 and 162 move and command 18 reports; it
 * answers the identification, calibration and table commands a library
 * sends when it opens a camera, and keeps every setting it is sent (frame
 * rate, picture size, shutter, trigger, channels, colour temperature,
 * look-up mode and uploaded curves, sync source, presets), so that a
 * setting read back after it was written answers what was written.
 * Commands 97 to 99 are answered with the universal reply code 177.
 *
 * Image requests (183 live, 178 recorded) are answered with a frame of the
 * picture size the camera is set to, centred on the sensor (command 73
 * reports where): a moving test scene of colour bars, gradients and fine
 * detail, through the K5C's colour mosaic (red at even row and column) or
 * grey on the K5, with the dark offsets and gains of the calibration images
 * and the flagged defect pixels saturated. Frames are rendered once and
 * then served as a copy.
 *
 * Recording: commands 160 and 161 put the camera in a recording state
 * (160 again, 162, or 114 take it out). There it waits for a trigger:
 * vcam_trigger(), or its own after triggerDelayMs. Then it records in real
 * time at the frame rate it is set to: the parameter of trigger code
 * 0x03000000 (the host's 0x04000000) frames, segment length times segment
 * count in the segmented codes 0x06000000 and 0x07000000, otherwise its
 * whole memory (command 44). When the last frame is in, it stops as after
 * command 162. Its memory then plays back that recording: picture size and
 * frame rate (commands 19 and 22 in playback) as recorded, time codes from
 * the host's clock at the trigger, advancing by the frame period, in the
 * order of the recording whatever the segmented numbering. Until the first
 * recording the memory holds one made at day 200, 23:59:58.5, at the
 * present frame rate.
 *
 * With frameTimeLimits set, the camera refuses (reply code 0, which QUORIN
 * reports as 203) a frame rate (command 118) or picture size (115) for
 * which a frame would take longer than the frame period: it needs
 * trunc((W / 32 + 7) * H / 2 + 150) + 5 ticks of its 63 MHz clock.
 *
 * Each camera keeps a trace of every host call and of every command it
 * decoded, and injects faults on request.
 *
 * All functions are safe to call from several threads; one camera's calls
 * are serialised internally.
 */
#ifndef QUORIN_VCAM_H
#define QUORIN_VCAM_H

#include <stddef.h>
#include <stdint.h>

#include "quorin/quorin.h"

#ifndef VCAM_API
#define VCAM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Camera models. */
enum {
    VCAM_K5 = 0,  /**< monochrome */
    VCAM_K5C = 1  /**< colour */
};

/** Error codes the virtual link writes (the host's own codes, passed up
 *  unchanged by QUORIN). */
enum {
    VCAM_ERR_TIMEOUT = 0x7001,   /**< nothing (or not enough) to read: the camera did not answer */
    VCAM_ERR_NO_LINK = 0x7002,   /**< no camera at this host argument or link handle */
    VCAM_ERR_BAD_FRAME = 0x7003, /**< a frame the camera cannot decode */
    VCAM_ERR_INJECTED = 0x7004   /**< the default code of an injected fault */
};

/** What a virtual camera is. Fill with vcam_default_config, then adjust. */
typedef struct VcamConfig {
    uint32_t model;           /**< VCAM_K5 or VCAM_K5C */
    uint32_t linkType;        /**< type of the InterfaceTable: 2, 3, 4 or any other code */
    uint32_t hostArg;         /**< host argument that opens this camera; 0 = choose one
                                   (its low byte is the camera number, as link type 2 reads it) */
    uint32_t modelCode;       /**< first value of the identification reply (command 16) */
    uint32_t sensorKind;      /**< 2 or 3 */
    uint32_t firmwareVersion; /**< second value of command 17 */
    uint32_t cameraNumber;    /**< value of command 43 */
    uint32_t powerMode;       /**< value of command 54 */
    uint32_t linkDelayMs;     /**< pause added to every link call */
    uint16_t colourMatrix[3][3]; /**< magnitudes of the colour matrix (command 74), 256 = 1.0 */
    uint32_t modeTable[20][6];   /**< answers of command 70 for entries 1..20: A1 A2 B1 B2 C1 C2 */
    uint32_t extraWords[5];      /**< answers of commands 75 (two pairs) and 77 */
    uint32_t modeWord79;         /**< answer of command 79 */
    uint32_t settlePolls;        /**< status reads that still show the recording state after command 162 */
    uint32_t extClockHz;         /**< external sync clock reported by command 80 */
    uint32_t mode69, value69;    /**< the two values of command 69 */
    uint32_t cameraEntries[10][2]; /**< answers of command 36 for entries 1..10 (0xFFFFFFFF: none) */
    uint32_t recordFrames;       /**< frames of the recording held in memory (default 32) */
    uint32_t defectCount;        /**< number of entries in defects */
    const uint32_t *defects;     /**< flagged pixels of calibration image B, (column << 16) | row;
                                      copied by vcam_create */
    uint32_t frameTimeLimits;    /**< non-zero: refuse rates and sizes the frame-time model does not allow */
    uint32_t triggerDelayMs;     /**< non-zero: trigger itself this long after entering a recording state */
} VcamConfig;

/** One host call seen by a camera. */
typedef struct VcamTraceEntry {
    uint32_t call;       /**< a VcamCall */
    uint32_t length;     /**< bytes asked for or given */
    int32_t result;      /**< what the call returned */
    int32_t err;         /**< the code it wrote on failure, else 0 */
    uint32_t hasCommand; /**< non-zero when the call carried a decoded command */
    CameraCommand command;
} VcamTraceEntry;

/** The link functions, for tracing and fault injection. */
typedef enum VcamCall {
    VCAM_CALL_OPEN = 0,
    VCAM_CALL_CLOSE,
    VCAM_CALL_SEND,
    VCAM_CALL_RECEIVE,
    VCAM_CALL_RESET,
    VCAM_CALL_ARM_TRANSFER,
    VCAM_CALL_AWAIT_TRANSFER,
    VCAM_CALL_TRANSACT,
    VCAM_CALL_TRANSACT_DATA,
    VCAM_CALL_COUNT
} VcamCall;

typedef struct VcamCamera VcamCamera;

/** Returns the bytes of the last look-up table upload (command 187) into
 *  out (up to max) and their number. */
VCAM_API size_t vcam_lut_upload(const VcamCamera *cam, uint8_t *out, size_t max);
/** The picture size the camera is set to, width << 16 | height. */
VCAM_API uint32_t vcam_resolution(const VcamCamera *cam);

/** Fills cfg with a camera of the given model on the given link type:
 *  firmware 120, camera number 1, power mode 0, sensor kind 2, a colour
 *  matrix of 1.25 on the diagonal and 0.125 elsewhere, a table of modes,
 *  two status reads to settle after a recording, no defect pixels, no
 *  frame-time limits and no trigger of its own. */
VCAM_API void vcam_default_config(VcamConfig *cfg, uint32_t model, uint32_t linkType);

/** Creates a camera; returns NULL when cfg is NULL or the host argument is taken. */
VCAM_API VcamCamera *vcam_create(const VcamConfig *cfg);
/** Destroys a camera; later calls on its link fail with VCAM_ERR_NO_LINK. */
VCAM_API void vcam_destroy(VcamCamera *cam);

/** The InterfaceTable to hand to DEV_OpenDevice. Valid while the camera lives. */
VCAM_API const InterfaceTable *vcam_interface(const VcamCamera *cam);
/** The host argument to hand to DEV_OpenDevice. */
VCAM_API uint32_t vcam_host_arg(const VcamCamera *cam);
/** The camera's configuration. */
VCAM_API void vcam_get_config(const VcamCamera *cam, VcamConfig *out);

/* ---- Recording ---- */

/** The trigger input: a camera waiting in a recording state starts to
 *  record. Returns 1 when it did, 0 when the camera was not waiting. */
VCAM_API int vcam_trigger(VcamCamera *cam);

/** Where the present (or last) recording stands: writes the frames recorded
 *  so far and the frames it will have, and returns 0 when no recording state
 *  was entered yet, 1 while waiting for the trigger, 2 while recording, 3
 *  when it has ended. */
VCAM_API int vcam_recording(const VcamCamera *cam, uint32_t *recorded, uint32_t *length);

/* ---- Trace ---- */

/** Number of host calls recorded since creation or the last clear. */
VCAM_API size_t vcam_trace_size(const VcamCamera *cam);
/** Copies entry index; returns 0 when index is out of range. */
VCAM_API int vcam_trace_entry(const VcamCamera *cam, size_t index, VcamTraceEntry *out);
/** Number of calls of one kind since creation or the last clear. */
VCAM_API uint32_t vcam_call_count(const VcamCamera *cam, VcamCall call);
/** Copies up to max decoded commands, oldest first; returns how many were decoded in all. */
VCAM_API size_t vcam_commands(const VcamCamera *cam, CameraCommand *out, size_t max);
/** Forgets the trace and the call counts. */
VCAM_API void vcam_trace_clear(VcamCamera *cam);

/* ---- Faults ---- */

/** Makes count calls of one kind fail with code, starting with the nth
 *  (1-based) counted from now; count 0 means every call from the nth on.
 *  A failing call does nothing but return 0 and write code. */
VCAM_API void vcam_fail_calls(VcamCamera *cam, VcamCall call, uint32_t nth, uint32_t count, int32_t code);
/** Answers every later command with this code using replyCode instead of
 *  the proper reply code; replyCode 0 removes the override. */
VCAM_API void vcam_override_reply_code(VcamCamera *cam, uint16_t command, uint16_t replyCode);
/** Sets the pause added to every link call. */
VCAM_API void vcam_set_link_delay(VcamCamera *cam, uint32_t milliseconds);
/** Removes every injected fault and override. */
VCAM_API void vcam_clear_faults(VcamCamera *cam);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QUORIN_VCAM_H */
