#include "Filters/EnhanceFilter.h"

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "enhance/Enhance.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CEnhanceFilter::CEnhanceFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Diretion", 0, 0, 2, 1));
    AddParam(new sorvik::Param<float>(L"Sigma", 4.0f, 1.0f, 10.0f, 0.5f));
    AddParam(new sorvik::Param<float>(L"Scale", 1.0f, 0.1f, 5.0f, 0.1f));
}

void CEnhanceFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int direction = pixmill::ParamValue<int>(params, L"Diretion", 0);
    const float sigma = pixmill::ParamValue<float>(params, L"Sigma", 4.0f);
    const float scale = pixmill::ParamValue<float>(params, L"Scale", 1.0f);

    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& image) {
            const cv::Mat src = pixmill::filters::EnhanceInput(image, "EnhanceFilter");
            cv::Mat dst(src.size(), CV_8UC1);
            pixmill::EnhanceImage(src.data, dst.data, src.cols, src.rows, direction, sigma, scale);
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CEnhanceFilter::Trace() {
    LogW(1, L"EnhanceFilter");
}

PIXMILL_REGISTER_FILTER(L"EnhanceFilter", CEnhanceFilter);
