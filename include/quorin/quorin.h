/*
 * quorin.h - public interface of QUORIN, the device library for the
 * ORBILUX-VELTA high-speed cameras (model K5, monochrome, and model K5C,
 * colour).
 *
 * A host camera SDK loads the library (QUORIN.dll on Windows, libquorin.so
 * on Linux) and drives it through the sixteen DEV_ functions below. The
 * library never touches hardware: at open the host hands it an
 * InterfaceTable whose functions carry every byte to and from the camera.
 *
 * Conventions shared by every export:
 *   - the result is 1 for success and 0 for failure;
 *   - the last argument receives an ErrorCode (QUORIN_SUCCESS on success);
 *     a code written by a host InterfaceTable function is passed up as is;
 *   - a camera is named by the device number DEV_OpenDevice returned;
 *   - the library starts no threads and takes no locks: the host serialises
 *     calls for one device and never opens or closes cameras concurrently.
 *
 * This header is plain C (C99) and C++.
 */
#ifndef QUORIN_QUORIN_H
#define QUORIN_QUORIN_H

#include <stddef.h>
#include <stdint.h>

/* The build marks the exports for the dynamic symbol table; a host
 * includes this header with QUORIN_API undefined. */
#ifndef QUORIN_API
#define QUORIN_API
#endif

/* Version of this header and of the library built with it. A host compares
 * QUORIN_VERSION_NUMBER at compile time; the library has no export for it. */
#define QUORIN_VERSION_MAJOR 0
#define QUORIN_VERSION_MINOR 1
#define QUORIN_VERSION_PATCH 0
#define QUORIN_VERSION_STRING "0.1.0"
/** major * 10000 + minor * 100 + patch */
#define QUORIN_VERSION_NUMBER (QUORIN_VERSION_MAJOR * 10000 + QUORIN_VERSION_MINOR * 100 + QUORIN_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Error codes
 * ------------------------------------------------------------------------ */

/** Status word every export writes through its last argument. */
typedef int32_t ErrorCode;

enum {
    QUORIN_SUCCESS              = 1,   /**< success */
    QUORIN_ERR_NOT_INITIALISED  = 2,   /**< DEV_Init not called, or DEV_Exit called */
    QUORIN_ERR_OUT_OF_RANGE     = 5,   /**< unknown identifier, or a value outside the accepted set */
    QUORIN_ERR_NO_MEMORY        = 6,   /**< memory could not be allocated */
    QUORIN_ERR_LINK_RETRIES     = 9,   /**< the link failed three times in a row */
    QUORIN_ERR_NO_DATA          = 10,  /**< the requested stored data is not available on the camera */
    QUORIN_ERR_NOT_ALLOWED      = 11,  /**< not allowed in the camera's present mode or configuration */
    QUORIN_ERR_GAIN_FILE_READ   = 16,  /**< the pixel-gain file or its folder could not be read */
    QUORIN_ERR_GAIN_FILE_WRITE  = 17,  /**< a settings file could not be written (see DEV_CloseDevice) */
    QUORIN_ERR_NOT_SUPPORTED    = 21,  /**< not supported by this camera model, firmware or link */
    QUORIN_ERR_NOT_OPEN         = 103, /**< the device number names no open camera */
    QUORIN_ERR_NO_FREE_ENTRY    = 105, /**< no free interface entry or device slot */
    QUORIN_ERR_PLAYBACK         = 110, /**< refused while the camera is in playback status */
    QUORIN_ERR_NOT_PLAYBACK     = 111, /**< refused while the camera is not in playback status */
    QUORIN_ERR_REPLY_MISMATCH   = 203  /**< the camera's reply code does not match the command */
};

/** Number of device slots: device numbers run from 0 to QUORIN_MAX_DEVICES - 1. */
#define QUORIN_MAX_DEVICES 64
/** Number of distinct interface tables (interface codes) that can be registered at once. */
#define QUORIN_MAX_INTERFACES 10

/* ------------------------------------------------------------------------
 * The host's link driver
 * ------------------------------------------------------------------------ */

/* Every link function returns non-zero for success; on failure it has
 * written its own error code through err. handle is the link handle that
 * Open produced. */

/** Opens the camera link named by hostDeviceArg and writes its handle. */
typedef int32_t (*QuorinOpenFn)(uint32_t hostDeviceArg, uint32_t *outHandle, int32_t *err);
/** Closes the link. */
typedef int32_t (*QuorinCloseFn)(uint32_t handle, int32_t *err);
/** Writes length bytes to the camera. */
typedef int32_t (*QuorinSendFn)(uint32_t handle, const uint8_t *data, uint32_t length, int32_t *err);
/** Reads exactly length bytes from the camera. */
typedef int32_t (*QuorinReceiveFn)(uint32_t handle, uint8_t *data, uint32_t length, int32_t *err);
/** Recovers the link after a failed send or receive. */
typedef int32_t (*QuorinResetFn)(uint32_t handle, int32_t *err);
/** Link type 3: arms a bulk read of length bytes into buffer; writes two
 *  values that the library announces to the camera as (A << 16) | B. */
typedef int32_t (*QuorinArmTransferFn)(uint32_t handle, uint8_t *buffer, uint32_t length,
                                       uint32_t *outA, uint32_t *outB, int32_t *err);
/** Link type 3: waits until the armed read has completed. */
typedef int32_t (*QuorinAwaitTransferFn)(uint32_t handle, int32_t *err);
/** Link type 4: one 10-byte command frame out, one 10-byte reply in. */
typedef int32_t (*QuorinTransactFn)(uint32_t handle, const uint8_t *frame10, uint8_t *reply10,
                                    int32_t *err);
/** Link type 4: a command frame with a data phase of length bytes. */
typedef int32_t (*QuorinTransactDataFn)(uint32_t handle, const uint8_t *frame10, uint8_t *reply10,
                                        void *data, int32_t length, int32_t *err);

/**
 * The host's interface-driver descriptor: 200 bytes, copied byte for byte
 * into one of the library's ten interface entries at the first open with
 * its code. Fields marked "host's" are never read by the library.
 */
typedef struct InterfaceTable {
    uint32_t type;          /**< interface code; 2, 3 and 4 change framing and transport */
    uint32_t hostWord4;     /**< host's */
    uint64_t inUseWord;     /**< must be non-zero in a filled table */
    int32_t refCount;       /**< devices opened through this entry (counted by the library) */
    uint8_t hostBytes20[36]; /**< host's */
    QuorinOpenFn Open;
    QuorinCloseFn Close;
    QuorinSendFn Send;
    QuorinReceiveFn Receive;
    QuorinResetFn Reset;
    void *hostPointers96[2]; /**< host's */
    QuorinArmTransferFn armTransfer;     /**< link type 3 only */
    QuorinAwaitTransferFn awaitTransfer; /**< link type 3 only */
    QuorinTransactFn Transact;           /**< link type 4 only */
    QuorinTransactDataFn TransactData;   /**< link type 4 only */
    uint8_t hostBytes144[56]; /**< host's */
} InterfaceTable;

/* Compile-time checks of the layout the host and the library share
 * (64-bit targets). A failing check is an array of negative size. */
#define QUORIN_LAYOUT_CHECK(name, cond) typedef char quorin_layout_check_##name[(cond) ? 1 : -1]
QUORIN_LAYOUT_CHECK(size, sizeof(InterfaceTable) == 200);
QUORIN_LAYOUT_CHECK(type, offsetof(InterfaceTable, type) == 0);
QUORIN_LAYOUT_CHECK(hostWord4, offsetof(InterfaceTable, hostWord4) == 4);
QUORIN_LAYOUT_CHECK(inUseWord, offsetof(InterfaceTable, inUseWord) == 8);
QUORIN_LAYOUT_CHECK(refCount, offsetof(InterfaceTable, refCount) == 16);
QUORIN_LAYOUT_CHECK(hostBytes20, offsetof(InterfaceTable, hostBytes20) == 20);
QUORIN_LAYOUT_CHECK(Open, offsetof(InterfaceTable, Open) == 56);
QUORIN_LAYOUT_CHECK(Close, offsetof(InterfaceTable, Close) == 64);
QUORIN_LAYOUT_CHECK(Send, offsetof(InterfaceTable, Send) == 72);
QUORIN_LAYOUT_CHECK(Receive, offsetof(InterfaceTable, Receive) == 80);
QUORIN_LAYOUT_CHECK(Reset, offsetof(InterfaceTable, Reset) == 88);
QUORIN_LAYOUT_CHECK(hostPointers96, offsetof(InterfaceTable, hostPointers96) == 96);
QUORIN_LAYOUT_CHECK(armTransfer, offsetof(InterfaceTable, armTransfer) == 112);
QUORIN_LAYOUT_CHECK(awaitTransfer, offsetof(InterfaceTable, awaitTransfer) == 120);
QUORIN_LAYOUT_CHECK(Transact, offsetof(InterfaceTable, Transact) == 128);
QUORIN_LAYOUT_CHECK(TransactData, offsetof(InterfaceTable, TransactData) == 136);
QUORIN_LAYOUT_CHECK(hostBytes144, offsetof(InterfaceTable, hostBytes144) == 144);

/** One request to the camera: a command code and two parameters. */
typedef struct CameraCommand {
    uint16_t code;
    uint32_t p1;
    uint32_t p2;
} CameraCommand;

/** The camera's answer to one CameraCommand. */
typedef struct CommandReply {
    uint16_t code;
    uint32_t value1;
    uint32_t value2;
} CommandReply;

/* ------------------------------------------------------------------------
 * Capability ids (DEV_GetDeviceCaps / DEV_SetDeviceCaps)
 *
 * "get" and "set" say which direction an id serves; an id means the same
 * in both unless both meanings are given. Values use the host's numbering.
 * ------------------------------------------------------------------------ */
enum {
    QUORIN_CAP_CAMERA_MODE = 0,          /**< get/set: 0 live, 1 playback, 2, 4, 8 recording states (16, 32 on get) */
    QUORIN_CAP_SUPPORTED = 1,            /**< get: always 1 */
    QUORIN_CAP_FRAME_RATE = 2,           /**< get/set: frames per second */
    QUORIN_CAP_RESOLUTION = 3,           /**< get/set: width << 16 | height */
    QUORIN_CAP_SHUTTER = 4,              /**< get/set: shutter speed as a denominator of one second */
    QUORIN_CAP_EXPOSURE_US = 5,          /**< get: exposure time in microseconds */
    QUORIN_CAP_TRIGGER_MODE = 6,         /**< get/set: trigger code, value2 its parameter */
    QUORIN_CAP_TRIGGER_COUNTS = 7,       /**< get/set: trigger count, value2 the ratio (1..10) */
    QUORIN_CAP_COLOUR_TEMPERATURE = 8,   /**< get/set: 1 = 5100 K, 2 = 3100 K, 3/4 = user gains (K5C) */
    QUORIN_CAP_COLOUR_MODEL = 11,        /**< get: non-zero on the K5C */
    QUORIN_CAP_CAMERA_NUMBER = 12,       /**< get: the camera's number */
    QUORIN_CAP_MODE_133 = 13,            /**< get/set: mode 1..4 (commands 71 / 133) */
    QUORIN_CAP_FLAG_137_BIT0 = 14,       /**< get/set: flag 0 of command 137 (command 42 bit 0) */
    QUORIN_CAP_FLAG_137_BIT1 = 15,       /**< get/set: flag 1 of command 137 (command 42 bit 1) */
    QUORIN_CAP_ACTION_145 = 16,          /**< get: mode 1..4 of command 55; set: action 1..5 of command 145 */
    QUORIN_CAP_MODE_143 = 17,            /**< get/set: mode 1..4 (commands 53 / 143) */
    QUORIN_CAP_LUT_MODE = 18,            /**< get/set: 1..5 presets, 11 the user look-up table */
    QUORIN_CAP_SIGNED_OFFSET = 19,       /**< get/set: sign-magnitude offset (bit 31 = negative) */
    QUORIN_CAP_FIRMWARE = 23,            /**< get: firmware revision */
    QUORIN_CAP_FLAG_134 = 24,            /**< get: command 68 flag; set: command 134 flag (0/1) */
    QUORIN_CAP_FLAG_159 = 25,            /**< get: command 67 flag; set: command 159 flag (0/1) */
    QUORIN_CAP_STATUS_BIT16 = 28,        /**< get/set: status bit 16 (0/1) */
    QUORIN_CAP_SENSOR_KIND = 29,         /**< get: sensor kind 2 or 3; set: command 112 value 2 or 3 */
    QUORIN_CAP_CONSTANT_64 = 30,         /**< get: 64, value2 0 */
    QUORIN_CAP_CHANNEL_NUMBER = 31,      /**< get/set: channel 1..channel count */
    QUORIN_CAP_PIXEL_GAIN = 32,          /**< get/set: pixel gain 0 off, 1 camera table, 2 file table, 3 fixed; set 6 saves, 7 loads the pixel-gain file */
    QUORIN_CAP_FRAME_COUNT = 33,         /**< get: frames the camera's memory holds */
    QUORIN_CAP_SYNC_SOURCE = 34,         /**< get/set: sub-index 1 sync source 1..5, sub-index 2 mode 6..11 */
    QUORIN_CAP_PAIR_128 = 35,            /**< get/set: sub-index 1 codes 1..2, sub-index 2 codes 3..14 */
    QUORIN_CAP_CONSTANT_2 = 36,          /**< get: 2, value2 2 */
    QUORIN_CAP_EXPOSURE_ENABLE = 37,     /**< get/set: exposure control switch (0/1) */
    QUORIN_CAP_FRAME_COUNT_CHANNELS = 39, /**< get: value = array of channel-count frame counts, value2 = 512-byte block */
    QUORIN_CAP_CHANNEL_COUNT = 40,       /**< get/set: number of channels 1..64 */
    QUORIN_CAP_IMAGE_OUTPUT = 41,        /**< get/set: demosaic << 16 | raw Bayer << 8 | output shift (0..2) */
    QUORIN_CAP_FRAME_COUNT_2 = 42,       /**< get: as QUORIN_CAP_FRAME_COUNT */
    QUORIN_CAP_VALUES_45_46 = 43,        /**< get: command 45 value, value2 command 46 value less 1 */
    QUORIN_CAP_COLOUR_MATRIX_ROW1 = 44,  /**< get: row 1 as sign-magnitude a << 16 | b, value2 c (K5C) */
    QUORIN_CAP_COLOUR_MATRIX_ROW2 = 45,  /**< get: row 2 (K5C) */
    QUORIN_CAP_COLOUR_MATRIX_ROW3 = 46,  /**< get: row 3 (K5C) */
    QUORIN_CAP_SENSOR_SIZE = 47,         /**< get: 1024 << 16 | 1024 */
    QUORIN_CAP_VALUE_73 = 48,            /**< get: command 73 value */
    QUORIN_CAP_MODE_69 = 49,             /**< get: command 69 mode 0..2 */
    QUORIN_CAP_PRESET_FRAME_RATE = 50,   /**< get: frame rate of preset sub-index; set: frame-time model frame rate */
    QUORIN_CAP_PRESET_RESOLUTION = 51,   /**< get: size of preset sub-index; set: frame-time model size */
    QUORIN_CAP_PRESET_VALUE_52 = 52,     /**< get: preset value 52 of sub-index; set: input of the next preset store */
    QUORIN_CAP_PRESET_STORE = 53,        /**< set: store the present inputs as preset number value */
    QUORIN_CAP_PRESET_RECALL = 54,       /**< get: command 69 second value; set: recall preset number value */
    QUORIN_CAP_PRESET_DELETE = 55,       /**< set: delete preset number value */
    QUORIN_CAP_MAX_FRAME_RATE = 56,      /**< get: largest frame rate for the frame-time model size */
    QUORIN_CAP_MAX_WIDTH = 57,           /**< get: largest width for the model frame rate */
    QUORIN_CAP_MAX_HEIGHT = 58,          /**< get: largest height for the model frame rate */
    QUORIN_CAP_MAX_PICTURE = 59,         /**< get: largest width, value2 height, for the model frame rate */
    QUORIN_CAP_STARTUP_VALUE_1 = 60,     /**< get/set: start-up value 1 (60..64 are values 1..5) */
    QUORIN_CAP_STARTUP_VALUE_5 = 64,     /**< get/set: start-up value 5 */
    QUORIN_CAP_SEND_STARTUP_VALUES = 65, /**< set: send start-up values 1..5 to the camera */
    QUORIN_CAP_CONSTANT_10 = 72,         /**< get: 10 */
    QUORIN_CAP_UPLOAD_LUT = 73,          /**< set: value 11 uploads the user look-up table to the camera */
    QUORIN_CAP_BIT_DEPTH = 76,           /**< get: by sub-index 0..3 */
    QUORIN_CAP_COLOUR_MATRIX_SET = 77,   /**< get: 2 camera / 0 default coefficients; set: non-zero selects the camera's (K5C) */
    QUORIN_CAP_SUPPORTED_80 = 80,        /**< get: always 1 */
    QUORIN_CAP_CONSTANT_3000 = 81,       /**< get: 3000 */
    QUORIN_CAP_VALUE_47 = 84,            /**< get: command 47 value, limited */
    QUORIN_CAP_DEFECT_CORRECT = 85,      /**< get/set: defective-pixel correction on (non-zero) or off */
    QUORIN_CAP_USER_GAIN_R = 86,         /**< get: colour gain R of the camera; set: user gain R for QUORIN_CAP_COLOUR_TEMPERATURE 3/4 (16 = 1.0) */
    QUORIN_CAP_USER_GAIN_G = 87,         /**< as QUORIN_CAP_USER_GAIN_R for green */
    QUORIN_CAP_USER_GAIN_B = 88,         /**< as QUORIN_CAP_USER_GAIN_R for blue */
    QUORIN_CAP_CONSTANT_16_63 = 89,      /**< get: 16, value2 63 */
    QUORIN_CAP_KEEP_LIVE_CACHE = 90,     /**< get/set: keep the 16-bit result of 8-bit transfers for DEV_TransferLiveImageCache */
    QUORIN_CAP_LEVEL_RANGE = 91,         /**< get: by sub-index 0..3 */
    QUORIN_CAP_SOFT_COLOUR = 92,         /**< get/set: colour balance from the soft gains (121..123) instead of the camera's; enables 120 */
    QUORIN_CAP_COMMAND_157 = 95,         /**< set: send command 157 */
    QUORIN_CAP_SUPPORTED_96 = 96,        /**< get: always 1 */
    QUORIN_CAP_INTERFACE_REGISTER = 97,  /**< get/set: link type 2 interface register, sub-index 0..2 */
    QUORIN_CAP_PRESET_EXT_SYNC = 98,     /**< get: external-sync flag of preset sub-index */
    QUORIN_CAP_EXTERNAL_SYNC = 99,       /**< get/set: external sync 0/1 (firmware 117..199, 300 on) */
    QUORIN_CAP_VALUE_78 = 100,           /**< get: command 78 value (same firmware) */
    QUORIN_CAP_COLUMN_CORRECT = 119,     /**< get/set: 32-column crosstalk correction (firmware below 114) */
    QUORIN_CAP_KEPT_120 = 120,           /**< get/set: kept colour setting (K5C) */
    QUORIN_CAP_SOFT_GAIN_R = 121,        /**< get/set: soft colour-balance gain R, 16 = 1.0, below 64 (K5C) */
    QUORIN_CAP_SOFT_GAIN_G = 122,        /**< get/set: soft gain G */
    QUORIN_CAP_SOFT_GAIN_B = 123,        /**< get/set: soft gain B */
    QUORIN_CAP_EXPOSURE_NS = 127,        /**< get: exposure time in nanoseconds */
    QUORIN_CAP_KERNEL_VARIANT = 128,     /**< set: image-pipeline option word */
    QUORIN_CAP_REFRESH_STARTUP = 162     /**< get: re-read start-up values 1..5 from the camera */
};

/* ------------------------------------------------------------------------
 * Value list ids (DEV_GetList; entries must hold 1024 values)
 * ------------------------------------------------------------------------ */
enum {
    QUORIN_LIST_FRAME_RATES = 0,           /**< frame rates offered now */
    QUORIN_LIST_PICTURE_SIZES = 1,         /**< sizes allowed at the present frame rate (width << 16 | height) */
    QUORIN_LIST_SHUTTER_SPEEDS = 2,        /**< shutter denominators, the frame rate first */
    QUORIN_LIST_EXPOSURE_TIMES_US = 3,     /**< exposure times in microseconds */
    QUORIN_LIST_TRIGGER_MODES = 4,         /**< trigger codes */
    QUORIN_LIST_SYNC_SOURCES = 7,          /**< sub-index 1: 1..5, sub-index 2: 6..11 */
    QUORIN_LIST_PAIR_128_CODES = 8,        /**< sub-index 1 or 2 */
    QUORIN_LIST_COLOUR_TEMPERATURES = 9,   /**< 1..4 */
    QUORIN_LIST_LUT_MODES = 10,            /**< 1..5, 11 */
    QUORIN_LIST_EXT_SYNC_FRAME_RATES = 11, /**< frame rates of the external-sync frame-time model */
    QUORIN_LIST_MODES_143 = 12,            /**< modes of QUORIN_CAP_MODE_143 allowed now */
    QUORIN_LIST_VALUES_112 = 13,           /**< 2, 3 */
    QUORIN_LIST_MODES_133 = 14,            /**< 1..4 */
    QUORIN_LIST_FINE_FRAME_RATES = 15,     /**< fine frame rates for the present width */
    QUORIN_LIST_FINE_EXPOSURE_US = 16,     /**< fine exposure times in microseconds */
    QUORIN_LIST_ACTIONS_145 = 17,          /**< 1..4 */
    QUORIN_LIST_DEFECTS = 18,              /**< the defect pixels, (column << 16) | row */
    QUORIN_LIST_SINGLE_VALUE = 19,         /**< 1 */
    QUORIN_LIST_FREE_LUT_R = 20,           /**< free curve R (1024 entries) */
    QUORIN_LIST_FREE_LUT_G = 21,           /**< free curve G (the red one on the K5) */
    QUORIN_LIST_FREE_LUT_B = 22,           /**< free curve B (the red one on the K5) */
    QUORIN_LIST_CAMERA_ENTRIES = 23,       /**< ten camera entries; the count is the number present */
    QUORIN_LIST_OUTPUT_LUT_R = 25,         /**< output table R of the selected channel's row */
    QUORIN_LIST_OUTPUT_LUT_G = 26,         /**< output table G (the red one on the K5) */
    QUORIN_LIST_OUTPUT_LUT_B = 27,         /**< output table B (the red one on the K5) */
    QUORIN_LIST_PIXEL_GAIN_VALUES = 28,    /**< 0..3, 6, 7 */
    QUORIN_LIST_STORED_ENTRIES = 30,       /**< the ten values kept by QUORIN_LIST_CAMERA_ENTRIES */
    QUORIN_LIST_TWO_VALUES = 31,           /**< 0, 2 */
    QUORIN_LIST_EXPOSURE_TIMES_NS = 40,    /**< exposure times in nanoseconds */
    QUORIN_LIST_FINE_EXPOSURE_NS = 41      /**< fine exposure times in nanoseconds */
};

/** Entries DEV_GetList writes at most. */
#define QUORIN_MAX_LIST_ENTRIES 1024

/* ------------------------------------------------------------------------
 * Device data ids (DEV_GetData / DEV_SetData) and written lists (DEV_SetList)
 * ------------------------------------------------------------------------ */
enum {
    QUORIN_DATA_TIME_STAMPS = 0,    /**< get: 20 bytes per frame */
    QUORIN_DATA_CHANNELS = 1,       /**< get: 332 bytes per frame */
    QUORIN_DATA_TIME_AND_CHANNELS = 2, /**< get: 352 bytes per frame */
    QUORIN_DATA_LUT_SETTINGS = 3,   /**< get/set: 76-byte look-up settings */
    QUORIN_DATA_GAIN_TABLES = 4,    /**< get: 2,097,152 bytes; set: the pixel-gain table */
    QUORIN_DATA_FLAT_FIELD = 5,     /**< set: compute the pixel-gain table from a flat field */
    QUORIN_DATA_PIXEL_PROBE = 6     /**< get: one pixel's value */
};

enum {
    QUORIN_SETLIST_DEFECTS = 18,    /**< defect pixels (X << 16) | Y, at most 1024 */
    QUORIN_SETLIST_FREE_LUT_R = 20, /**< free curve R, 1024 elements */
    QUORIN_SETLIST_FREE_LUT_G = 21, /**< free curve G, 1024 elements */
    QUORIN_SETLIST_FREE_LUT_B = 22  /**< free curve B, 1024 elements */
};

/* ------------------------------------------------------------------------
 * Exports
 * ------------------------------------------------------------------------ */

/** Initialises the library: clears every device slot, sets the preset
 *  look-up settings and creates the library heap. Always succeeds. */
QUORIN_API int32_t DEV_Init(int32_t *err);

/** Destroys the library heap and marks the library uninitialised. Open
 *  cameras are not closed. Always succeeds. */
QUORIN_API int32_t DEV_Exit(int32_t *err);

/** Opens one camera through the host's link driver and returns its device
 *  number. The first table given for an interface code is copied and kept
 *  until the last camera opened with that code is closed. Fails with 2,
 *  105 (no free interface entry or device slot) or the code of the host's
 *  Open. When the camera's start-up fails the open still succeeds and err
 *  holds the start-up's failure code. */
QUORIN_API int32_t DEV_OpenDevice(uint32_t interfaceCode, const InterfaceTable *table, uint32_t hostDeviceArg,
                       uint32_t *outDeviceNo, int32_t *err);

/** Returns the camera to live mode, saves its settings, frees its buffers
 *  and closes its link. Fails with 2 or 103 (not open). Otherwise the slot
 *  is freed and 1 returned; err then holds 17 when the free curves or the
 *  registry settings could not be stored (and the link reported no failure
 *  of its own), so that no setting is lost without a word. */
QUORIN_API int32_t DEV_CloseDevice(uint32_t deviceNo, int32_t *err);

/** Reads one capability (QUORIN_CAP_...): value receives the main result,
 *  value2 a second one for the ids that have it. Id 39 writes up to 64
 *  elements at value and 512 bytes at value2. */
QUORIN_API int32_t DEV_GetDeviceCaps(uint32_t deviceNo, uint64_t reserved, uint32_t capabilityId,
                          uint32_t subIndex, uint32_t *value, uint32_t *value2, int32_t *err);

/** Copies the model name (at most 256 bytes with its terminator) into name.
 *  Only index 0 exists. */
QUORIN_API int32_t DEV_GetDeviceName(uint32_t deviceNo, uint32_t index, char *name, int32_t *err);

/** Changes one capability. */
QUORIN_API int32_t DEV_SetDeviceCaps(uint32_t deviceNo, uint64_t reserved, uint32_t capabilityId,
                          uint32_t subIndex, uint32_t value, uint32_t value2, int32_t *err);

/** Reads one value list (QUORIN_LIST_...) into entries (at most 1024
 *  elements are written) and its length into count. */
QUORIN_API int32_t DEV_GetList(uint32_t deviceNo, uint64_t reserved, uint32_t listId, uint32_t subIndex,
                    uint32_t *entries, uint32_t *count, int32_t *err);

/** Reads device data into buffer. The library cannot know the buffer's
 *  size; it writes exactly:
 *  - QUORIN_DATA_TIME_STAMPS (subId first frame, param count 1..2048):
 *    count x 20 bytes (day u32, hour, minute, second u8, one byte left as
 *    it was, microsecond u32, time-code flag u8, seven bytes left as they were);
 *  - QUORIN_DATA_CHANNELS: count x 332 bytes (ten status bytes, two left as
 *    they were, then C[10], D[10], A[10], B[10] as doubles);
 *  - QUORIN_DATA_TIME_AND_CHANNELS: count x 352 bytes (both, time first);
 *  - QUORIN_DATA_LUT_SETTINGS (subId 1..5 presets, 11 user): 76 bytes;
 *  - QUORIN_DATA_GAIN_TABLES (subId 1 camera table, 2 file table): 2,097,152 bytes;
 *  - QUORIN_DATA_PIXEL_PROBE (subId column x, param row y of the live area,
 *    both bounds inclusive): 12 bytes, the last image's red, green and
 *    blue as u32 (a monochrome image's value three times).
 *  outSize receives the number of bytes written. */
QUORIN_API uint32_t DEV_GetData(uint32_t deviceNo, uint32_t reserved, uint32_t dataId, uint32_t subId,
                     uint32_t param, void *buffer, uint32_t *outSize, int32_t *err);

/** Writes device data from buffer, which is read as:
 *  - QUORIN_DATA_LUT_SETTINGS: subId 11 stores 76 bytes as the user LUT;
 *    subId 0xFFFFFFFF applies the identity curve (buffer unused);
 *  - QUORIN_DATA_GAIN_TABLES: 2,097,152 bytes replace the file table;
 *  - QUORIN_DATA_FLAT_FIELD: width x height u16 values of the live area
 *    (QUORIN_CAP_RESOLUTION) from which the file table is computed. */
QUORIN_API uint32_t DEV_SetData(uint32_t deviceNo, uint32_t reserved, uint32_t dataId, uint32_t subId,
                     uint32_t param, void *buffer, uint64_t reserved2, int32_t *err);

/** Writes a list. QUORIN_SETLIST_DEFECTS: count entries (at most 1024) of
 *  (X << 16) | Y; the buffer must hold 1024 entries, because it is rewritten
 *  as the stored list (sorted by row, then column, without repeats)
 *  followed by 0xFFFFFFFF; outCount receives the number stored.
 *  QUORIN_SETLIST_FREE_LUT_R/G/B: 1024 entries are read whatever count says
 *  (low 16 bits each), only while the user LUT is the active LUT mode. */
QUORIN_API uint32_t DEV_SetList(uint32_t deviceNo, uint64_t reserved, uint32_t listId, uint64_t reserved2,
                     uint32_t *list, uint32_t count, uint32_t *outCount, int32_t *err);

/** Fetches the current live frame into dest: 16-bit output when bitDepth is
 *  exactly 16, 8-bit otherwise. */
QUORIN_API int32_t DEV_TransferLiveImage(uint32_t deviceNo, uint64_t spare, int32_t bitDepth, void *dest,
                              int32_t *err);

/** Fetches recorded frame frameNumber from the camera's memory into dest
 *  (playback status only). */
QUORIN_API int32_t DEV_TransferMemImage(uint32_t deviceNo, uint64_t spare, uint32_t frameNumber,
                             int32_t bitDepth, void *dest, int32_t *err);

/** Requests recorded frame frameNumber without reading it; collect it with
 *  DEV_TransferMemImageEnd. */
QUORIN_API int32_t DEV_TransferMemImageStart(uint32_t deviceNo, uint64_t spare, uint32_t frameNumber,
                                  uint64_t spare2, uint64_t spare3, int32_t *err);

/** Collects the frame requested by DEV_TransferMemImageStart into dest. */
QUORIN_API int32_t DEV_TransferMemImageEnd(uint32_t deviceNo, uint64_t spare, int32_t bitDepth, void *dest,
                                int32_t *err);

/** Copies the 16-bit live cache (kept by 8-bit live transfers when enabled)
 *  into dest. Note that this export's status word is unsigned. */
QUORIN_API int32_t DEV_TransferLiveImageCache(uint32_t deviceNo, uint64_t spare, uint8_t *dest,
                                   uint32_t *err);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QUORIN_QUORIN_H */
