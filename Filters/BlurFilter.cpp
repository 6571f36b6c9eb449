#include "Filters/BlurFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/SizeLimit.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CBlurFilter::CBlurFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Kernel", 3, 3, 9, 2));
}

void CBlurFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int kernel = pixmill::ParamValue<int>(params, L"Kernel", 3);

    // The image library buffers about Kernel rows of the image widened by
    // Kernel columns, so the window itself is what must stay bounded.
    pixmill::filters::CheckImageSize(kernel, kernel, sizeof(float), "BlurFilter: Kernel");

    // Other kernels are not checked here: a size the image library refuses
    // throws, and the filter keeps its previous output.
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [kernel](const cv::Mat& src) {
            // A box sum costs the same for any window, but its buffers grow
            // with it: a window wider than the image can use is refused.
            pixmill::filters::CheckWindow(kernel, src, false, "BlurFilter: Kernel");
            cv::Mat dst;
            cv::blur(src, dst, cv::Size(kernel, kernel), cv::Point(-1, -1), cv::BORDER_DEFAULT);
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CBlurFilter::Trace() {
    LogW(1, L"BlurFilter");
}

PIXMILL_REGISTER_FILTER(L"BlurFilter", CBlurFilter);
