#include "Filters/EnhanceFilter_AutoScale.h"

#include <algorithm>
#include <cwchar>

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "enhance/Enhance.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// 1.8 at Sigma 0, 0.114 less for each unit of Sigma, capped at 2.0 (which
// only a negative Sigma reaches) and floored at 0.15. A Sigma that is not a
// number ends on the floor.
float AutoScaleGain(float sigma) {
    float a = static_cast<float>(1.79999995 - static_cast<double>(sigma) * 0.114285715);
    a = std::min(a, 2.0f);
    return static_cast<double>(a) > 0.15 ? a : static_cast<float>(0.15);
}

}  // namespace

CEnhanceFilter_AutoScale::CEnhanceFilter_AutoScale() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Diretion", 0, 0, 2, 1));
    AddParam(new sorvik::Param<float>(L"Sigma", 4.0f, 1.0f, 50.0f, 0.5f));
}

void CEnhanceFilter_AutoScale::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int direction = pixmill::ParamValue<int>(params, L"Diretion", 0);
    const float sigma = pixmill::ParamValue<float>(params, L"Sigma", 4.0f);

    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& image) {
            const cv::Mat src = pixmill::filters::EnhanceInput(image, "EnhanceFilter_AutoScale");
            const float gain = AutoScaleGain(sigma);
            cv::Mat dst(src.size(), CV_8UC1);
            pixmill::EnhanceImage(src.data, dst.data, src.cols, src.rows, direction, sigma, gain);
            // Rewritten for every image: the text reports the last one.
            SetResult(L"{\"fScale\":%.2f}", static_cast<double>(gain));
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CEnhanceFilter_AutoScale::Trace() {
    LogW(1, L"EnhanceFilter_AutoScale");
}

PIXMILL_REGISTER_FILTER(L"EnhanceFilter_AutoScale", CEnhanceFilter_AutoScale);
