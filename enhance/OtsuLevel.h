// Otsu's level on a smoothed histogram, the variance threshold shared by the
// pad threshold estimators and the framed die inspections.
//
// Both functions read a packed 8-bit one-channel buffer. The histogram gets
// one count added to every one of its 256 bins before it is normalised, so
// no class is ever empty and an image without pixels still has a level.
// Class weights run from 1 (level 0 weighs 1, level 255 weighs 256). The
// level returned is the last level of the dark class: binarising with
// "value > level" puts the bright class at 255. Among equal measures the
// lowest level wins.
#pragma once

#include <cstdint>

namespace pixmill {

// The level over all width * height pixels of a contiguous buffer. A null
// buffer or a width or height of 0 or less counts no pixel (the smoothed
// histogram alone decides the level).
int OtsuLevel(const uint8_t* data, int width, int height);

// The level over the dark half only: pixels of 128 and above are left out
// of the histogram. Rows are `stride` bytes apart (stride >= width); a null
// buffer, a size of 0 or less or a stride below width counts no pixel.
int DarkHalfVarianceLevel(const uint8_t* data, int width, int height, int stride);

// The level of a histogram of counts (before the one added to each bin).
int SmoothedVarianceLevel(const int64_t (&histogram)[256]);

}  // namespace pixmill
