#include "Filters/CropFilter.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>

#include "Filters/ImageLoop.h"
#include "framework/BufferPool.h"
#include "Filters/SizeLimit.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// Where each crop is saved for inspection on the prober.
const wchar_t* const kDebugImagePath = L"C:/PROBERPARAM/ParaImg/PinImage/CropFilter_image.png";

// The requested rectangle of `src`. The request is clipped to the image; an
// empty clip returns the image itself. A clip smaller than the request is
// placed into a black image of the requested size where the request puts
// it, so image coordinates keep their meaning relative to (x, y).
cv::Mat Crop(const cv::Mat& src, int x, int y, int width, int height) {
    // In 64 bits, so that x + width cannot overflow.
    const int64_t x0 = std::max<int64_t>(x, 0);
    const int64_t y0 = std::max<int64_t>(y, 0);
    const int64_t x1 = std::min<int64_t>(int64_t{x} + width, src.cols);
    const int64_t y1 = std::min<int64_t>(int64_t{y} + height, src.rows);
    const int64_t clippedWidth = x1 - x0;
    const int64_t clippedHeight = y1 - y0;
    if (clippedWidth <= 0 || clippedHeight <= 0) return src;

    const cv::Rect region(static_cast<int>(x0), static_cast<int>(y0),
                          static_cast<int>(clippedWidth), static_cast<int>(clippedHeight));
    if (clippedWidth == width && clippedHeight == height) return src(region);

    pixmill::filters::CheckImageSize(width, height, static_cast<int64_t>(src.elemSize()),
                                     "CropFilter: the requested rectangle");
    cv::Mat canvas = pixmill::PooledMat();
    canvas.create(height, width, src.type());
    canvas.setTo(cv::Scalar::all(0));
    const cv::Rect target(static_cast<int>(x0 - x), static_cast<int>(y0 - y), region.width,
                          region.height);
    src(region).copyTo(canvas(target));
    return canvas;
}

}  // namespace

CCropFilter::CCropFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"x", 0, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"y", 0, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"width", 0, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"height", 0, 0, 960, 1));
}

void CCropFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int x = pixmill::ParamValue<int>(params, L"x", 0);
    const int y = pixmill::ParamValue<int>(params, L"y", 0);
    const int width = pixmill::ParamValue<int>(params, L"width", 0);
    const int height = pixmill::ParamValue<int>(params, L"height", 0);

    std::vector<cv::Mat> results = pixmill::filters::MapInputImages(pins, [&](const cv::Mat& src) {
        cv::Mat crop = Crop(src, x, y, width, height);
        pixmill::WriteDebugImageFile(kDebugImagePath, crop);
        return crop;
    });
    pixmill::filters::SetOutputImages(pins, std::move(results));

    SetResult(L"{\"x\":\"%d\", \"y\":\"%d\", \"width\":\"%d\", \"height\":\"%d\"}",
                  x, y, width, height);
}

void CCropFilter::Trace() {
    LogW(1, L"CropFilter");
}

PIXMILL_REGISTER_FILTER(L"CropFilter", CCropFilter);
