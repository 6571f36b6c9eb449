// A bound on the work that one parameter can ask of a filter.
//
// SizeLimit.h keeps a recipe from asking for huge images; this keeps it from
// asking for huge amounts of work on an ordinary one: a window wider than
// the image, a chart thousands of times wider than its bars need, a circle
// search over every pixel of a noise image. Such a request ends the filter's
// work with an exception naming the parameter, which Process logs at level 4
// like any other failure, instead of keeping the host busy for minutes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

namespace pixmill::filters {

// Largest product of pixels and window side that a filter whose cost grows
// with its window (a Gaussian, a morphological element) takes on: a few
// seconds at most on this machine's slowest path for large windows.
inline constexpr int64_t kMaxWindowWork = int64_t{400} * 1000 * 1000;

// The widest window that `image` can use: twice its larger side plus one
// covers the whole image from every pixel. When `costGrowsWithWindow`, the
// work bound lowers it further.
inline int64_t UsableWindow(const cv::Mat& image, bool costGrowsWithWindow) {
    const int64_t side = std::max<int64_t>({image.cols, image.rows, 1});
    int64_t usable = 2 * side + 1;
    if (costGrowsWithWindow) {
        const int64_t pixels = std::max<int64_t>(int64_t{image.cols} * image.rows, 1);
        usable = std::min(usable, std::max<int64_t>(kMaxWindowWork / pixels, 1));
    }
    return usable;
}

// Throws std::length_error when a window side asked for by the parameter
// `what` ("GaussianBlurFilter: Kernel") is larger than UsableWindow.
inline void CheckWindow(int64_t side, const cv::Mat& image, bool costGrowsWithWindow, const char* what) {
    const int64_t usable = UsableWindow(image, costGrowsWithWindow);
    if (side <= usable) return;
    throw std::length_error(std::string(what) + " " + std::to_string(side) + " is more than a " +
                            std::to_string(image.cols) + " x " + std::to_string(image.rows) +
                            " image can use (at most " + std::to_string(usable) + ")");
}

// Throws std::length_error when a count or size asked for by the parameter
// `what` exceeds `limit`, with `reason` saying why the limit is what it is.
inline void CheckAmount(int64_t amount, int64_t limit, const char* what, const char* reason) {
    if (amount <= limit) return;
    throw std::length_error(std::string(what) + " " + std::to_string(amount) + " exceeds " +
                            std::to_string(limit) + " (" + reason + ")");
}

}  // namespace pixmill::filters
