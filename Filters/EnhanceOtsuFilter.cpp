#include "Filters/EnhanceOtsuFilter.h"

#include <cwchar>

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "enhance/Enhance.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CEnhanceOtsuFilter::CEnhanceOtsuFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"W/B", false));
    AddParam(new sorvik::Param<int>(L"ABSolute", 128, 0, 255, 1));
}

void CEnhanceOtsuFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool bright = pixmill::ParamValue<bool>(params, L"W/B", false);
    const int absolute = pixmill::ParamValue<int>(params, L"ABSolute", 128);

    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& image) {
            const cv::Mat src = pixmill::filters::EnhanceInput(image, "EnhanceOtsuFilter");
            cv::Mat dst(src.size(), CV_8UC1);
            const int threshold = pixmill::Enhance_Threshold_Otsu(src.data, dst.data, src.cols,
                                                                  src.rows, bright, absolute);
            // Rewritten for every image: the text reports the last one.
            SetResult(L"{\"threshold\":%d}", threshold);
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CEnhanceOtsuFilter::Trace() {
    LogW(1, L"EnhanceOtsuFilter");
}

PIXMILL_REGISTER_FILTER(L"EnhanceOtsuFilter", CEnhanceOtsuFilter);
