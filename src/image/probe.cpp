// The one-pixel probe. Triples are read as the transfer left them; the
// planes of the 8-bit colour path are finished for the one pixel with the
// same colour matrix and look-up stages a 16-bit transfer runs, so that
// the probe answers alike whichever depth the host asked for.
#include "image/probe.h"

#include "device/device_table.h"
#include "image/reference/stages.h"

namespace quorin::image {

bool lastImagePixel(std::uint32_t deviceNo, std::uint32_t index, std::uint32_t rgb[3])
{
    const LastImage &last = device(deviceNo).lastImage;
    const DeviceBuffers &b = g_state.buffers;
    if (last.layout == ImageLayout::None)
        return false;
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
        if (last.layout == ImageLayout::SplitPlanes) {
            // Even columns first in each row; an index past the frame's
            // rows reads the buffer as it stands.
            const std::size_t w = last.width, x = index % w, split = index - x + (x & 1) * ((w + 1) / 2) + x / 2;
            at = split < kProbePixels ? split : index;
        }
        triple[red] = b.rgbImage[deviceNo][at];
        triple[1] = b.previousFrame[deviceNo][at];
        triple[blue] = b.rgbImage[deviceNo][std::size_t{last.pixels} + at];
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
