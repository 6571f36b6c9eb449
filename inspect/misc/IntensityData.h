// Gray level statistics of a region of an image file: mean, spread,
// extremes and the histogram, for light calibration.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::misc {

// Entries of the histogram a caller must provide: one per gray level.
inline constexpr int kIntensityBins = 256;

// Exact counts of the 256 gray levels of an 8-bit image (of any size: the
// image is counted in bands small enough for single-precision counts to be
// exact).
void CountGrayLevels(const cv::Mat& gray, int64_t (&counts)[kIntensityBins]);

// VBcvGetIntesityData.
IntensityData GetIntensityData(const char* path, int x, int y, int width, int height,
                               int* histogram, int histogramSize,
                               ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::misc
