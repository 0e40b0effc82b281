#include "image/pipeline.h"

#include "image/reference/stages.h"

namespace quorin::image {

void process(const Frame &f, bool sixteenBit, void *dest)
{
    reference::process(f, sixteenBit, dest);
}

} // namespace quorin::image
