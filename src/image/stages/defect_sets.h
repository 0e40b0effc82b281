// The defect list in the forms the pipeline reads it: a hash set, the
// entries grouped by row, and the set kept between a device's frames.
#pragma once

#include "image/frame.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quorin::image {

using std::uint32_t;

// The defect list as an open-addressing hash set, and its distinct entries
// (a repeated entry would only redo its pixel with the same neighbours).
class DefectSet {
public:
    DefectSet() = default;
    DefectSet(const uint32_t *list, uint32_t count) { build(list, count); }
    void build(const uint32_t *list, uint32_t count)
    {
        distinctCount_ = 0;
        holdsEmptyValue_ = false;
        std::fill(slots_, slots_ + kSlots, kEmpty);
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t entry = list[k];
            if (entry == kEmpty) {
                if (!holdsEmptyValue_)
                    distinct_[distinctCount_++] = entry;
                holdsEmptyValue_ = true;
                continue;
            }
            uint32_t s = slotOf(entry);
            while (slots_[s] != kEmpty && slots_[s] != entry)
                s = (s + 1) & (kSlots - 1);
            if (slots_[s] == kEmpty) {
                slots_[s] = entry;
                distinct_[distinctCount_++] = entry;
            }
        }
    }
    bool holds(uint32_t entry) const
    {
        if (entry == kEmpty)
            return holdsEmptyValue_;
        for (uint32_t s = slotOf(entry);; s = (s + 1) & (kSlots - 1)) {
            if (slots_[s] == entry)
                return true;
            if (slots_[s] == kEmpty)
                return false;
        }
    }
    const uint32_t *distinct() const { return distinct_; }
    uint32_t distinctCount() const { return distinctCount_; }

private:
    static constexpr uint32_t kSlotBits = 11;
    static constexpr uint32_t kSlots = 1u << kSlotBits; // two per entry: short probes
    static constexpr uint32_t kEmpty = 0xFFFFFFFFu;
    static uint32_t slotOf(uint32_t entry) { return (entry * 0x9E3779B1u) >> (32 - kSlotBits); }
    uint32_t slots_[kSlots];
    uint32_t distinct_[1024];
    uint32_t distinctCount_;
    bool holdsEmptyValue_;
};

// The distinct listed pixels of the area grouped by row, for passes that
// correct the defects of a row as soon as the rows it reads are ready
// (those two above and two below).
class DefectRows {
public:
    DefectRows(const DefectSet &set, const Area &a)
    {
        const uint32_t rows = std::min<uint32_t>(a.h, kSensorSide);
        std::fill(start_, start_ + rows + 2, 0);
        auto rowOf = [&](uint32_t entry) {
            const uint32_t x = (entry >> 16) - a.x0, y = (entry & 0xFFFF) - a.y0;
            return x < a.w && y < rows ? y : UINT32_MAX;
        };
        for (uint32_t k = 0; k < set.distinctCount(); ++k)
            if (const uint32_t y = rowOf(set.distinct()[k]); y != UINT32_MAX)
                ++start_[y + 2];
        for (uint32_t y = 0; y < rows; ++y)
            start_[y + 2] += start_[y + 1];
        for (uint32_t k = 0; k < set.distinctCount(); ++k)
            if (const uint32_t y = rowOf(set.distinct()[k]); y != UINT32_MAX)
                entries_[start_[y + 1]++] = set.distinct()[k];
    }
    const uint32_t *begin(uint32_t y) const { return entries_ + start_[y]; }
    const uint32_t *end(uint32_t y) const { return entries_ + start_[y + 1]; }

private:
    uint32_t start_[kSensorSide + 2];
    uint32_t entries_[1024];
};

// The set of a device's defect list, kept between its frames in storage
// the device owns, and built again only when the list differs from the one
// it was built from: comparing 4 KiB costs far less than building the set
// (about 2.5 us for 1024 entries, on one thread before the others can start),
// and a set that stays put stays in every core's cache. A value-initialised
// index has nothing built.
struct DefectIndex {
    uint32_t built; // 0 until the first build
    uint32_t count;
    uint32_t list[1024];
    DefectSet set;

    const DefectSet &setOf(const uint32_t *entries, uint32_t n)
    {
        n = std::min<uint32_t>(n, 1024);
        if (built == 0 || count != n || std::memcmp(list, entries, n * sizeof *entries) != 0) {
            std::memcpy(list, entries, n * sizeof *entries);
            count = n;
            set.build(list, n);
            built = 1;
        }
        return set;
    }
};

// Bytes a device commits for its index.
constexpr std::size_t kDefectIndexBytes = 0x5000;
static_assert(sizeof(DefectIndex) <= kDefectIndexBytes);

} // namespace quorin::image
