#include "Filters/SideBySideFilter.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "Filters/SizeLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// The largest columns and rows over a list.
cv::Size LargestOf(const std::vector<cv::Mat>& images) {
    cv::Size largest(0, 0);
    for (const cv::Mat& m : images) {
        largest.width = std::max(largest.width, m.cols);
        largest.height = std::max(largest.height, m.rows);
    }
    return largest;
}

// Room for the largest image of each list, beside or below each other, with
// `channels` 8-bit channels. Summed in 64 bits and bounded, so that a very
// wide image beside a very tall one is refused instead of wrapping or
// exhausting memory.
cv::Size CanvasSize(cv::Size left, cv::Size right, bool topBottom, int channels) {
    const int64_t width =
        topBottom ? std::max(left.width, right.width) : int64_t{left.width} + right.width;
    const int64_t height =
        topBottom ? int64_t{left.height} + right.height : std::max(left.height, right.height);
    pixmill::filters::CheckImageSize(width, height, channels, "SideBySideFilter: the canvas");
    return cv::Size(static_cast<int>(width), static_cast<int>(height));
}

// Copies `image` into `canvas` with its top-left corner at `at`. A gray
// image is made colour first when the canvas has more channels. The canvas
// is sized for the largest image, so the target always fits.
void Place(cv::Mat& canvas, const cv::Mat& image, cv::Point at) {
    if (image.empty()) return;
    cv::Mat t = image;
    if (t.channels() != canvas.channels()) cv::cvtColor(image, t, cv::COLOR_GRAY2BGR);
    // copyTo would silently reallocate a target of another type instead of
    // filling the canvas, so a mismatch left after conversion (a 16-bit
    // image, a four-channel one next to a gray one) is an error.
    if (t.type() != canvas.type())
        throw std::invalid_argument("image type does not fit the canvas");
    t.copyTo(canvas(cv::Rect(at, t.size())));
}

}  // namespace

CSideBySideFilter::CSideBySideFilter() {
    AddPin(L"left", 1, false);
    AddPin(L"right", 2, false);
    AddPin(L"Out", -1, true);
    // Set: top and bottom instead of left and right.
    AddParam(new sorvik::Param<bool>(L"T/B"));
}

void CSideBySideFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool topBottom = pixmill::ParamValue<bool>(params, L"T/B", false);

    const pixmill::filters::PairedInputs inputs(pins);
    const std::vector<cv::Mat>& left = inputs.first;
    const std::vector<cv::Mat>& right = inputs.second;
    const size_t count = std::max(left.size(), right.size());

    const cv::Size leftSize = LargestOf(left);
    const cv::Size rightSize = LargestOf(right);
    int channels = 1;
    for (const cv::Mat& m : left) channels = std::max(channels, m.channels());
    for (const cv::Mat& m : right) channels = std::max(channels, m.channels());

    std::vector<cv::Mat> results;
    try {
        const cv::Size canvasSize = CanvasSize(leftSize, rightSize, topBottom, channels);
        const cv::Point second =
            topBottom ? cv::Point(0, leftSize.height) : cv::Point(leftSize.width, 0);
        for (size_t i = 0; i < count; ++i) {
            cv::Mat canvas = cv::Mat::zeros(canvasSize, CV_MAKETYPE(CV_8U, channels));
            if (i < left.size()) Place(canvas, left[i], cv::Point(0, 0));
            if (i < right.size()) Place(canvas, right[i], second);
            results.push_back(canvas);
        }
    } catch (const std::exception&) {
        // A pair that cannot be placed drops it and the pairs after it; the
        // canvases made so far are delivered as they are.
    }
    pixmill::filters::SetOutputImages(pins, results);
}

void CSideBySideFilter::Trace() {
    LogW(1, L"SideBySideFilter");
}

PIXMILL_REGISTER_FILTER(L"SideBySideFilter", CSideBySideFilter);
