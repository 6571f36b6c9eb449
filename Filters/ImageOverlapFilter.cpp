#include "Filters/ImageOverlapFilter.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// The over image in the middle (green) channel of a three-channel picture,
// the two others black.
cv::Mat GreenPicture(const cv::Mat& over) {
    const cv::Mat zero = cv::Mat::zeros(over.rows, over.cols, over.type());
    cv::Mat picture;
    cv::merge(std::vector<cv::Mat>{zero, over, zero}, picture);
    return picture;
}

// The part of `base` that receives the over picture placed with its top-left
// corner at `at`, limited to `size`. Empty when nothing overlaps.
cv::Rect ReceivingRegion(const cv::Size& base, const cv::Size& over, cv::Point at, cv::Size size) {
    // In 64 bits, so that a far-off corner cannot overflow.
    const int64_t x0 = std::max<int64_t>(at.x, 0);
    const int64_t y0 = std::max<int64_t>(at.y, 0);
    const int64_t x1 = std::min<int64_t>(
        {int64_t{at.x} + size.width, int64_t{at.x} + over.width, int64_t{base.width}});
    const int64_t y1 = std::min<int64_t>(
        {int64_t{at.y} + size.height, int64_t{at.y} + over.height, int64_t{base.height}});
    if (x1 <= x0 || y1 <= y0) return cv::Rect();
    return cv::Rect(static_cast<int>(x0), static_cast<int>(y0), static_cast<int>(x1 - x0),
                    static_cast<int>(y1 - y0));
}

}  // namespace

CImageOverlapFilter::CImageOverlapFilter() {
    AddPin(L"base", 1, false);
    AddPin(L"over", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Alpha", 50, 0, 100, 1));
    // The placement has no useful default; a recipe sets it.
    AddParam(new sorvik::Param<int>(L"x"));
    AddParam(new sorvik::Param<int>(L"y"));
    AddParam(new sorvik::Param<int>(L"width"));
    AddParam(new sorvik::Param<int>(L"height"));
}

void CImageOverlapFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int alpha = pixmill::ParamValue<int>(params, L"Alpha", 50);
    const cv::Point at(pixmill::ParamValue<int>(params, L"x", 0),
                       pixmill::ParamValue<int>(params, L"y", 0));
    const int width = pixmill::ParamValue<int>(params, L"width", 0);
    const int height = pixmill::ParamValue<int>(params, L"height", 0);

    const pixmill::filters::PairedInputs inputs(pins);
    const size_t pairs = std::min(inputs.first.size(), inputs.second.size());

    std::vector<cv::Mat> results;
    try {
        for (size_t i = 0; i < pairs; ++i) {
            // Both conversions refuse images that are not gray.
            cv::Mat receiving;
            cv::cvtColor(inputs.first[i], receiving, cv::COLOR_GRAY2BGR);
            const cv::Mat other = GreenPicture(inputs.second[i]);

            // A size of 0 or less is no limit: the whole over image counts.
            const cv::Size limit(width > 0 ? width : other.cols, height > 0 ? height : other.rows);
            const cv::Rect region = ReceivingRegion(receiving.size(), other.size(), at, limit);
            if (!region.empty()) {
                // The over picture moves with its corner: where (x, y) lies
                // outside the base, the clipped part of it is skipped.
                const cv::Rect source(region.x - at.x, region.y - at.y, region.width,
                                      region.height);
                cv::Mat target = receiving(region);
                // The base keeps its full strength and the over picture is
                // added on top, scaled; sums saturate at white.
                cv::addWeighted(target, 1.0, other(source), alpha / 100.0, 0.0, target, -1);
            }
            results.push_back(receiving);
        }
    } catch (const std::exception&) {
        // A pair that cannot be combined drops it and the pairs after it;
        // the outputs made so far are delivered as they are.
    }
    pixmill::filters::SetOutputImages(pins, results);
}

void CImageOverlapFilter::Trace() {
    LogW(1, L"ImageOverlapFilter");
}

PIXMILL_REGISTER_FILTER(L"ImageOverlapFilter", CImageOverlapFilter);
