#include "Filters/GrayScaleFilter.h"

#include <cwchar>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CGrayScaleFilter::CGrayScaleFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // Shown to recipe editors like those of ThresholdFilter; the conversion
    // does not use them.
    AddParam(new sorvik::Param<int>(L"Threshold", 127, 0, 255, 1));
    AddParam(new sorvik::Param<bool>(L"Invert"));
}

void CGrayScaleFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int threshold = pixmill::ParamValue<int>(params, L"Threshold", 127);

    // RGB2GRAY takes three or four channels; a gray image throws here.
    std::vector<cv::Mat> results = pixmill::filters::MapInputImages(pins, [](const cv::Mat& src) {
        cv::Mat dst;
        cv::cvtColor(src, dst, cv::COLOR_RGB2GRAY);
        return dst;
    });
    pixmill::filters::SetOutputImages(pins, results);

    SetResult(L"{\"threshold\":%d}", threshold);
}

void CGrayScaleFilter::Trace() {
    LogW(1, L"GrayScaleFilter");
}

PIXMILL_REGISTER_FILTER(L"GrayScaleFilter", CGrayScaleFilter);
