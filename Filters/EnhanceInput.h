// The pixels that the enhancement filters hand to the enhancement core.
#pragma once

#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

namespace pixmill::filters {

// `image` as a continuous 8-bit one-channel matrix, the only layout the core
// reads. An empty image passes as it is (the core then writes an empty
// result). Any other type throws std::invalid_argument naming the filter:
// Process logs it and the filter's output stays as it was.
inline cv::Mat EnhanceInput(const cv::Mat& image, const char* filter) {
    if (!image.empty() && image.type() != CV_8UC1)
        throw std::invalid_argument(std::string(filter) + " needs 8-bit one-channel images");
    return image.isContinuous() ? image : image.clone();
}

}  // namespace pixmill::filters
