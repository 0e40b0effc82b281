// Every capability (read and set), list and data id against a virtual K5
// and K5C as they come up on link type 7: one row per id with what the
// camera must answer. Rows run in order on one camera per model, so a row
// sees what the rows before it set. kKept marks a word the call leaves as
// it was.
#include "every_id.h"

#include <algorithm>
#include <cstring>

namespace {

struct Answer {
    int32_t ok;
    uint32_t value, value2;
    int32_t err;
};

// DEV_GetDeviceCaps(id, sub): the K5's answer, the K5C's.
struct GetRow {
    uint32_t id, sub;
    Answer k5, k5c;
};
const GetRow kGets[] = {
    {0, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {1, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {2, 0, {1, 0x3E8, kKept, 1}, {1, 0x3E8, kKept, 1}},
    {3, 0, {1, 0x4000400, kKept, 1}, {1, 0x4000400, kKept, 1}},
    {4, 0, {1, 0x0, kKept, 21}, {1, 0x0, kKept, 21}},
    {5, 0, {1, 0x0, kKept, 21}, {1, 0x0, kKept, 21}},
    {6, 0, {1, 0x0, 0x0, 1}, {1, 0x0, 0x0, 1}},
    {7, 0, {1, 0x0, 0x0, 1}, {1, 0x0, 0x0, 1}},
    {8, 0, {0, kKept, kKept, 21}, {1, 0x1, kKept, 1}},
    {11, 0, {1, 0x0, kKept, 1}, {1, 0x1, kKept, 1}},
    {12, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {13, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {14, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {15, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {16, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {17, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {18, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {19, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {23, 0, {1, 0x78, kKept, 1}, {1, 0x78, kKept, 1}},
    {24, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {25, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {28, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {29, 0, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {30, 0, {1, 0x40, 0x0, 1}, {1, 0x40, 0x0, 1}},
    {31, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {32, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {33, 0, {1, 0xCCC, 0x0, 1}, {1, 0xCCC, 0x0, 1}},
    {34, 0, {0, 0x0, kKept, 5}, {0, 0x0, kKept, 5}},
    {34, 1, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {34, 2, {1, 0x6, kKept, 1}, {1, 0x6, kKept, 1}},
    {35, 0, {0, 0x0, kKept, 5}, {0, 0x0, kKept, 5}},
    {35, 1, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {35, 2, {1, 0xD, kKept, 1}, {1, 0xD, kKept, 1}},
    {36, 0, {1, 0x2, 0x2, 1}, {1, 0x2, 0x2, 1}},
    {37, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {39, 0, {1, kKept, 0x0, 1}, {1, kKept, 0x0, 1}},
    {39, 1, {1, kKept, 0x0, 1}, {1, kKept, 0x0, 1}},
    {39, 2, {1, kKept, 0x0, 1}, {1, kKept, 0x0, 1}},
    {40, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {41, 0, {1, 0x10002, kKept, 1}, {1, 0x10002, kKept, 1}},
    {42, 0, {1, 0xCCC, 0x0, 1}, {1, 0xCCC, 0x0, 1}},
    {43, 0, {1, 0x1, 0x0, 1}, {1, 0x1, 0x0, 1}},
    {44, 0, {0, kKept, kKept, 21}, {1, 0x1408020, 0x8020, 1}},
    {44, 1, {0, kKept, kKept, 21}, {1, 0x1408020, 0x8020, 1}},
    {44, 2, {0, kKept, kKept, 21}, {1, 0x1408020, 0x8020, 1}},
    {45, 0, {0, kKept, kKept, 21}, {1, 0x80200140, 0x8020, 1}},
    {46, 0, {0, kKept, kKept, 21}, {1, 0x80208020, 0x140, 1}},
    {47, 0, {1, 0x4000400, kKept, 1}, {1, 0x4000400, kKept, 1}},
    {48, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {49, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {50, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {50, 1, {1, 0x3E8, kKept, 1}, {1, 0x3E8, kKept, 1}},
    {50, 2, {1, 0x7D0, kKept, 1}, {1, 0x7D0, kKept, 1}},
    {51, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {51, 1, {1, 0x3EA, kKept, 1}, {1, 0x3EA, kKept, 1}},
    {51, 2, {1, 0x7D2, kKept, 1}, {1, 0x7D2, kKept, 1}},
    {52, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {52, 1, {1, 0x3EB, kKept, 1}, {1, 0x3EB, kKept, 1}},
    {52, 2, {1, 0x7D3, kKept, 1}, {1, 0x7D3, kKept, 1}},
    {54, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {56, 0, {1, 0x633B3, kKept, 1}, {1, 0x633B3, kKept, 1}},
    {57, 0, {1, 0x400, kKept, 1}, {1, 0x400, kKept, 1}},
    {58, 0, {1, 0x400, kKept, 1}, {1, 0x400, kKept, 1}},
    {59, 0, {1, 0x400, 0x400, 1}, {1, 0x400, 0x400, 1}},
    {60, 0, {1, 0x64, kKept, 1}, {1, 0x64, kKept, 1}},
    {61, 0, {1, 0x65, kKept, 1}, {1, 0x65, kKept, 1}},
    {62, 0, {1, 0x66, kKept, 1}, {1, 0x66, kKept, 1}},
    {63, 0, {1, 0x67, kKept, 1}, {1, 0x67, kKept, 1}},
    {64, 0, {1, 0x68, kKept, 1}, {1, 0x68, kKept, 1}},
    {72, 0, {1, 0xA, kKept, 1}, {1, 0xA, kKept, 1}},
    {76, 0, {1, 0x40, 0x8, 1}, {1, 0x40, 0x8, 1}},
    {76, 1, {1, 0x80, 0x10, 1}, {1, 0x80, 0x10, 1}},
    {76, 2, {1, 0x80, 0x10, 1}, {1, 0x80, 0x10, 1}},
    {76, 3, {1, 0x11, kKept, 1}, {1, 0x11, kKept, 1}},
    {76, 4, {0, kKept, kKept, 5}, {0, kKept, kKept, 5}},
    {77, 0, {0, kKept, kKept, 21}, {1, 0x2, kKept, 1}},
    {80, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {81, 0, {1, 0xBB8, kKept, 1}, {1, 0xBB8, kKept, 1}},
    {84, 0, {1, 0x0, kKept, 1}, {1, 0x1, kKept, 1}},
    {85, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {86, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {87, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {88, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {89, 0, {1, 0x10, 0x3F, 1}, {1, 0x10, 0x3F, 1}},
    {90, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {91, 0, {1, 0x40, 0x8, 1}, {1, 0x40, 0x8, 1}},
    {91, 1, {1, 0x80, 0x10, 1}, {1, 0x80, 0x10, 1}},
    {91, 2, {1, 0x80, 0x10, 1}, {1, 0x80, 0x10, 1}},
    {91, 3, {1, 0xFF, 0xFF, 1}, {1, 0xFF, 0xFF, 1}},
    {91, 4, {0, kKept, kKept, 5}, {0, kKept, kKept, 5}},
    {92, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {96, 0, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {97, 1, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {97, 2, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {98, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {98, 1, {1, 0x3ED, kKept, 1}, {1, 0x3ED, kKept, 1}},
    {98, 2, {1, 0x7D5, kKept, 1}, {1, 0x7D5, kKept, 1}},
    {99, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {100, 0, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {119, 0, {0, 0x0, kKept, 21}, {0, 0x0, kKept, 21}},
    {120, 0, {0, kKept, kKept, 21}, {0, 0x0, kKept, 11}},
    {121, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {122, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {123, 0, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {127, 0, {1, 0xF4240, kKept, 1}, {1, 0xF4240, kKept, 1}},
    {162, 0, {1, kKept, kKept, 1}, {1, kKept, kKept, 1}},
};
// Ids no row reads: 0, 21.
constexpr uint32_t kUnreadIds[] = {9, 10, 20, 21, 22, 26, 27, 38, 53, 55, 65, 66, 67, 68, 69, 70, 71, 73, 74, 75, 78, 79, 82, 83, 93, 94, 95, 97, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 124, 125, 126, 128, 129, 130, 131, 132, 133, 134, 135, 136, 137, 138, 139, 140, 141, 142, 143, 144, 145, 146, 147, 148, 149, 150, 151, 152, 153, 154, 155, 156, 157, 158, 159, 160, 161, 163, 164, 165, 166, 167, 168, 169, 170};

// DEV_SetDeviceCaps(id, sub, value, value2): result and ErrorCode per
// model, then what DEV_GetDeviceCaps(id, sub) reads.
struct Outcome {
    int32_t ok, err;
};
struct SetRow {
    uint32_t id, sub, value, value2;
    Outcome setK5, setK5c;
    Answer readK5, readK5c;
};
const SetRow kSets[] = {
    {2, 0, 0x7D0, 0x0, {1, 1}, {1, 1}, {1, 0x7D0, kKept, 1}, {1, 0x7D0, kKept, 1}},
    {3, 0, 0x2000100, 0x0, {1, 1}, {1, 1}, {1, 0x2000100, kKept, 1}, {1, 0x2000100, kKept, 1}},
    {4, 0, 0xFA0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 21}, {1, 0x0, kKept, 21}},
    {6, 0, 0x2000000, 0x0, {1, 1}, {1, 1}, {1, 0x2000000, 0x1, 1}, {1, 0x2000000, 0x1, 1}},
    {6, 0, 0x4000000, 0x5, {0, 5}, {0, 5}, {1, 0x2000000, 0x1, 1}, {1, 0x2000000, 0x1, 1}},
    {7, 0, 0x4, 0x3, {1, 1}, {1, 1}, {1, 0x4, 0x3, 1}, {1, 0x4, 0x3, 1}},
    {8, 0, 0x2, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x2, kKept, 1}},
    {13, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {14, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {15, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {16, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {17, 0, 0x2, 0x0, {0, 11}, {0, 11}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {18, 0, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {19, 0, 0x80000005, 0x0, {1, 1}, {1, 1}, {1, 0x80000005, kKept, 1}, {1, 0x80000005, kKept, 1}},
    {24, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {25, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {28, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, kKept, kKept, 1}, {1, kKept, kKept, 1}},
    {29, 0, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {40, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {31, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {32, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {34, 1, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {34, 2, 0x7, 0x0, {1, 1}, {1, 1}, {1, 0x7, kKept, 1}, {1, 0x7, kKept, 1}},
    {35, 1, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {35, 2, 0x5, 0x0, {1, 1}, {1, 1}, {1, 0x5, kKept, 1}, {1, 0x5, kKept, 1}},
    {37, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {40, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {41, 0, 0x10001, 0x0, {1, 1}, {1, 1}, {1, 0x10001, kKept, 1}, {1, 0x10001, kKept, 1}},
    {50, 0, 0x7D0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {51, 0, 0x2000100, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {52, 0, 0x5, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {53, 0, 0x3, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {54, 0, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {55, 0, 0x3, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {60, 0, 0xC8, 0x0, {1, 1}, {1, 1}, {1, 0x64, kKept, 1}, {1, 0x64, kKept, 1}},
    {61, 0, 0xC9, 0x0, {1, 1}, {1, 1}, {1, 0x65, kKept, 1}, {1, 0x65, kKept, 1}},
    {62, 0, 0xCA, 0x0, {1, 1}, {1, 1}, {1, 0x66, kKept, 1}, {1, 0x66, kKept, 1}},
    {63, 0, 0xCB, 0x0, {1, 1}, {1, 1}, {1, 0x67, kKept, 1}, {1, 0x67, kKept, 1}},
    {64, 0, 0xCC, 0x0, {1, 1}, {1, 1}, {1, 0x68, kKept, 1}, {1, 0x68, kKept, 1}},
    {65, 0, 0x0, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {73, 0, 0xB, 0x0, {1, 0}, {1, 0}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {77, 0, 0x0, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x0, kKept, 1}},
    {85, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {86, 0, 0x14, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x16, kKept, 1}},
    {87, 0, 0x15, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x10, kKept, 1}},
    {88, 0, 0x16, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0xB, kKept, 1}},
    {90, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {92, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {95, 0, 0x0, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {97, 0, 0x1, 0x0, {0, 21}, {0, 21}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {99, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {119, 0, 0x1, 0x0, {0, 21}, {0, 21}, {0, 0x0, kKept, 21}, {0, 0x0, kKept, 21}},
    {120, 0, 0x1, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x1, kKept, 1}},
    {121, 0, 0x14, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x14, kKept, 1}},
    {122, 0, 0x15, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x15, kKept, 1}},
    {123, 0, 0x16, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x16, kKept, 1}},
    {128, 0, 0x0, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {0, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {0, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {7, 0, 0x0, 0x1, {0, 5}, {0, 5}, {1, 0x4, 0x3, 1}, {1, 0x4, 0x3, 1}},
    {7, 0, 0x1, 0xB, {0, 5}, {0, 5}, {1, 0x4, 0x3, 1}, {1, 0x4, 0x3, 1}},
    {86, 0, 0x46, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x16, kKept, 1}},
    {8, 0, 0x3, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x3, kKept, 1}},
    {8, 0, 0x4, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x4, kKept, 1}},
    {86, 0, 0x14, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x16, kKept, 1}},
    {8, 0, 0x3, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x3, kKept, 1}},
    {8, 0, 0x4, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x4, kKept, 1}},
    {8, 0, 0x1, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x1, kKept, 1}},
    {8, 0, 0x5, 0x0, {0, 21}, {0, 5}, {0, kKept, kKept, 21}, {1, 0x1, kKept, 1}},
    {13, 0, 0x0, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {13, 0, 0x5, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {14, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {15, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {3, 0, 0x800010, 0x0, {1, 1}, {1, 1}, {1, 0x800010, kKept, 1}, {1, 0x800010, kKept, 1}},
    {14, 0, 0x1, 0x0, {0, 11}, {0, 11}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {15, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {3, 0, 0x4000400, 0x0, {1, 1}, {1, 1}, {1, 0x4000400, kKept, 1}, {1, 0x4000400, kKept, 1}},
    {16, 0, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {16, 0, 0x0, 0x0, {0, 5}, {0, 5}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {16, 0, 0x6, 0x0, {0, 5}, {0, 5}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {17, 0, 0x0, 0x0, {0, 11}, {0, 11}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {37, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {17, 0, 0x5, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {17, 0, 0x3, 0x0, {1, 1}, {1, 1}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {37, 0, 0x1, 0x0, {0, 11}, {0, 11}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {37, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {18, 0, 0x6, 0x0, {0, 5}, {0, 5}, {1, 0x3, kKept, 1}, {1, 0x3, kKept, 1}},
    {18, 0, 0xB, 0x0, {1, 1}, {1, 1}, {1, 0xB, kKept, 1}, {1, 0xB, kKept, 1}},
    {24, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {25, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {28, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, kKept, kKept, 1}, {1, kKept, kKept, 1}},
    {28, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {29, 0, 0x4, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {29, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {32, 0, 0x7, 0x0, {0, 16}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {32, 0, 0x5, 0x0, {0, 5}, {0, 5}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {32, 0, 0x6, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {32, 0, 0x7, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {32, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {34, 1, 0x6, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {34, 2, 0x5, 0x0, {0, 5}, {0, 5}, {1, 0x7, kKept, 1}, {1, 0x7, kKept, 1}},
    {34, 3, 0x1, 0x0, {0, 5}, {0, 5}, {0, 0x0, kKept, 5}, {0, 0x0, kKept, 5}},
    {35, 1, 0x3, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {35, 2, 0xD, 0x0, {1, 1}, {1, 1}, {1, 0xD, kKept, 1}, {1, 0xD, kKept, 1}},
    {35, 2, 0xE, 0x0, {1, 1}, {1, 1}, {1, 0xE, kKept, 1}, {1, 0xE, kKept, 1}},
    {35, 2, 0x1D, 0x0, {1, 1}, {1, 1}, {1, 0xD, kKept, 1}, {1, 0xD, kKept, 1}},
    {35, 2, 0x1E, 0x0, {1, 1}, {1, 1}, {1, 0xE, kKept, 1}, {1, 0xE, kKept, 1}},
    {35, 2, 0xB, 0x0, {0, 5}, {0, 5}, {1, 0xE, kKept, 1}, {1, 0xE, kKept, 1}},
    {35, 3, 0x1, 0x0, {0, 5}, {0, 5}, {0, 0x0, kKept, 5}, {0, 0x0, kKept, 5}},
    {40, 0, 0x0, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {40, 0, 0x41, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {31, 0, 0x3, 0x0, {0, 5}, {0, 5}, {1, 0x2, kKept, 1}, {1, 0x2, kKept, 1}},
    {41, 0, 0x3, 0x0, {0, 5}, {0, 5}, {1, 0x10001, kKept, 1}, {1, 0x10001, kKept, 1}},
    {41, 0, 0x10102, 0x0, {1, 1}, {1, 1}, {1, 0x10102, kKept, 1}, {1, 0x10102, kKept, 1}},
    {99, 0, 0x2, 0x0, {0, 5}, {0, 5}, {1, 0x1, kKept, 1}, {1, 0x1, kKept, 1}},
    {99, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {121, 0, 0x40, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x14, kKept, 1}},
    {120, 0, 0x2, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x2, kKept, 1}},
    {19, 0, 0x7, 0x0, {1, 1}, {1, 1}, {1, 0x7, kKept, 1}, {1, 0x7, kKept, 1}},
    {2, 0, 0x3E8, 0x0, {1, 1}, {1, 1}, {1, 0x3E8, kKept, 1}, {1, 0x3E8, kKept, 1}},
    {4, 0, 0x3E8, 0x0, {1, 1}, {1, 1}, {1, 0x3E8, kKept, 1}, {1, 0x3E8, kKept, 1}},
    {6, 0, 0x3000000, 0x2, {1, 1}, {1, 1}, {1, 0x3000000, 0x4, 1}, {1, 0x3000000, 0x4, 1}},
    {6, 0, 0x5000000, 0x1, {0, 11}, {0, 11}, {1, 0x3000000, 0x4, 1}, {1, 0x3000000, 0x4, 1}},
    {6, 0, 0x6000000, 0x3, {1, 1}, {1, 1}, {1, 0x6000000, 0x0, 1}, {1, 0x6000000, 0x0, 1}},
    {6, 0, 0x7000000, 0x4, {1, 1}, {1, 1}, {1, 0x7000000, 0x4, 1}, {1, 0x7000000, 0x4, 1}},
    {6, 0, 0x1000000, 0x0, {1, 1}, {1, 1}, {1, 0x1000000, 0x0, 1}, {1, 0x1000000, 0x0, 1}},
    {6, 0, 0x8000002, 0x0, {1, 1}, {1, 1}, {1, 0x8000002, kKept, 1}, {1, 0x8000002, kKept, 1}},
    {6, 0, 0x9000000, 0x0, {0, 5}, {0, 5}, {1, 0x8000002, kKept, 1}, {1, 0x8000002, kKept, 1}},
    {6, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, 0x0, 1}, {1, 0x0, 0x0, 1}},
    {50, 0, 0x3E8, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {51, 0, 0x4000400, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {52, 0, 0x2, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {53, 0, 0x15, 0x0, {0, 5}, {0, 5}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {54, 0, 0x15, 0x0, {0, 5}, {0, 5}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {55, 0, 0x15, 0x0, {0, 5}, {0, 5}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {53, 0, 0x1, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {54, 0, 0x1, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {55, 0, 0x1, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {77, 0, 0x1, 0x0, {0, 21}, {1, 1}, {0, kKept, kKept, 21}, {1, 0x2, kKept, 1}},
    {73, 0, 0x3, 0x0, {0, 5}, {0, 5}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {85, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {90, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {92, 0, 0x0, 0x0, {1, 1}, {1, 1}, {1, 0x0, kKept, 1}, {1, 0x0, kKept, 1}},
    {119, 0, 0x0, 0x0, {0, 21}, {0, 21}, {0, 0x0, kKept, 21}, {0, 0x0, kKept, 21}},
    {128, 0, 0x5, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {95, 0, 0x1, 0x0, {1, 1}, {1, 1}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
    {200, 0, 0x0, 0x0, {0, 21}, {0, 21}, {0, kKept, kKept, 21}, {0, kKept, kKept, 21}},
};

// DEV_GetList(id, sub): result, ErrorCode, count, first entry and the sum
// of the entries, per model (a list that writes nothing leaves count and
// entries as they were).
struct ListAnswer {
    int32_t ok, err;
    uint32_t count, first;
    unsigned long long sum;
};
struct ListRow {
    uint32_t id, sub;
    ListAnswer k5, k5c;
};
const ListRow kLists[] = {
    {0, 0, {1, 1, 26, 0x3C, 1377435ull}, {1, 1, 26, 0x3C, 1377435ull}},
    {1, 0, {1, 1, 23, 0x4000400, 666900880ull}, {1, 1, 23, 0x4000400, 666900880ull}},
    {2, 0, {1, 1, 42, 0x0, 2875560ull}, {1, 1, 42, 0x0, 2875560ull}},
    {3, 0, {1, 1, 42, 0x3E8, 50554ull}, {1, 1, 42, 0x3E8, 50554ull}},
    {4, 0, {1, 1, 10, 0x0, 788529158ull}, {1, 1, 10, 0x0, 788529158ull}},
    {5, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {6, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {7, 0, {0, 5, 0, 0, 0ull}, {0, 5, 0, 0, 0ull}},
    {7, 1, {1, 1, 5, 0x1, 15ull}, {1, 1, 5, 0x1, 15ull}},
    {7, 2, {1, 1, 6, 0x6, 51ull}, {1, 1, 6, 0x6, 51ull}},
    {8, 0, {0, 5, 0, 0, 0ull}, {0, 5, 0, 0, 0ull}},
    {8, 1, {1, 1, 2, 0x1, 3ull}, {1, 1, 2, 0x1, 3ull}},
    {8, 2, {1, 1, 10, 0xD, 79ull}, {1, 1, 10, 0xD, 79ull}},
    {9, 0, {1, 1, 4, 0x1, 10ull}, {1, 1, 4, 0x1, 10ull}},
    {10, 0, {1, 1, 6, 0x1, 26ull}, {1, 1, 6, 0x1, 26ull}},
    {11, 0, {1, 1, 72, 0x3C, 2663735ull}, {1, 1, 72, 0x3C, 2663735ull}},
    {12, 0, {1, 1, 1, 0x1, 1ull}, {1, 1, 1, 0x1, 1ull}},
    {13, 0, {1, 1, 2, 0x2, 5ull}, {1, 1, 2, 0x2, 5ull}},
    {14, 0, {1, 1, 4, 0x1, 10ull}, {1, 1, 4, 0x1, 10ull}},
    {15, 0, {1, 1, 166, 0x3C, 11010115ull}, {1, 1, 166, 0x3C, 11010115ull}},
    {16, 0, {1, 1, 166, 0x41A6, 279428ull}, {1, 1, 166, 0x41A6, 279428ull}},
    {17, 0, {1, 1, 4, 0x1, 10ull}, {1, 1, 4, 0x1, 10ull}},
    {18, 0, {1, 1, 0, 0, 0ull}, {1, 1, 0, 0, 0ull}},
    {19, 0, {1, 1, 1, 0x1, 1ull}, {1, 1, 1, 0x1, 1ull}},
    {20, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {21, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {22, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {23, 0, {1, 1, 4, 0x80000064, 2147484054ull}, {1, 1, 4, 0x80000064, 2147484054ull}},
    {24, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {25, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {26, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {27, 0, {1, 1, 1024, 0x0, 523776ull}, {1, 1, 1024, 0x0, 523776ull}},
    {28, 0, {1, 1, 6, 0x0, 19ull}, {1, 1, 6, 0x0, 19ull}},
    {29, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {30, 0, {1, 1, 10, 0x1, 55ull}, {1, 1, 10, 0x1, 55ull}},
    {31, 0, {1, 1, 2, 0x0, 2ull}, {1, 1, 2, 0x0, 2ull}},
    {32, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {33, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {34, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {35, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {36, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {37, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {38, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {39, 0, {1, 1, kKept, kKept, 0ull}, {1, 1, kKept, kKept, 0ull}},
    {40, 0, {1, 1, 42, 0xF4240, 50553364ull}, {1, 1, 42, 0xF4240, 50553364ull}},
    {41, 0, {1, 1, 166, 0x100713E, 279432040ull}, {1, 1, 166, 0x100713E, 279432040ull}},
};

} // namespace

TEST_F(EveryId, CapabilityReads)
{
    for (const uint32_t model : {VCAM_K5, VCAM_K5C}) {
        open(model, 7);
        // The frame-time model (ids 50 and 51) is the library's, not the
        // camera's, and outlives DEV_Exit: start from a fresh library's.
        ASSERT_EQ(set(QUORIN_CAP_PRESET_FRAME_RATE, 0).ok, 1);
        ASSERT_EQ(set(QUORIN_CAP_PRESET_RESOLUTION, 0).ok, 1);
        for (const GetRow &r : kGets) {
            const Answer &want = model == VCAM_K5 ? r.k5 : r.k5c;
            // Id 39 writes up to 64 elements at value and 512 bytes at value2.
            uint32_t value[64], value2[128];
            std::fill(std::begin(value), std::end(value), kKept);
            std::fill(std::begin(value2), std::end(value2), kKept);
            CapResult got{0, 0, 0, 0};
            got.ok = DEV_GetDeviceCaps(dev_, 0, r.id, r.sub, value, value2, &got.err);
            got.value = value[0];
            got.value2 = value2[0];
            EXPECT_EQ(got.ok, want.ok) << "model " << model << " id " << r.id << " sub " << r.sub;
            EXPECT_EQ(got.value, want.value) << "model " << model << " id " << r.id << " sub " << r.sub;
            EXPECT_EQ(got.value2, want.value2) << "model " << model << " id " << r.id << " sub " << r.sub;
            EXPECT_EQ(got.err, want.err) << "model " << model << " id " << r.id << " sub " << r.sub;
        }
        for (const uint32_t id : kUnreadIds) {
            const CapResult got = get(id);
            EXPECT_EQ(got.ok, 0) << id;
            EXPECT_EQ(got.err, QUORIN_ERR_NOT_SUPPORTED) << id;
        }
    }
}

TEST_F(EveryId, CapabilitySettings)
{
    for (const uint32_t model : {VCAM_K5, VCAM_K5C}) {
        open(model, 7);
        for (const SetRow &r : kSets) {
            const CapResult done = set(r.id, r.value, r.value2, r.sub);
            const Outcome &outcome = model == VCAM_K5 ? r.setK5 : r.setK5c;
            EXPECT_EQ(done.ok, outcome.ok) << "model " << model << " id " << r.id;
            EXPECT_EQ(done.err, outcome.err) << "model " << model << " id " << r.id;
            const Answer &want = model == VCAM_K5 ? r.readK5 : r.readK5c;
            const CapResult got = get(r.id, r.sub, kKept);
            EXPECT_EQ(got.ok, want.ok) << "model " << model << " id " << r.id;
            EXPECT_EQ(got.value, want.value) << "model " << model << " id " << r.id;
            EXPECT_EQ(got.value2, want.value2) << "model " << model << " id " << r.id;
            EXPECT_EQ(got.err, want.err) << "model " << model << " id " << r.id;
        }
    }
}

TEST_F(EveryId, Lists)
{
    for (const uint32_t model : {VCAM_K5, VCAM_K5C}) {
        open(model, 7);
        for (const ListRow &r : kLists) {
            const ListAnswer &want = model == VCAM_K5 ? r.k5 : r.k5c;
            std::vector<uint32_t> entries(QUORIN_MAX_LIST_ENTRIES, kKept);
            uint32_t count = kKept;
            int32_t err = 0;
            EXPECT_EQ(DEV_GetList(dev_, 0, r.id, r.sub, entries.data(), &count, &err), want.ok) << r.id;
            EXPECT_EQ(err, want.err) << "model " << model << " list " << r.id << " sub " << r.sub;
            EXPECT_EQ(count, want.count) << "model " << model << " list " << r.id << " sub " << r.sub;
            if (count == kKept || count == 0) {
                EXPECT_EQ(entries[0], kKept) << "model " << model << " list " << r.id << " writes nothing";
                continue;
            }
            EXPECT_EQ(entries[0], want.first) << "model " << model << " list " << r.id << " sub " << r.sub;
            unsigned long long sum = 0;
            for (uint32_t i = 0; i < count && i < entries.size(); ++i)
                sum += entries[i];
            EXPECT_EQ(sum, want.sum) << "model " << model << " list " << r.id << " sub " << r.sub;
        }
        for (const uint32_t id : {42u, 45u, 99u}) {
            uint32_t entries[4], count = kKept;
            int32_t err = 0;
            EXPECT_EQ(DEV_GetList(dev_, 0, id, 0, entries, &count, &err), 0);
            EXPECT_EQ(err, QUORIN_ERR_NOT_SUPPORTED);
            EXPECT_EQ(count, 0u);
        }
    }
}

// With every send failing from the first (or from the second) on, each row
// either answers from what the library keeps and the sends that worked, or
// fails with an ErrorCode: a link failure is never taken for success.
TEST_F(EveryId, ALinkThatFailsIsNeverTakenForSuccess)
{
    for (const uint32_t model : {VCAM_K5, VCAM_K5C}) {
        open(model, 7);
        for (const uint32_t nth : {1u, 2u}) {
            auto arm = [&] {
                vcam_clear_faults(camera());
                vcam_trace_clear(camera());
                vcam_fail_calls(camera(), VCAM_CALL_SEND, nth, 0, VCAM_ERR_INJECTED);
            };
            auto check = [&](const char *what, uint32_t id, int32_t ok, int32_t err) {
                const uint32_t sends = vcam_call_count(camera(), VCAM_CALL_SEND);
                if (ok)
                    EXPECT_LT(sends, nth) << what << " " << id << " succeeded although a command failed";
                else
                    EXPECT_NE(err, QUORIN_SUCCESS) << what << " " << id;
                arm();
            };
            uint32_t value[64], value2[128], count = 0;
            std::vector<uint32_t> entries(QUORIN_MAX_LIST_ENTRIES);
            arm();
            for (const GetRow &r : kGets) {
                int32_t err = 0;
                check("get", r.id, DEV_GetDeviceCaps(dev_, 0, r.id, r.sub, value, value2, &err), err);
            }
            for (const SetRow &r : kSets) {
                int32_t err = 0;
                check("set", r.id, DEV_SetDeviceCaps(dev_, 0, r.id, r.sub, r.value, r.value2, &err), err);
            }
            for (const ListRow &r : kLists) {
                int32_t err = 0;
                check("list", r.id, DEV_GetList(dev_, 0, r.id, r.sub, entries.data(), &count, &err), err);
            }
        }
        vcam_clear_faults(camera());
    }
}
