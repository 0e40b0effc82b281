// Process-wide state of the library: the initialisation flag, the library
// heap, the ten interface entries, the 64 device slots and their buffers,
// and the preset look-up settings.
#pragma once

#include "quorin/quorin.h"
#include "image/frame.h"
#include "platform/platform.h"

#include <cstdint>

namespace quorin {

constexpr std::uint32_t kMaxDevices = QUORIN_MAX_DEVICES;
constexpr std::uint32_t kMaxInterfaces = QUORIN_MAX_INTERFACES;

// operatingStatus while the camera plays back recorded images.
constexpr std::uint32_t kPlaybackStatus = 0x04000000;

#pragma pack(push, 1)
// Look-up settings of the three colour channels, 76 bytes packed.
struct LutSettings {
    std::int32_t brightness[3];
    std::int32_t contrast[3];
    double gain[3];
    double gamma[3];
    std::uint8_t posiNega[3];
    std::uint8_t freeMode;
};
#pragma pack(pop)
static_assert(sizeof(LutSettings) == 76, "LutSettings is 76 packed bytes");

// One row of cached camera settings; row 0 serves live images and channel 0,
// row 1 memory images and every other channel.
struct ChannelSettings {
    std::uint32_t frameRate;
    std::uint32_t shutterSpeed;
    std::uint32_t resolution; // width << 16 | height
    std::uint32_t value73High;
    std::uint32_t value73Low;
    std::uint32_t triggerBase;
    std::uint32_t triggerMode;
    std::uint32_t triggerRatio;
    std::uint32_t triggerFrames;
    std::uint32_t triggerCount;
    std::uint32_t mode71;
    std::uint32_t colourGainR;
    std::uint32_t colourGainG;
    std::uint32_t colourGainB;
    std::uint32_t lutMode;
    std::uint32_t exposureEnabled;
    std::uint32_t value78;
};
static_assert(sizeof(ChannelSettings) == 17 * 4, "ChannelSettings is 17 words");

// Where an image of one row sits on the sensor and how it is sharpened.
struct ImageGeometry {
    std::uint32_t edgeEnhancement;
    std::uint64_t extraWord;
};

constexpr std::uint32_t kMaxDefects = 1024;

// One entry of a camera's table of modes (index 1..20).
struct ModeTableEntry {
    std::uint32_t modeA1, modeA2, modeB1, modeB2, modeC1, modeC2;
};

// What the last successful transfer left in the device's image buffers,
// for the one-pixel probe.
struct LastImage {
    image::ImageLayout layout; // None until a transfer succeeded
    std::uint32_t blueFirst; // triples stored blue, green, red
    std::uint32_t pixels;    // the frame's width x height
    std::uint32_t width;
    std::uint32_t memory;    // a recorded frame: the tables of row 1
    std::uint32_t matrixOn;  // the matrix the frame was processed with
    std::int32_t matrix[9];
};

// The state of one opened camera. Zeroed at DEV_Init and at close.
struct DeviceRecord {
    // Head, set by open and the start-up sequence.
    std::uint32_t inUse;
    std::uint32_t linkHandle;
    std::uint32_t interfaceIndex;
    std::uint32_t hostDeviceArg;
    std::uint32_t interfaceCode;
    std::uint32_t cameraModel;
    std::uint32_t sensorKind;
    std::uint32_t isColour;
    std::uint32_t firmwareVersion;
    std::uint32_t spareWord;
    std::uint32_t partition;
    std::uint32_t cameraNumber;
    std::uint32_t powerMode;
    std::uint32_t kernelVariant;
    std::uint32_t operatingStatus;

    // Start-up sequence.
    std::uint32_t statusBits;
    std::uint32_t darkSubtract;
    std::uint32_t pixelGainMode;
    std::uint32_t columnCorrect;
    std::uint32_t defectCorrect;
    std::uint32_t defectCount;
    std::uint32_t rawBayerOutput;
    std::uint32_t outputShift;
    std::uint32_t demosaicMethod;
    std::uint32_t keepLiveCache;
    std::uint32_t colourMode;
    std::uint32_t modeWord79;
    std::uint32_t modeSetterWord; // the word the mode setter owns, 0 after open
    std::uint32_t softColorTemp[3];
    std::uint32_t colourMatrixSelect;
    // Per element, row by row: [0] default coefficient, [1] camera's, in 1/256.
    std::int32_t colourMatrix[9][2];
    LutSettings userLut;
    std::uint32_t defectList[kMaxDefects];

    // Cached capability state.
    std::uint32_t channelNumber;  // top byte of command 29's second value
    std::uint32_t channelCount;   // command 30, 1..64
    ChannelSettings channelSettings[2];
    ImageGeometry geometry[2];    // live, memory
    ModeTableEntry modeTable[21]; // index 1..20; entry 0 stays zero
    std::uint32_t extra[5];       // extra1..extra5 from commands 75 and 77
    std::int32_t signedOffset66;  // two's complement inside, sign-magnitude to the host
    std::uint32_t shutterColumn;  // column of the exposure tables, 0..7 (low byte of command 21)
    std::uint32_t extSyncFlag;
    std::uint32_t extClockFrequency;
    std::uint32_t syncSourceRaw;  // camera's sync-source code (command 31 / 127)
    std::uint32_t flag42bit0, flag42bit1;
    std::uint32_t flag55;
    std::uint32_t mode53;
    std::uint32_t mode69, value69;
    std::uint32_t command43Value;
    // Image-pipeline switches the host sets through kept capabilities:
    // id 32 pixelGainMode, 85 defectCorrect, 90 keepLiveCache, 92 the soft
    // colour-temperature switch, 119 columnCorrect, 121..123 softColorTemp.
    std::uint32_t softColourSwitch;
    std::uint32_t kept120;

    // Device data.
    std::int32_t timeStampOffset; // microseconds added to recorded time stamps
    LastImage lastImage;
};

// Per-device buffers, each an array of 64 pointers indexed by device number.
// The nine large ones are committed virtual memory, the fifteen look-up
// tables come from the library heap.
struct DeviceBuffers {
    std::uint8_t *rawFrameBuffer[kMaxDevices];
    std::uint16_t *rgbImage[kMaxDevices];
    std::uint16_t *previousFrame[kMaxDevices];
    std::uint16_t *workImage[kMaxDevices];
    std::uint16_t *darkFrame[kMaxDevices];
    std::uint16_t *gainTableA[kMaxDevices];
    std::uint16_t *gainTableB[kMaxDevices];
    std::uint16_t *outputCache[kMaxDevices];
    image::DefectIndex *defectIndex[kMaxDevices]; // the pipeline's kept defect set
    // Look-up tables of 1024 entries: [row][channel R, G, B].
    std::uint16_t *baseLut[2][3][kMaxDevices];
    std::uint16_t *outputLut[2][3][kMaxDevices];
    std::uint16_t *freeLut[3][kMaxDevices];
};

// Sizes in bytes of the virtual-memory buffers, in release order (the
// defect index, last, has the pipeline's size for it).
constexpr std::size_t kRawFrameBytes = 0x200000;
constexpr std::size_t kRgbImageBytes = 0x600000;
constexpr std::size_t kPlaneBytes = 0x200000; // previousFrame .. gainTableB
constexpr std::size_t kOutputCacheBytes = 0x600000;
constexpr std::size_t kLutEntries = 1024;
constexpr std::size_t kLutBytes = kLutEntries * 2;

struct LibraryState {
    std::uint32_t initialised;
    std::int32_t openCount;
    platform::Heap libraryHeap;
    bool heapAlive; // the heap handle may still name a destroyed heap
    InterfaceTable interfaces[kMaxInterfaces];
    DeviceRecord devices[kMaxDevices];
    DeviceBuffers buffers;
    LutSettings presets[5];

    // Library-wide capability inputs, shared by every camera: last writer wins.
    std::uint32_t calcFrameRate;   // set id 50
    std::uint32_t calcResolution;  // set id 51, width << 16 | height
    std::uint32_t presetValue52;   // set id 52
    std::uint32_t startupValues[5]; // set ids 60..64
    std::uint32_t userGains[3];    // set ids 86..88, 16 = 1.0
    std::uint32_t cameraEntries[10]; // filled by list 23, read by list 30
};

// The one instance; static, zero at load.
extern LibraryState g_state;

inline DeviceRecord &device(std::uint32_t deviceNo)
{
    return g_state.devices[deviceNo];
}

inline const InterfaceTable &deviceInterface(std::uint32_t deviceNo)
{
    return g_state.interfaces[g_state.devices[deviceNo].interfaceIndex];
}

// True when deviceNo names a slot that exists, is open and has the
// buffers the start-up sequence allocates. Exports that use a slot's
// buffers or link answer QUORIN_ERR_NOT_OPEN otherwise.
bool deviceUsable(std::uint32_t deviceNo);

// Allocates the buffers of a slot whose pointers are still null, zeroes the
// six that are cleared at every open and sets the free tables to identity.
// Returns false when memory ran out (the buffers obtained stay allocated).
bool allocateDeviceBuffers(std::uint32_t deviceNo);
// Releases every buffer of a slot and nulls its pointers.
void releaseDeviceBuffers(std::uint32_t deviceNo);

// Destroys the library heap once; a second destroy of the same heap is a
// no-op.
void destroyLibraryHeap();

} // namespace quorin
