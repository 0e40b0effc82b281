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
    QUORIN_ERR_GAIN_FILE_WRITE  = 17,  /**< the pixel-gain file could not be written */
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
 *  and closes its link. Fails with 2 or 103 (not open). */
QUORIN_API int32_t DEV_CloseDevice(uint32_t deviceNo, int32_t *err);

/** Reads one capability: value receives the main result, value2 a second
 *  one for the ids that have it. */
QUORIN_API int32_t DEV_GetDeviceCaps(uint32_t deviceNo, uint64_t reserved, uint32_t capabilityId,
                          uint32_t subIndex, uint32_t *value, uint32_t *value2, int32_t *err);

/** Copies the model name (at most 256 bytes with its terminator) into name.
 *  Only index 0 exists. */
QUORIN_API int32_t DEV_GetDeviceName(uint32_t deviceNo, uint32_t index, char *name, int32_t *err);

/** Changes one capability. */
QUORIN_API int32_t DEV_SetDeviceCaps(uint32_t deviceNo, uint64_t reserved, uint32_t capabilityId,
                          uint32_t subIndex, uint32_t value, uint32_t value2, int32_t *err);

/** Reads one value list into entries (at most 1024 elements) and its
 *  length into count. */
QUORIN_API int32_t DEV_GetList(uint32_t deviceNo, uint64_t reserved, uint32_t listId, uint32_t subIndex,
                    uint32_t *entries, uint32_t *count, int32_t *err);

/** Reads device data into buffer and its size in bytes into outSize. */
QUORIN_API uint32_t DEV_GetData(uint32_t deviceNo, uint32_t reserved, uint32_t dataId, uint32_t subId,
                     uint32_t param, void *buffer, uint32_t *outSize, int32_t *err);

/** Writes device data from buffer. */
QUORIN_API uint32_t DEV_SetData(uint32_t deviceNo, uint32_t reserved, uint32_t dataId, uint32_t subId,
                     uint32_t param, void *buffer, uint64_t reserved2, int32_t *err);

/** Writes a list (defect list or a free look-up curve) to the camera. */
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
