// The pixels that the focus and brightness filters measure.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>

namespace pixmill::filters {

// `image` as an 8-bit one-channel matrix: gray images pass as they are,
// three- and four-channel 8-bit images are reduced to gray. An empty image
// or any other type throws std::invalid_argument naming the filter: Process
// logs it and the filter's output stays as it was.
inline cv::Mat FocusInput(const cv::Mat& image, const char* filter) {
    if (image.empty()) throw std::invalid_argument(std::string(filter) + ": empty image");
    switch (image.type()) {
        case CV_8UC1:
            return image;
        case CV_8UC3: {
            cv::Mat gray;
            cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
            return gray;
        }
        case CV_8UC4: {
            cv::Mat gray;
            cv::cvtColor(image, gray, cv::COLOR_BGRA2GRAY);
            return gray;
        }
        default:
            throw std::invalid_argument(std::string(filter) + " needs 8-bit images");
    }
}

}  // namespace pixmill::filters
