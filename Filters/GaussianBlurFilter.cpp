#include "Filters/GaussianBlurFilter.h"

#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "framework/BufferPool.h"
#include "Filters/SizeLimit.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CGaussianBlurFilter::CGaussianBlurFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Kernel", 3, 3, 9, 2));
    AddParam(new sorvik::Param<int>(L"Sigma", 3, 0, 9, 1));
}

void CGaussianBlurFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int kernel = pixmill::ParamValue<int>(params, L"Kernel", 3);
    const int sigma = pixmill::ParamValue<int>(params, L"Sigma", 3);

    // The image library buffers about a window's height of rows of the image,
    // widened by the window's width, so the window must stay bounded. With a
    // Kernel of 0 or less the window follows from Sigma, at most 8 sigma + 1
    // wide.
    const int64_t window = kernel > 0 ? kernel : 8 * int64_t{sigma} + 1;
    pixmill::filters::CheckImageSize(window, window, sizeof(float),
                                     "GaussianBlurFilter: Kernel or Sigma");

    // Only the horizontal sigma is given; a vertical sigma of 0 means the
    // same value. Sigma 0 lets the window size choose it. An even or
    // negative window throws, and the filter keeps its previous output.
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [kernel, sigma, window](const cv::Mat& src) {
            // The cost grows with the window: one wider than the image can
            // use is refused.
            pixmill::filters::CheckWindow(window, src, true, "GaussianBlurFilter: Kernel or Sigma window");
            cv::Mat dst = pixmill::PooledMat();
            cv::GaussianBlur(src, dst, cv::Size(kernel, kernel), sigma, 0, cv::BORDER_DEFAULT);
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, std::move(results));
}

void CGaussianBlurFilter::Trace() {
    LogW(1, L"GaussianBlurFilter");
}

PIXMILL_REGISTER_FILTER(L"GaussianBlurFilter", CGaussianBlurFilter);
