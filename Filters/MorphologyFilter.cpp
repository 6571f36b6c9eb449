#include "Filters/MorphologyFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "framework/BufferPool.h"
#include "Filters/SizeLimit.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CMorphologyFilter::CMorphologyFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"KernelSize", 1, 1, 9, 2));
}

void CMorphologyFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    // The fallback only applies to a list without KernelSize, which the
    // constructor never leaves; the declared default is 1.
    const int kernelSize = pixmill::ParamValue<int>(params, L"KernelSize", 127);

    pixmill::filters::CheckImageSize(kernelSize, kernelSize, 1, "MorphologyFilter: KernelSize");
    const cv::Mat element = cv::getStructuringElement(
        cv::MORPH_RECT, cv::Size(kernelSize, kernelSize), cv::Point(-1, -1));
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&element, kernelSize](const cv::Mat& src) {
            // Four passes, each costing the element's side per pixel.
            pixmill::filters::CheckWindow(kernelSize, src, true, "MorphologyFilter: KernelSize");
            // Opening removes bright specks smaller than the element, then
            // closing fills dark holes smaller than it. The border value is
            // neutral to both, so a shape touching the image border keeps
            // its outline there.
            cv::Mat t = pixmill::PooledMat();
            cv::morphologyEx(src, t, cv::MORPH_OPEN, element, cv::Point(-1, -1), 1,
                             cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
            cv::morphologyEx(t, t, cv::MORPH_CLOSE, element, cv::Point(-1, -1), 1,
                             cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
            return t;
        });
    pixmill::filters::SetOutputImages(pins, std::move(results));

    // Recipes on the prober expect a fragment of this shape from the filter;
    // the number carries no meaning and consumers ignore it.
    m_result = L"{\"threshold\":0}";
}

void CMorphologyFilter::Trace() {
    LogW(1, L"MorphologyFilter");
}

PIXMILL_REGISTER_FILTER(L"MorphologyFilter", CMorphologyFilter);
