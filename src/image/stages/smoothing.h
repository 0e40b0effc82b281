// Green smoothing (colour mode 2): every inner green site of the balanced
// mosaic becomes a weighted mean of itself and its diagonal neighbours,
// read from a copy so that results never feed each other.
#pragma once

#include "image/frame.h"

namespace quorin::image {

// Smooths f.work from the copy in f.previous; narrow when every value is
// below 1024 (16-bit lanes serve).
void greenSmoothing(const Frame &f, bool narrow);

} // namespace quorin::image
