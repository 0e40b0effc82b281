// The passes over split rows with AVX-512 (see vector_kernels.h): the colour
// balance that splits a row, and the three interpolation passes.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

QUORIN_TARGET_AVX512 std::uint32_t balanceSplitAvx512(const std::uint16_t *in, std::size_t w, const SplitBalance &rule,
                                                     std::uint16_t *even, std::uint16_t *odd)
{
    const __m512i evenWords = _mm512_loadu_si512(kEvenWords), oddWords = _mm512_loadu_si512(kOddWords);
    const __m512i limit = _mm512_set1_epi16(1023), columns = _mm512_set1_epi16(static_cast<short>(rule.columns));
    const __m512i gains[2] = {_mm512_set1_epi16(static_cast<short>(rule.gain[0])),
                              _mm512_set1_epi16(static_cast<short>(rule.gain[1]))};
    std::uint16_t *const out[2] = {even, odd};
    __m512i bits = _mm512_setzero_si512();
    for (std::size_t k = 0; k < w; k += 64) {
        const std::size_t left = w - k;
        // Lanes past the row load as 0 and stay 0.
        const __m512i a = _mm512_maskz_loadu_epi16(firstHalf(left), in + k);
        const __m512i b = _mm512_maskz_loadu_epi16(secondHalf(left), in + k + 32);
        const __m512i halves[2] = {_mm512_permutex2var_epi16(a, evenWords, b), _mm512_permutex2var_epi16(a, oddWords, b)};
        for (unsigned h = 0; h < 2; ++h) {
            __m512i v = halves[h];
            if (rule.columns > k) {
                // The low 16 bits of value * gain >> 4.
                const __m512i p = _mm512_or_si512(_mm512_srli_epi16(_mm512_mullo_epi16(v, gains[h]), 4),
                                                  _mm512_slli_epi16(_mm512_mulhi_epu16(v, gains[h]), 12));
                const __m512i limited = rule.signedLimit ? _mm512_min_epi16(p, limit) : _mm512_min_epu16(p, limit);
                // Column k + 2 j + h of lane j, balanced below rule.columns.
                const __m512i column = _mm512_add_epi16(evenWords, _mm512_set1_epi16(static_cast<short>(k + h)));
                v = _mm512_mask_mov_epi16(v, _mm512_cmplt_epu16_mask(column, columns), limited);
            }
            _mm512_mask_storeu_epi16(out[h] + k / 2, firstHalf(h == 0 ? (left + 1) / 2 : left / 2), v);
            bits = _mm512_or_si512(bits, v);
        }
    }
    alignas(64) std::uint32_t pairs[16];
    _mm512_store_si512(pairs, bits);
    std::uint32_t all = 0;
    for (const std::uint32_t p : pairs)
        all |= p;
    return (all | all >> 16) & 0xFFFFu;
}

QUORIN_TARGET_AVX512 void greenSplitAvx512(const std::uint16_t *here, std::uint16_t *green, std::size_t w,
                                           std::uint32_t odd)
{
    const Sites sites(2, w - 3, odd);
    const SplitRow split{(w + 1) / 2};
    for (std::size_t t = 0;; t += 32) {
        // The last block ends at the last site, over sites done already.
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i c = split.at(here, x), ll = split.at(here, x - 2), rr = split.at(here, x + 2);
        const __m512i gl = split.at(here, x - 1), gr = split.at(here, x + 1);
        const __m512i gu = split.at(here - w, x), gd = split.at(here + w, x);
        const __m512i uu = split.at(here - 2 * w, x), dd = split.at(here + 2 * w, x);
        const __m512i twice = _mm512_add_epi16(c, c);
        const __m512i lh = _mm512_sub_epi16(_mm512_sub_epi16(twice, ll), rr);
        const __m512i lv = _mm512_sub_epi16(_mm512_sub_epi16(twice, uu), dd);
        const __m512i dh = _mm512_add_epi16(_mm512_abs_epi16(_mm512_sub_epi16(gl, gr)), _mm512_abs_epi16(lh));
        const __m512i dv = _mm512_add_epi16(_mm512_abs_epi16(_mm512_sub_epi16(gu, gd)), _mm512_abs_epi16(lv));
        const __m512i sideways = _mm512_add_epi16(gl, gr), upright = _mm512_add_epi16(gu, gd);
        const __m512i horizontal = _mm512_add_epi16(_mm512_srai_epi16(sideways, 1), _mm512_srai_epi16(lh, 2));
        const __m512i vertical = _mm512_add_epi16(_mm512_srai_epi16(upright, 1), _mm512_srai_epi16(lv, 2));
        const __m512i both = _mm512_add_epi16(_mm512_srai_epi16(_mm512_add_epi16(sideways, upright), 2),
                                              _mm512_srai_epi16(_mm512_add_epi16(lv, lh), 3));
        const __mmask32 strong = static_cast<__mmask32>(~(below(dh, 80) & below(dv, 80)));
        __m512i g = _mm512_mask_mov_epi16(both, strong & _mm512_cmpgt_epi16_mask(dh, dv), vertical);
        g = clamp1023(_mm512_mask_mov_epi16(g, strong & _mm512_cmplt_epi16_mask(dh, dv), horizontal));
        _mm512_storeu_si512(split.place(green, x), g);
        if (t + 32 == sites.count)
            return;
    }
}

QUORIN_TARGET_AVX512 void lineSplitAvx512(const std::uint16_t *mosaic, const std::uint16_t *plane,
                                          std::uint16_t *horizontal, std::uint16_t *vertical, std::size_t w,
                                          std::uint32_t odd)
{
    const Sites sites(2, w - 3, odd ^ 1u);
    const SplitRow split{(w + 1) / 2};
    for (std::size_t t = 0;; t += 32) {
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i gc = split.at(mosaic, x);
        const __m512i ml = split.at(mosaic, x - 1), mr = split.at(mosaic, x + 1);
        const __m512i gl = split.at(plane, x - 1), gr = split.at(plane, x + 1);
        const __m512i mu = split.at(mosaic - w, x), md = split.at(mosaic + w, x);
        const __m512i gu = split.at(plane - w, x), gd = split.at(plane + w, x);
        _mm512_storeu_si512(split.place(horizontal, x), fromLine(ml, mr, gc, gl, gr));
        _mm512_storeu_si512(split.place(vertical, x), fromLine(mu, md, gc, gu, gd));
        if (t + 32 == sites.count)
            return;
    }
}

QUORIN_TARGET_AVX512 void diagonalSplitAvx512(const std::uint16_t *m, const std::uint16_t *green,
                                              std::uint16_t *missing, std::size_t w, std::uint32_t odd)
{
    const Sites sites(1, w - 2, odd);
    const SplitRow split{(w + 1) / 2};
    const std::uint16_t *above = m - w, *under = m + w;
    const std::uint16_t *greenAbove = green - w, *greenUnder = green + w;
    for (std::size_t t = 0;; t += 32) {
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i gc = split.at(green, x);
        // Up-left, down-right, up-right, down-left.
        const __m512i c0 = split.at(above, x - 1), c1 = split.at(under, x + 1);
        const __m512i c2 = split.at(above, x + 1), c3 = split.at(under, x - 1);
        const __m512i g0 = split.at(greenAbove, x - 1), g1 = split.at(greenUnder, x + 1);
        const __m512i g2 = split.at(greenAbove, x + 1), g3 = split.at(greenUnder, x - 1);
        const __m512i twice = _mm512_add_epi16(gc, gc);
        const __m512i d1 = _mm512_sub_epi16(_mm512_sub_epi16(twice, g0), g1);
        const __m512i d2 = _mm512_sub_epi16(_mm512_sub_epi16(twice, g2), g3);
        const __m512i a1 = _mm512_abs_epi16(d1), a2 = _mm512_abs_epi16(d2);
        const __m512i firstPair = _mm512_add_epi16(c0, c1), secondPair = _mm512_add_epi16(c2, c3);
        const __m512i all = _mm512_srai_epi16(
            _mm512_add_epi16(_mm512_add_epi16(firstPair, secondPair), _mm512_add_epi16(d1, d2)), 2);
        const __m512i first = _mm512_srai_epi16(_mm512_add_epi16(firstPair, d1), 1);
        const __m512i second = _mm512_srai_epi16(_mm512_add_epi16(secondPair, d2), 1);
        const __mmask32 firstAgrees = below(a1, 200), secondAgrees = below(a2, 200);
        __m512i v = _mm512_mask_mov_epi16(second, firstAgrees & _mm512_cmplt_epi16_mask(a1, a2), first);
        v = clamp1023(_mm512_mask_mov_epi16(v, firstAgrees & secondAgrees, all));
        const auto fallback = static_cast<__mmask32>(~(firstAgrees | secondAgrees));
        if (fallback != 0) {
            // When neither diagonal pair agrees with the green: the first
            // mixed pair that does, else the closest single neighbour
            // within 100 (the first of equals), else the mean of all.
            // Every candidate is clamped alike: the chosen one once.
            const __m512i cs[4] = {c0, c1, c2, c3}, gs[4] = {g0, g1, g2, g3};
            __m512i towards[4];
            __m512i bestDistance = _mm512_set1_epi16(100), best = all;
            for (int k = 0; k < 4; ++k) {
                towards[k] = _mm512_sub_epi16(gc, gs[k]);
                const __m512i distance = _mm512_abs_epi16(towards[k]);
                const __mmask32 closer = _mm512_cmplt_epi16_mask(distance, bestDistance);
                bestDistance = _mm512_mask_mov_epi16(bestDistance, closer, distance);
                best = _mm512_mask_mov_epi16(best, closer, _mm512_add_epi16(cs[k], towards[k]));
            }
            static constexpr int kMixed[4][2] = {{1, 3}, {1, 2}, {0, 3}, {0, 2}}; // the last one first
            for (const auto &p : kMixed) {
                const __m512i d = _mm512_add_epi16(towards[p[0]], towards[p[1]]); // 2 g - g[p0] - g[p1]
                const __m512i mixed = _mm512_srai_epi16(_mm512_add_epi16(_mm512_add_epi16(cs[p[0]], cs[p[1]]), d), 1);
                best = _mm512_mask_mov_epi16(best, below(_mm512_abs_epi16(d), 200), mixed);
            }
            v = _mm512_mask_mov_epi16(v, fallback, clamp1023(best));
        }
        _mm512_storeu_si512(split.place(missing, x), v);
        if (t + 32 == sites.count)
            return;
    }
}

} // namespace quorin::image::vec
