// The reference pixel stages: plain loops that follow the processing rules
// line by line, on the whole area at once. The fast pipeline must produce
// exactly what these produce.
#pragma once

#include "image/frame.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image::reference {

// Sensor corrections, in place on the work image.
void unpack(const std::uint8_t *raw, std::size_t pixels, std::uint16_t *work);
void darkScalar(std::uint16_t *work, const std::uint16_t *dark, const Area &a);
void darkVector(std::uint16_t *work, const std::uint16_t *dark, const Area &a);
void crosstalk(std::uint16_t *work, const Area &a);
// table null: the constant gain 997 for every pixel.
void pixelGain(std::uint16_t *work, const std::uint16_t *table, const Area &a);
void defectsMono(std::uint16_t *work, const std::uint32_t *list, std::uint32_t count, const Area &a);
void defectsColour(std::uint16_t *work, const std::uint32_t *list, std::uint32_t count, const Area &a);

// Colour.
void balanceScalar(std::uint16_t *work, const std::uint32_t gains[3], const Area &a);
void balanceVector(std::uint16_t *work, const std::uint32_t gains[3], const Area &a);
void greenSmoothing(std::uint16_t *work, std::uint16_t *copy, const Area &a);
void greenPlane(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod);
void redBlueAtGreen(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod);
void redBlueAtRedBlue(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod);
void bilinear(const std::uint16_t *work, std::uint16_t *rgb, const Area &a, std::uint32_t demosaicMethod,
              const std::uint16_t *const tables[3]);
void colourMatrix(std::uint16_t *rgb, const std::int32_t m[9], const Area &a, std::uint32_t demosaicMethod);
void lookUpColour(std::uint16_t *rgb, const std::uint16_t *const tables[3], const Area &a,
                  std::uint32_t demosaicMethod);

// Output.
void edgeMono(const std::uint16_t *work, std::uint16_t *out, const std::uint16_t *table, const Area &a,
              unsigned shift);
void edgeColour(const std::uint16_t *rgb, std::uint16_t *out, std::uint16_t *luma, const Area &a, unsigned shift);

// The whole processing of a frame already in the raw buffer, into dest.
void process(const Frame &f, bool sixteenBit, void *dest);

} // namespace quorin::image::reference
