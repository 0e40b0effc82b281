// Reference sensor corrections: unpacking, dark frame, column crosstalk,
// pixel gain and defective pixels.
#include "image/reference/stages.h"

#include <cstdint>

namespace quorin::image::reference {
namespace {

std::size_t tableIndex(const Area &a, std::uint32_t x, std::uint32_t y)
{
    return std::size_t{a.y0 + y} * kSensorSide + a.x0 + x;
}

// A 16-bit result taken as signed and clamped to 0..1023.
std::uint16_t clampSigned16(std::int32_t v)
{
    const auto s = static_cast<std::int16_t>(static_cast<std::uint16_t>(v));
    if (s <= 0)
        return 0;
    return s > kMaxValue ? kMaxValue : static_cast<std::uint16_t>(s);
}

bool listHolds(const std::uint32_t *list, std::uint32_t count, std::uint32_t entry)
{
    for (std::uint32_t k = 0; k < count; ++k)
        if (list[k] == entry)
            return true;
    return false;
}

std::uint32_t pack(std::uint32_t x, std::uint32_t y)
{
    return x << 16 | y;
}

} // namespace

void unpack(const std::uint8_t *raw, std::size_t pixels, std::uint16_t *work)
{
    const std::size_t groups = pixels >> 2;
    for (std::size_t i = 0; i < groups; ++i) {
        const std::uint8_t *b = raw + 5 * i;
        work[4 * i] = static_cast<std::uint16_t>((b[1] & 0x03) << 8 | b[0]);
        work[4 * i + 1] = static_cast<std::uint16_t>((b[2] & 0x0F) << 6 | b[1] >> 2);
        work[4 * i + 2] = static_cast<std::uint16_t>((b[3] & 0x3F) << 4 | b[2] >> 4);
        work[4 * i + 3] = static_cast<std::uint16_t>(b[4] << 2 | b[3] >> 6);
    }
}

void darkScalar(std::uint16_t *work, const std::uint16_t *dark, const Area &a)
{
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            std::uint16_t &v = work[std::size_t{y} * a.w + x];
            const auto d = static_cast<std::int16_t>(static_cast<std::uint16_t>(v - dark[tableIndex(a, x, y)]));
            v = d < 1 ? 0 : static_cast<std::uint16_t>(d);
        }
}

void darkVector(std::uint16_t *work, const std::uint16_t *dark, const Area &a)
{
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            std::uint16_t &v = work[std::size_t{y} * a.w + x];
            auto d = static_cast<std::int16_t>(static_cast<std::uint16_t>(v - dark[tableIndex(a, x, y)]));
            if (d < 0)
                d = 0;
            if (d > kMaxValue)
                d = kMaxValue;
            v = static_cast<std::uint16_t>(d);
        }
}

void crosstalk(std::uint16_t *work, const Area &a)
{
    const std::int32_t w = static_cast<std::int32_t>(a.w);
    const bool reachesEdge = a.x0 + a.w > 992;
    const std::int32_t lastRuleColumn = reachesEdge ? w - 33 : w - 1;
    for (std::uint32_t r = 0; r < a.h; ++r) {
        // Each row starts H values after the last, whatever the width.
        std::uint16_t *row = work + std::size_t{r} * a.h;
        for (std::int32_t c = 32; c <= lastRuleColumn; ++c) {
            const std::int32_t p = row[c];
            const std::int32_t left = row[c - 32];
            if (p > 580 && left < 160)
                row[c] = clampSigned16(p + ((p - left) >> 5));
            else if (p > 440 && left > 600)
                row[c] = clampSigned16(p + ((p - left) >> 3));
        }
        if (!reachesEdge || w < 32)
            continue;
        for (std::int32_t c = w - 32; c < w; ++c) {
            // The rule reaches 64 columns back; a value before the start of
            // the image buffer does not exist and the pixel is left alone.
            if (static_cast<std::int64_t>(r) * a.h + c - 64 < 0)
                continue;
            const std::int32_t p = row[c];
            const std::int32_t va = row[c - 64];
            const std::int32_t vb = row[c - 32];
            std::int32_t x = static_cast<std::int16_t>(static_cast<std::uint16_t>(p + ((p - va) >> 3) + ((p - vb) >> 4)));
            x = static_cast<std::int16_t>(static_cast<std::uint16_t>(x + ((x - vb) >> 4)));
            if (vb > 460 && va > 400)
                x = static_cast<std::int16_t>(static_cast<std::uint16_t>(x + ((x - vb) >> 5)));
            row[c] = clampSigned16(x);
        }
    }
}

void pixelGain(std::uint16_t *work, const std::uint16_t *table, const Area &a)
{
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            std::uint16_t &v = work[std::size_t{y} * a.w + x];
            const std::uint32_t g = table != nullptr ? table[tableIndex(a, x, y)] : 997u;
            const auto product = static_cast<std::uint16_t>((std::uint32_t{v} * g) >> 9);
            v = static_cast<std::int16_t>(product) > kMaxValue ? kMaxValue : product;
        }
}

namespace {

struct Candidate {
    std::int32_t dx, dy;
};

// Replaces each listed pixel inside the area by the mean of its usable
// candidates; picks the candidate set by the pixel's mosaic phase.
template <typename CandidatesFor>
void correctDefects(std::uint16_t *work, const std::uint32_t *list, std::uint32_t count, const Area &a,
                    CandidatesFor candidatesFor)
{
    for (std::uint32_t k = 0; k < count; ++k) {
        const std::uint32_t bigX = list[k] >> 16, bigY = list[k] & 0xFFFF;
        const std::uint32_t x = bigX - a.x0, y = bigY - a.y0;
        if (x > a.w - 1 || y > a.h - 1)
            continue;
        const Candidate *cands = nullptr;
        int n = candidatesFor(x, y, &cands);
        std::uint32_t sum = 0, used = 0;
        for (int i = 0; i < n; ++i) {
            const std::int64_t cx = std::int64_t{x} + cands[i].dx, cy = std::int64_t{y} + cands[i].dy;
            if (cx < 0 || cy < 0 || cx > std::int64_t{a.w} - 1 || cy > std::int64_t{a.h} - 1)
                continue;
            const std::uint32_t neighbour =
                pack(static_cast<std::uint32_t>(bigX + cands[i].dx), static_cast<std::uint32_t>(bigY + cands[i].dy));
            if (listHolds(list, count, neighbour))
                continue;
            sum += work[static_cast<std::size_t>(cy) * a.w + static_cast<std::size_t>(cx)];
            ++used;
        }
        if (used > 0) {
            const std::uint32_t mean = sum / used;
            work[std::size_t{y} * a.w + x] = static_cast<std::uint16_t>(mean > kMaxValue ? kMaxValue : mean);
        }
    }
}

constexpr Candidate kFour[4] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
constexpr Candidate kDiagonal[4] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
constexpr Candidate kTwoAway[4] = {{-2, 0}, {2, 0}, {0, -2}, {0, 2}};

} // namespace

void defectsMono(std::uint16_t *work, const std::uint32_t *list, std::uint32_t count, const Area &a)
{
    correctDefects(work, list, count, a, [](std::uint32_t, std::uint32_t, const Candidate **c) {
        *c = kFour;
        return 4;
    });
}

void defectsColour(std::uint16_t *work, const std::uint32_t *list, std::uint32_t count, const Area &a)
{
    correctDefects(work, list, count, a, [](std::uint32_t x, std::uint32_t y, const Candidate **c) {
        const std::uint32_t phase = (x & 1) + 10 * (y & 1);
        *c = (phase == 1 || phase == 10) ? kDiagonal : kTwoAway;
        return 4;
    });
}

} // namespace quorin::image::reference
