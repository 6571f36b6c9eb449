// What the pad threshold filters share: the level in the scale of the image
// they binarise, and the binarisation itself.
#pragma once

#include <opencv2/imgproc.hpp>

namespace pixmill::filters {

// A black-pad estimator finds level L on the complemented image, where the
// pad is the pixels above L. In the original image those are the pixels at
// or below 254 - L, so that is the level a filter reports and applies with
// THRESH_BINARY_INV. Failure values (below 0) stay as they are.
inline int PadLevelInImageScale(int level, bool blackPad) {
    return blackPad && level >= 0 ? 254 - level : level;
}

// The image binarised at `level`: 255 above it, or at or below it for a
// black pad. An image without pixels gives an image without pixels.
inline cv::Mat BinarisePad(const cv::Mat& src, int level, bool blackPad) {
    if (src.empty()) return cv::Mat();
    cv::Mat dst;
    cv::threshold(src, dst, level, 255.0, blackPad ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY);
    return dst;
}

}  // namespace pixmill::filters
