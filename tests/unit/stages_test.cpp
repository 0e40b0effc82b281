// Worked values of the reference pixel stages. The fast pipeline is held
// bit for bit to these stages, so they must follow the processing rules.
#include "image/reference/stages.h"

#include <gtest/gtest.h>

#include <vector>

using namespace quorin::image;
namespace ref = quorin::image::reference;
using Plane = std::vector<std::uint16_t>;

namespace {

// An area of the values 100, 101, ... in row order.
Plane ramp(const Area &a)
{
    Plane p(a.pixels());
    for (std::size_t i = 0; i < p.size(); ++i)
        p[i] = static_cast<std::uint16_t>(100 + i);
    return p;
}

// A mosaic with one value per colour (red at even row and column).
Plane mosaic(const Area &a, std::uint16_t r, std::uint16_t g, std::uint16_t b)
{
    Plane p(a.pixels());
    for (std::uint32_t y = 0; y < a.h; ++y)
        for (std::uint32_t x = 0; x < a.w; ++x)
            p[y * a.w + x] = (x & 1) != (y & 1) ? g : (y & 1) ? b : r;
    return p;
}

Plane interpolate(const Plane &m, const Area &a, std::uint32_t demosaicMethod)
{
    Plane rgb(3 * a.pixels(), 0xBEEF);
    ref::greenPlane(m.data(), rgb.data(), a, demosaicMethod);
    ref::redBlueAtGreen(m.data(), rgb.data(), a, demosaicMethod);
    ref::redBlueAtRedBlue(m.data(), rgb.data(), a, demosaicMethod);
    return rgb;
}

Plane slice(const Plane &p, std::size_t from, std::size_t n) { return Plane(p.begin() + from, p.begin() + from + n); }

} // namespace

TEST(ReferenceStages, UnpackTakesFortyBitGroupsLowBitsFirstAndWholeGroupsOnly)
{
    const std::uint8_t raw[10] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x00, 0x00, 0x80};
    Plane work(10, 7);
    ref::unpack(raw, 10, work.data());
    EXPECT_EQ(work, (Plane{1023, 1023, 1023, 1023, 1, 0, 0, 512, 7, 7})) << "the last two pixels make no group";
    const std::uint64_t bits = 0x155ULL | 0x2AAULL << 10 | 0x0F0ULL << 20 | 0x30FULL << 30;
    std::uint8_t group[5];
    for (int b = 0; b < 5; ++b)
        group[b] = static_cast<std::uint8_t>(bits >> (8 * b));
    ref::unpack(group, 4, work.data());
    EXPECT_EQ(slice(work, 0, 4), (Plane{0x155, 0x2AA, 0x0F0, 0x30F}));
    Plane tiny(3, 7);
    ref::unpack(raw, 3, tiny.data());
    EXPECT_EQ(tiny, Plane(3, 7)) << "a 1 x 3 area is left as it was";
}

TEST(ReferenceStages, DarkFrameIsReadAtTheAreaOffsetAndNeverWraps)
{
    const Area a{8, 2, 16, 4};
    Plane dark(1024 * 1024, 0);
    for (std::uint32_t y = 0; y < 2; ++y)
        for (std::uint32_t x = 0; x < 8; ++x)
            dark[(4 + y) * 1024 + 16 + x] = static_cast<std::uint16_t>(x + 10 * y);
    dark[4 * 1024 + 16] = 900;
    for (auto kernel : {ref::darkScalar, ref::darkVector}) {
        Plane work(16, 500);
        work[1] = 3, work[2] = 2;
        kernel(work.data(), dark.data(), a);
        EXPECT_EQ(slice(work, 0, 3), (Plane{0, 2, 0})) << "500 - 900 and 2 - 2 give 0";
        EXPECT_EQ(work[7], 493);
        EXPECT_EQ(work[9], 489) << "the second row reads the next sensor row";
    }
}

TEST(ReferenceStages, CrosstalkRulesChainAndStepRowsByTheHeight)
{
    const Area a{96, 96, 0, 0}; // away from the sensor's last 32 columns
    Plane w(a.pixels(), 300);
    const std::uint16_t left[6] = {100, 700, 0, 159, 160, 601}, p[6] = {700, 500, 1020, 581, 581, 441};
    for (int r = 0; r < 6; ++r)
        w[r * 96] = left[r], w[r * 96 + 32] = p[r];
    w[64] = 500; // against the corrected 718 of its row
    ref::crosstalk(w.data(), a);
    const std::uint16_t want[6] = {718, 475, 1023, 594, 581, 421};
    for (int r = 0; r < 6; ++r)
        EXPECT_EQ(w[r * 96 + 32], want[r]) << "row " << r;
    EXPECT_EQ(w[64], 472) << "(500 - 718) >> 3 is -28";

    const Area wide{64, 32, 0, 0}; // each row starts H values after the last
    Plane v(wide.pixels(), 300);
    v[32] = 100, v[64] = 700;
    ref::crosstalk(v.data(), wide);
    EXPECT_EQ(v[64], 718);
}

TEST(ReferenceStages, CrosstalkEdgeRuleRunsOnlyWhenTheAreaReachesTheLastColumns)
{
    // Column 70 of row 5, with A at column 6 and B at column 38.
    auto run = [](std::uint32_t x0, std::uint16_t p, std::uint16_t va, std::uint16_t vb) {
        const Area a{96, 96, x0, 0};
        Plane w(a.pixels(), 300);
        w[5 * 96 + 6] = va, w[5 * 96 + 38] = vb, w[5 * 96 + 70] = p;
        ref::crosstalk(w.data(), a);
        return w[5 * 96 + 70];
    };
    EXPECT_EQ(run(928, 500, 300, 400), 539);
    EXPECT_EQ(run(897, 500, 300, 400), 539) << "X0 + W = 993";
    EXPECT_EQ(run(896, 500, 300, 400), 500) << "X0 + W = 992: rules A and B, neither fires";
    EXPECT_EQ(run(928, 600, 500, 480), 631) << "third step when B > 460 and A > 400";
    EXPECT_EQ(run(928, 600, 300, 480), 654) << "no third step when A <= 400";
    EXPECT_EQ(run(928, 100, 900, 900), 0);
}

TEST(ReferenceStages, PixelGainHasNineFractionBitsAndTheSignedClamp)
{
    const Area a{4, 1, 10, 20};
    Plane work{600, 300, 1023, 0};
    ref::pixelGain(work.data(), nullptr, a);
    EXPECT_EQ(work, (Plane{1023, 584, 1023, 0})) << "the constant 997";
    Plane table(1024 * 1024, 512);
    work = {0, 1, 511, 1023};
    ref::pixelGain(work.data(), table.data(), a);
    EXPECT_EQ(work, (Plane{0, 1, 511, 1023}));
    table[20 * 1024 + 11] = 1024, table[20 * 1024 + 12] = 65535;
    work = {100, 100, 1023, 100};
    ref::pixelGain(work.data(), table.data(), a);
    EXPECT_EQ(work, (Plane{100, 200, 65406, 100})) << "a truncated product with the top bit set is kept";
}

TEST(ReferenceStages, DefectsTakeTheMeanOfUsableNeighbours)
{
    const Area a{8, 8, 100, 200};
    Plane work = ramp(a);
    const std::uint32_t list[] = {100u << 16 | 200,                   // corner: right and lower
                                  103u << 16 | 203, 102u << 16 | 203, // a pair excludes each other
                                  105u << 16 | 205,                   // all four neighbours listed
                                  104u << 16 | 205, 106u << 16 | 205, 105u << 16 | 204, 105u << 16 | 206,
                                  99u << 16 | 203,  108u << 16 | 203, 101u << 16 | 208}; // outside
    ref::defectsMono(work.data(), list, 11, a);
    Plane want = ramp(a); // (5, 5) keeps its value: all four neighbours are listed
    want[0] = (101 + 108) / 2;
    want[3 * 8 + 3] = (128 + 119 + 135) / 3;
    want[3 * 8 + 2] = (125 + 118 + 134) / 3;
    want[5 * 8 + 4] = (143 + 136 + 152) / 3, want[5 * 8 + 6] = (147 + 138 + 154) / 3;
    want[4 * 8 + 5] = (136 + 138 + 129) / 3, want[6 * 8 + 5] = (152 + 154 + 161) / 3;
    EXPECT_EQ(work, want) << "entries outside the area change nothing";

    // Mosaic: phases count from the area, here at an odd offset.
    const Area c{8, 8, 101, 201};
    work = ramp(c);
    const std::uint32_t mosaicList[] = {104u << 16 | 203, 105u << 16 | 205, 102u << 16 | 202, 107u << 16 | 207};
    ref::defectsColour(work.data(), mosaicList, 4, c);
    EXPECT_EQ(work[2 * 8 + 3], (110 + 126 + 112 + 128) / 4) << "green: the diagonals";
    EXPECT_EQ(work[4 * 8 + 4], (134 + 138 + 120 + 152) / 4) << "red: two steps away";
    EXPECT_EQ(work[1 * 8 + 1], (111 + 125) / 2) << "blue in the corner";
    EXPECT_EQ(work[6 * 8 + 6], (152 + 138) / 2) << "x >= W - 2 and y >= H - 2 exclude";
}

TEST(ReferenceStages, ColourBalanceMultipliesEachSiteByItsGain)
{
    const std::uint32_t unity[3] = {16, 16, 16}, gains[3] = {32, 16, 48};
    const Area a{5, 3, 0, 0}, v{8, 3, 0, 0};
    Plane work = mosaic(a, 600, 300, 300), vec = mosaic(v, 600, 300, 300);
    ref::balanceScalar(work.data(), unity, a);
    ref::balanceVector(vec.data(), unity, v);
    EXPECT_EQ(work, mosaic(a, 600, 300, 300));
    EXPECT_EQ(vec, mosaic(v, 600, 300, 300));
    ref::balanceScalar(work.data(), gains, a);
    EXPECT_EQ(slice(work, 0, 10), (Plane{1023, 300, 1023, 300, 600, 300, 900, 300, 900, 300}))
        << "doubling clamps; the odd last column is left";
    ref::balanceVector(vec.data(), gains, v);
    EXPECT_EQ(vec[0], 1023);
    EXPECT_EQ(vec[9], 900);
    EXPECT_EQ(vec[16], 600) << "odd last row left";
}

TEST(ReferenceStages, GreenSmoothingWeighsCloseDiagonalsFromTheCopy)
{
    const Area a{6, 6, 0, 0};
    Plane copy(a.pixels());
    auto smooth = [&](std::uint16_t n0, std::uint16_t n1, std::uint16_t n2, std::uint16_t n3) {
        Plane w(a.pixels(), 0); // green (2, 1) and its diagonals
        w[8] = 500, w[1] = n0, w[3] = n1, w[13] = n2, w[15] = n3;
        ref::greenSmoothing(w.data(), copy.data(), a);
        return w;
    };
    EXPECT_EQ(smooth(510, 540, 600, 480)[8], 502);
    const Plane w = smooth(524, 525, 549, 550); // twice, once, once, not at all
    EXPECT_EQ(w[8], (2000 + 1048 + 525 + 549) / 8);
    EXPECT_EQ(w[13], (4 * 549 + 500) / 5) << "(1, 2) reads the unsmoothed 500";
    EXPECT_EQ(w[1], 524) << "top row left";
    EXPECT_EQ(copy[8], 500);
}

TEST(ReferenceStages, InterpolationKeepsFlatFieldsAndColourOrder)
{
    Plane lut(1024);
    for (int i = 0; i < 1024; ++i)
        lut[i] = static_cast<std::uint16_t>(i);
    const std::uint16_t *identity[3] = {lut.data(), lut.data(), lut.data()};
    for (const Area a : {Area{16, 12, 0, 0}, Area{9, 7, 0, 0}}) {
        Plane rgb(3 * a.pixels());
        const Plane grey = mosaic(a, 600, 600, 600);
        EXPECT_EQ(interpolate(grey, a, 1), Plane(3 * a.pixels(), 600));
        ref::bilinear(grey.data(), rgb.data(), a, 0, identity);
        EXPECT_EQ(rgb, Plane(3 * a.pixels(), 600));
        const Plane colour = mosaic(a, 800, 500, 200);
        for (std::uint32_t dm : {0u, 1u, 2u}) {
            const Plane want = dm == 1 ? Plane{200, 500, 800} : Plane{800, 500, 200};
            const Plane got = interpolate(colour, a, dm);
            ref::bilinear(colour.data(), rgb.data(), a, dm, identity);
            for (std::size_t i = 0; i < a.pixels(); ++i) {
                ASSERT_EQ(slice(got, 3 * i, 3), want) << "pixel " << i << " demosaicMethod " << dm;
                ASSERT_EQ(slice(rgb, 3 * i, 3), want) << "bilinear, pixel " << i;
            }
        }
    }
    // A vertical edge: green from the vertical neighbours, every channel sharp.
    const Area a{16, 12, 0, 0};
    Plane m(a.pixels());
    for (std::size_t i = 0; i < m.size(); ++i)
        m[i] = i % 16 < 8 ? 100 : 900;
    Plane rgb = interpolate(m, a, 0);
    for (std::uint32_t y = 2; y + 2 < a.h; ++y)
        for (std::uint32_t x = 2; x + 2 < a.w; ++x)
            ASSERT_EQ(slice(rgb, 3 * (y * 16 + x), 3), Plane(3, x < 8 ? 100 : 900)) << x << "," << y;
    // Overshoot clamps; the bottom row's odd pixels take red from the pixel above.
    const Area odd{9, 7, 0, 0};
    m = mosaic(odd, 200, 900, 300);
    m[2 * 9 + 4] = 1023;
    for (std::uint32_t x = 0; x < 9; x += 2)
        m[6 * 9 + x] = 800;
    rgb = interpolate(m, odd, 0);
    EXPECT_EQ(rgb[3 * (2 * 9 + 4) + 1], 1023);
    EXPECT_EQ(rgb[3 * (6 * 9 + 1)], 500) << "not the 800 of its left and right neighbours";
}

TEST(ReferenceStages, ColourMatrixAndLookUpFollowTheChannelLayout)
{
    auto matrix = [](std::vector<std::int32_t> m, Plane px, std::uint32_t dm) {
        ref::colourMatrix(px.data(), m.data(), Area{1, 1, 0, 0}, dm);
        return px;
    };
    EXPECT_EQ(matrix({256, 0, 0, 0, 256, 0, 0, 0, 256}, {17, 600, 1023}, 0), (Plane{17, 600, 1023}));
    EXPECT_EQ(matrix({0, 256, 0, 256, 0, 0, 0, 0, 256}, {100, 200, 300}, 0), (Plane{200, 100, 300}))
        << "all three read before any is written";
    EXPECT_EQ(matrix({0, 256, 0, 0, 256, 0, 0, 0, 256}, {100, 200, 300}, 1), (Plane{100, 200, 200}))
        << "red is the third value when demosaicMethod is 1";
    EXPECT_EQ(matrix({256, 128, 0, 0, 256, 0, -256, 0, 0}, {1023, 1023, 1023}, 0), (Plane{1023, 1023, 0}));

    Plane t[3] = {Plane(1024), Plane(1024), Plane(1024)};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 1024; ++i)
            t[c][i] = static_cast<std::uint16_t>(i + c + 1);
    const std::uint16_t *tables[3] = {t[0].data(), t[1].data(), t[2].data()};
    Plane px{10, 20, 30, 2000, 5, 6};
    ref::lookUpColour(px.data(), tables, Area{2, 1, 0, 0}, 1);
    EXPECT_EQ(px, (Plane{13, 22, 31, 1026, 7, 7})) << "blue, green, red; past the table reads its last entry";
    px = {10, 20, 30};
    ref::lookUpColour(px.data(), tables, Area{1, 1, 0, 0}, 0);
    EXPECT_EQ(px, (Plane{11, 22, 33}));
}

TEST(ReferenceStages, ReductionSaturatesAndEdgeEnhancementSharpensInnerPixelsOnly)
{
    EXPECT_EQ(reduce8(300, 0), 255);
    EXPECT_EQ(reduce8(1023, 2), 255);
    EXPECT_EQ(reduce8(1019, 2), 254);
    EXPECT_EQ(reduce8(512, 1), 255);

    Plane lut(1024), out(48), luma(16);
    for (int i = 0; i < 1024; ++i)
        lut[i] = static_cast<std::uint16_t>(i / 2);
    const Area two{3, 2, 0, 0}, three{3, 3, 0, 0}, four{4, 4, 0, 0};
    ref::edgeMono(Plane{100, 900, 100, 900, 100, 900}.data(), out.data(), lut.data(), two, 0);
    EXPECT_EQ(slice(out, 0, 6), (Plane{50, 450, 50, 450, 50, 450})) << "height 2: look-up only";
    ref::edgeMono(Plane(16, 500).data(), out.data(), lut.data(), four, 0);
    EXPECT_EQ(slice(out, 0, 16), Plane(16, 250)) << "a flat image: look-up only";
    const struct {
        unsigned shift;
        std::uint16_t centre, left, want;
    } cases[] = {{2, 500, 400, 300}, {1, 500, 400, 350}, {0, 500, 400, 450},
                 {0, 100, 400, 0},   {0, 1020, 400, 1023}, {1, 398, 402, 196}}; // -5 >> 1 is -3
    for (const auto &c : cases) {
        Plane s(9, 400); // looked up: 200
        s[4] = c.centre, s[3] = c.left;
        ref::edgeMono(s.data(), out.data(), lut.data(), three, c.shift);
        EXPECT_EQ(out[4], c.want) << "shift " << c.shift << ", centre " << c.centre;
        EXPECT_EQ(out[3], c.left / 2) << "first pixel of the row: look-up only";
    }

    // Colour: luminance weights 28, 151, 77 by position in the triple.
    Plane rgb(27, 0);
    rgb[14] = 256; // Y = 77 at the centre
    ref::edgeColour(rgb.data(), out.data(), luma.data(), three, 2);
    EXPECT_EQ(slice(out, 9, 6), (Plane{0, 0, 0, 77, 77, 333}));
    const Plane twoRows{5, 600, 7, 800, 9, 1000, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    ref::edgeColour(twoRows.data(), out.data(), luma.data(), two, 0);
    EXPECT_EQ(slice(out, 0, 18), twoRows);
    ref::edgeColour(Plane(48, 321).data(), out.data(), luma.data(), four, 0);
    EXPECT_EQ(out, Plane(48, 321));
}
