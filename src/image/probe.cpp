// The one-pixel probe. Triples are read as the transfer left them; the
// planes of colour modes 1 and 2 (interpolated from the mosaic the
// transfer left, the first time a frame is probed) are finished for the
// one pixel with the same colour matrix and look-up stages a transfer
// runs, so that the probe answers alike whichever depth the host asked
// for.
#include "image/probe.h"

#include "device/device_table.h"
#include "image/pipeline.h"
#include "image/reference/stages.h"

namespace quorin::image {

bool lastImagePixel(std::uint32_t deviceNo, std::uint32_t index, std::uint32_t rgb[3])
{
    LastImage &last = device(deviceNo).lastImage;
    const DeviceBuffers &b = g_state.buffers;
    if (last.layout == ImageLayout::None)
        return false;
    if (last.layout == ImageLayout::Mosaic || last.layout == ImageLayout::SplitMosaic) {
        // The planes once, for this and every later probe of the frame.
        last.layout = planesFromMosaic(last.layout, {last.width, last.pixels / last.width, 0, 0}, b.rgbImage[deviceNo],
                                       b.previousFrame[deviceNo]);
    }
    if (last.layout == ImageLayout::Grey) {
        rgb[0] = rgb[1] = rgb[2] = b.workImage[deviceNo][index];
        return true;
    }
    std::uint16_t triple[3];
    const unsigned blue = last.blueFirst ? 0 : 2, red = 2 - blue;
    if (last.layout == ImageLayout::Triples) {
        for (unsigned c = 0; c < 3; ++c)
            triple[c] = b.rgbImage[deviceNo][std::size_t{3} * index + c];
    } else {
        std::size_t at = index;
        const std::uint16_t *planes[3] = {b.rgbImage[deviceNo], b.previousFrame[deviceNo],
                                          b.rgbImage[deviceNo] + last.pixels};
        if (last.layout == ImageLayout::SplitPlanes) {
            // Even columns first in each row; an index past the frame's
            // rows reads the buffers as they stand. The values the mosaic
            // holds (green at a green site, a red or blue site's own
            // colour) are read from the split mosaic.
            const std::size_t w = last.width, x = index % w, y = index / w;
            const std::size_t split = index - x + (x & 1) * ((w + 1) / 2) + x / 2;
            if (split < last.pixels) {
                at = split;
                planes[siteColour(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y))] =
                    b.rgbImage[deviceNo] + 2 * std::size_t{last.pixels};
            }
        }
        triple[red] = planes[0][at];
        triple[1] = planes[1][at];
        triple[blue] = planes[2][at];
        const Area one{1, 1, 0, 0};
        const std::uint32_t demosaic = last.blueFirst ? 1 : 0;
        if (last.matrixOn)
            reference::colourMatrix(triple, last.matrix, one, demosaic);
        const int r = last.memory ? 1 : 0;
        const std::uint16_t *const tables[3] = {b.outputLut[r][0][deviceNo], b.outputLut[r][1][deviceNo],
                                                b.outputLut[r][2][deviceNo]};
        reference::lookUpColour(triple, tables, one, demosaic);
    }
    rgb[0] = triple[red];
    rgb[1] = triple[1];
    rgb[2] = triple[blue];
    return true;
}

} // namespace quorin::image
