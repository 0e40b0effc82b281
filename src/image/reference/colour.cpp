// Reference colour stages: balance, green smoothing, the three
// interpolation passes, the bilinear modes, the colour matrix and the
// colour look-up pass. Mosaic: red at even row and even column, blue at odd
// row and odd column, green elsewhere (area coordinates).
#include "image/reference/stages.h"

#include <cstdlib>
#include <cstring>

namespace quorin::image::reference {
namespace {

enum Colour : unsigned { kRed = 0, kGreen = 1, kBlue = 2 };

Colour siteColour(std::uint32_t x, std::uint32_t y)
{
    if ((x & 1) != (y & 1))
        return kGreen;
    return (y & 1) ? kBlue : kRed;
}

std::int32_t clamp10(std::int32_t v)
{
    return v < 0 ? 0 : v > kMaxValue ? kMaxValue : v;
}

// Reads and writes of one image plane with bounds of the area.
struct Mosaic {
    const std::uint16_t *p;
    const Area &a;
    std::int32_t at(std::int64_t x, std::int64_t y) const { return p[std::size_t(y) * a.w + std::size_t(x)]; }
    bool inside(std::int64_t x, std::int64_t y) const
    {
        return x >= 0 && y >= 0 && x < std::int64_t{a.w} && y < std::int64_t{a.h};
    }
};

struct Rgb {
    std::uint16_t *p;
    const Area &a;
    std::uint32_t layout;
    std::uint16_t &at(std::int64_t x, std::int64_t y, unsigned colour) const
    {
        return p[(std::size_t(y) * a.w + std::size_t(x)) * 3 + channelSlot(layout, colour)];
    }
};

// Inner rows of the interpolation passes: 2 .. H-3, in pairs from an even
// row; a pair's second row is left to the border when it passes H-3.
bool innerRow(std::uint32_t y, const Area &a)
{
    return y >= 2 && y + 3 <= a.h;
}

bool innerColumn(std::uint32_t x, const Area &a)
{
    return x >= 2 && x + 3 <= a.w;
}

} // namespace

void balanceScalar(std::uint16_t *work, const std::uint32_t gains[3], const Area &a)
{
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t pair = 0; pair < a.w >> 1; ++pair)
            for (std::uint32_t k = 0; k < 2; ++k) {
                const std::uint32_t x = 2 * pair + k;
                std::uint16_t &v = work[std::size_t{y} * a.w + x];
                const auto product = static_cast<std::uint16_t>((std::uint32_t{v} * gains[siteColour(x, y)]) >> 4);
                v = product > kMaxValue ? kMaxValue : product;
            }
}

void balanceVector(std::uint16_t *work, const std::uint32_t gains[3], const Area &a)
{
    for (std::uint32_t y = 0; y < (a.h >> 1) * 2; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            std::uint16_t &v = work[std::size_t{y} * a.w + x];
            const auto product = static_cast<std::int16_t>(
                static_cast<std::uint16_t>((std::uint32_t{v} * static_cast<std::uint16_t>(gains[siteColour(x, y)])) >> 4));
            v = static_cast<std::uint16_t>(product > kMaxValue ? kMaxValue : product);
        }
}

void greenSmoothing(std::uint16_t *work, std::uint16_t *copy, const Area &a)
{
    std::memcpy(copy, work, a.pixels() * sizeof(std::uint16_t));
    auto smooth = [&](std::uint32_t x, std::uint32_t y) {
        const Mosaic m{copy, a};
        const std::int32_t c = m.at(x, y);
        std::int32_t sum = 4 * c, weight = 4;
        const std::int32_t n[4] = {m.at(x - 1, y - 1), m.at(x + 1, y - 1), m.at(x - 1, y + 1), m.at(x + 1, y + 1)};
        for (std::int32_t v : n) {
            const std::int32_t d = std::abs(c - v);
            if (d < 25) {
                sum += 2 * v;
                weight += 2;
            } else if (d < 50) {
                sum += v;
                weight += 1;
            }
        }
        work[std::size_t{y} * a.w + x] = static_cast<std::uint16_t>(sum / weight);
    };
    for (std::uint32_t y = 1; y + 2 <= a.h; y += 2) {
        for (std::uint32_t x = 2; x + 2 <= a.w; x += 2)
            smooth(x, y);
        if (y + 3 <= a.h)
            for (std::uint32_t x = 1; x + 3 <= a.w; x += 2)
                smooth(x, y + 1);
    }
}

void greenPlane(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod)
{
    const Mosaic m{work, a};
    const Rgb out{rgb, a, demosaicMethod};
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            const Colour site = siteColour(x, y);
            const std::int32_t c = m.at(x, y);
            if (site == kGreen) {
                out.at(x, y, kGreen) = static_cast<std::uint16_t>(c);
                continue;
            }
            out.at(x, y, site) = static_cast<std::uint16_t>(c); // the site's own colour
            std::int32_t g;
            if (innerRow(y, a) && innerColumn(x, a)) {
                const std::int32_t gl = m.at(x - 1, y), gr = m.at(x + 1, y), gu = m.at(x, y - 1), gd = m.at(x, y + 1);
                const std::int32_t lh = 2 * c - m.at(x - 2, y) - m.at(x + 2, y);
                const std::int32_t lv = 2 * c - m.at(x, y - 2) - m.at(x, y + 2);
                const std::int32_t dh = std::abs(gl - gr) + std::abs(lh);
                const std::int32_t dv = std::abs(gu - gd) + std::abs(lv);
                if ((dh >= 80 || dv >= 80) && dh < dv)
                    g = ((gl + gr) >> 1) + (lh >> 2);
                else if ((dh >= 80 || dv >= 80) && dh > dv)
                    g = ((gu + gd) >> 1) + (lv >> 2);
                else
                    g = ((gl + gr + gu + gd) >> 2) + ((lv + lh) >> 3);
                g = clamp10(g);
            } else {
                std::int32_t sum = 0;
                int n = 0;
                const std::int64_t nx[4] = {x - 1LL, x + 1LL, x, x}, ny[4] = {y, y, y - 1LL, y + 1LL};
                for (int k = 0; k < 4; ++k)
                    if (m.inside(nx[k], ny[k])) {
                        sum += m.at(nx[k], ny[k]);
                        ++n;
                    }
                g = n == 0 ? c : borderMean(sum, n);
            }
            out.at(x, y, kGreen) = static_cast<std::uint16_t>(g);
        }
}

namespace {

// A colour from two same-colour neighbours a and b on a line through a
// green site, guided by the green plane.
std::int32_t fromLine(std::int32_t ca, std::int32_t cb, std::int32_t g, std::int32_t ga, std::int32_t gb)
{
    const std::int32_t lap = 2 * g - ga - gb;
    std::int32_t c;
    if (std::abs(lap) < 200) {
        c = (ca + cb + lap) >> 1;
    } else {
        const std::int32_t da = std::abs(g - ga), db = std::abs(g - gb);
        if (da < 100 && db < 100)
            c = (ca + cb + (g - ga) + (g - gb)) >> 1;
        else if (da >= db)
            c = cb + (g - gb);
        else
            c = ca + (g - ga);
    }
    return clamp10(c);
}

} // namespace

void redBlueAtGreen(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod)
{
    const Mosaic m{work, a};
    const Rgb out{rgb, a, demosaicMethod};
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            if (siteColour(x, y) != kGreen)
                continue;
            // Even rows hold red left and right, blue above and below; odd rows the reverse.
            const Colour horizontal = (y & 1) ? kBlue : kRed;
            const Colour vertical = (y & 1) ? kRed : kBlue;
            const std::int64_t lines[2][4] = {{x - 1LL, y, x + 1LL, y}, {x, y - 1LL, x, y + 1LL}};
            const Colour wanted[2] = {horizontal, vertical};
            for (int l = 0; l < 2; ++l) {
                const std::int64_t ax = lines[l][0], ay = lines[l][1], bx = lines[l][2], by = lines[l][3];
                std::int32_t c;
                if (innerRow(y, a) && innerColumn(x, a)) {
                    c = fromLine(m.at(ax, ay), m.at(bx, by), m.at(x, y), out.at(ax, ay, kGreen), out.at(bx, by, kGreen));
                } else {
                    const bool hasA = m.inside(ax, ay), hasB = m.inside(bx, by);
                    c = hasA && hasB ? (m.at(ax, ay) + m.at(bx, by)) >> 1
                        : hasA       ? m.at(ax, ay)
                        : hasB       ? m.at(bx, by)
                                     : 0;
                }
                out.at(x, y, wanted[l]) = static_cast<std::uint16_t>(c);
            }
        }
}

namespace {

// The colour missing at a red or blue site, from its four diagonals.
std::int32_t fromDiagonals(const Mosaic &m, const Rgb &out, std::int64_t x, std::int64_t y)
{
    const std::int32_t g = out.at(x, y, kGreen);
    // Pairs across the site: (a1, b1) top-left and bottom-right, (a2, b2)
    // top-right and bottom-left.
    const std::int64_t px[4] = {x - 1, x + 1, x + 1, x - 1}, py[4] = {y - 1, y + 1, y - 1, y + 1};
    std::int32_t c[4], gi[4];
    for (int k = 0; k < 4; ++k) {
        c[k] = m.at(px[k], py[k]);
        gi[k] = out.at(px[k], py[k], kGreen);
    }
    const std::int32_t d1 = 2 * g - gi[0] - gi[1], d2 = 2 * g - gi[2] - gi[3];
    const std::int32_t all = (c[0] + c[1] + c[2] + c[3] + d1 + d2) >> 2;
    if (std::abs(d1) < 200 && std::abs(d2) < 200)
        return clamp10(all);
    if (std::abs(d1) < std::abs(d2) && std::abs(d1) < 200)
        return clamp10((c[0] + c[1] + d1) >> 1);
    if (std::abs(d1) >= std::abs(d2) && std::abs(d2) < 200)
        return clamp10((c[2] + c[3] + d2) >> 1);
    // Mixed pairs of neighbours, in a fixed order, against the same 200.
    constexpr int kMixed[4][2] = {{0, 2}, {0, 3}, {1, 2}, {1, 3}};
    for (const auto &pair : kMixed) {
        const std::int32_t d = 2 * g - gi[pair[0]] - gi[pair[1]];
        if (std::abs(d) < 200)
            return clamp10((c[pair[0]] + c[pair[1]] + d) >> 1);
    }
    // Then the single neighbour whose green is closest, if within 100
    // (the first in a1, b1, a2, b2 order among equals).
    int best = -1;
    for (int k = 0; k < 4; ++k)
        if (std::abs(g - gi[k]) < 100 && (best < 0 || std::abs(g - gi[k]) < std::abs(g - gi[best])))
            best = k;
    if (best >= 0)
        return clamp10(c[best] + (g - gi[best]));
    return clamp10(all);
}

} // namespace

void redBlueAtRedBlue(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod)
{
    const Mosaic m{work, a};
    const Rgb out{rgb, a, demosaicMethod};
    const Colour other[3] = {kBlue, kGreen, kRed};
    // Sites without all four diagonals: the mean of those that exist.
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            const Colour site = siteColour(x, y);
            if (site == kGreen || (y >= 1 && y + 2 <= a.h && x >= 1 && x + 2 <= a.w))
                continue;
            std::int32_t sum = 0;
            int n = 0;
            for (int dy = -1; dy <= 1; dy += 2)
                for (int dx = -1; dx <= 1; dx += 2)
                    if (m.inside(std::int64_t{x} + dx, std::int64_t{y} + dy)) {
                        sum += m.at(std::int64_t{x} + dx, std::int64_t{y} + dy);
                        ++n;
                    }
            out.at(x, y, other[site]) = static_cast<std::uint16_t>(n == 0 ? 0 : borderMean(sum, n));
        }
    // The top row's red sites take blue from the pixel below.
    if (a.h > 1)
        for (std::uint32_t x = 0; x < a.w; x += 2)
            out.at(x, 0, kBlue) = out.at(x, 1, kBlue);
    for (std::uint32_t y = 1; y + 2 <= a.h; ++y)
        for (std::uint32_t x = 1; x + 2 <= a.w; ++x) {
            const Colour site = siteColour(x, y);
            if (site != kGreen)
                out.at(x, y, other[site]) = static_cast<std::uint16_t>(fromDiagonals(m, out, x, y));
        }
    // The bottom row's odd pixels take red from the pixel above.
    if (a.h > 1)
        for (std::uint32_t x = 1; x < a.w; x += 2)
            out.at(x, a.h - 1, kRed) = out.at(x, a.h - 2, kRed);
}

void bilinear(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod,
              const std::uint16_t *const tables[3])
{
    const Mosaic m{work, a};
    const Rgb out{rgb, a, demosaicMethod};
    auto meanOf = [&](const std::int64_t (*offsets)[2], int count, std::int64_t x, std::int64_t y) {
        std::int32_t sum = 0;
        int n = 0;
        for (int k = 0; k < count; ++k)
            if (m.inside(x + offsets[k][0], y + offsets[k][1])) {
                sum += m.at(x + offsets[k][0], y + offsets[k][1]);
                ++n;
            }
        return borderMean(sum, n);
    };
    constexpr std::int64_t kHorizontal[2][2] = {{-1, 0}, {1, 0}};
    constexpr std::int64_t kVertical[2][2] = {{0, -1}, {0, 1}};
    constexpr std::int64_t kCross[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    constexpr std::int64_t kDiagonals[4][2] = {{-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x) {
            std::int32_t v[3];
            const Colour site = siteColour(x, y);
            v[site] = m.at(x, y);
            if (site == kGreen) {
                const Colour horizontal = (y & 1) ? kBlue : kRed;
                const Colour vertical = (y & 1) ? kRed : kBlue;
                v[horizontal] = meanOf(kHorizontal, 2, x, y);
                v[vertical] = meanOf(kVertical, 2, x, y);
            } else {
                v[kGreen] = meanOf(kCross, 4, x, y);
                v[site == kRed ? kBlue : kRed] = meanOf(kDiagonals, 4, x, y);
            }
            for (unsigned c = 0; c < 3; ++c)
                out.at(x, y, c) = tables[c][lutIndex(static_cast<std::uint32_t>(v[c]))];
        }
}

void colourMatrix(std::uint16_t *rgb, const std::int32_t m[9], const Area &a, std::uint32_t demosaicMethod)
{
    const unsigned slot[3] = {channelSlot(demosaicMethod, kRed), channelSlot(demosaicMethod, kGreen),
                              channelSlot(demosaicMethod, kBlue)};
    for (std::size_t i = 0; i < a.pixels(); ++i) {
        std::uint16_t *px = rgb + 3 * i;
        const std::uint32_t in[3] = {px[slot[0]], px[slot[1]], px[slot[2]]};
        for (unsigned row = 0; row < 3; ++row) {
            // Signed 32-bit sums, wrapping as the processor's arithmetic does.
            std::uint32_t sum = 0;
            for (unsigned col = 0; col < 3; ++col)
                sum += static_cast<std::uint32_t>(m[row * 3 + col]) * in[col];
            const auto s = static_cast<std::int32_t>(sum);
            const std::int32_t shifted = s >> 8;
            px[slot[row]] = static_cast<std::uint16_t>(s <= 0 ? 0 : shifted >= 1024 ? kMaxValue : shifted);
        }
    }
}

void lookUpColour(std::uint16_t *rgb, const std::uint16_t *const tables[3], const Area &a,
                  std::uint32_t demosaicMethod)
{
    for (std::size_t i = 0; i < a.pixels(); ++i)
        for (unsigned slot = 0; slot < 3; ++slot) {
            const unsigned colour = channelSlot(demosaicMethod, slot); // the mapping is its own inverse
            rgb[3 * i + slot] = tables[colour][lutIndex(rgb[3 * i + slot])];
        }
}

} // namespace quorin::image::reference
