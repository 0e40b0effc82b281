#include "image/stages/defect_correction.h"

#include "image/schedule/team.h"

namespace quorin::image {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

const DefectSet &defectSet(const Frame &f, std::optional<DefectSet> &local)
{
    if (f.defectIndex != nullptr)
        return f.defectIndex->setOf(f.defects, f.defectCount);
    return local.emplace(f.defects, std::min<uint32_t>(f.defectCount, 1024));
}

void correctDefects(const Frame &f)
{
    if (!f.defectCorrect || f.defectCount == 0)
        return;
    std::optional<DefectSet> local;
    const DefectSet &set = defectSet(f, local);
    const uint32_t *entries = set.distinct();
    team::parallelFor(set.distinctCount(), 256, [&](uint32_t begin, uint32_t end) {
        for (uint32_t k = begin; k < end; ++k)
            correctDefect(f, set, entries[k], [&f](uint32_t y) { return f.work + size_t{y} * f.area.w; });
    });
}

} // namespace quorin::image
