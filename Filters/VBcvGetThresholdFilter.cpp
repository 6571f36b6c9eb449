#include "Filters/VBcvGetThresholdFilter.h"

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/PadLevel.h"
#include "enhance/Enhance.h"
#include "enhance/PadThreshold.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CVBcvGetThresholdFilter::CVBcvGetThresholdFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // Bare parameters: each starts at 0 (false) until a recipe sets it.
    AddParam(new sorvik::Param<int>(L"x"));
    AddParam(new sorvik::Param<int>(L"y"));
    AddParam(new sorvik::Param<int>(L"width"));
    AddParam(new sorvik::Param<int>(L"height"));
    AddParam(new sorvik::Param<int>(L"Shape"));
    AddParam(new sorvik::Param<bool>(L"BlackPad"));
    AddParam(new sorvik::Param<int>(L"Angle"));
}

void CVBcvGetThresholdFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int x = pixmill::ParamValue<int>(params, L"x", 0);
    const int y = pixmill::ParamValue<int>(params, L"y", 0);
    // Looked up and dropped: the image gives the size.
    (void)pixmill::ParamValue<int>(params, L"width", 0);
    (void)pixmill::ParamValue<int>(params, L"height", 0);
    const int shape = pixmill::ParamValue<int>(params, L"Shape", 0);
    const bool blackPad = pixmill::ParamValue<bool>(params, L"BlackPad", false);
    const int angle = pixmill::ParamValue<int>(params, L"Angle", 0);

    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& image) {
            const cv::Mat src = pixmill::filters::EnhanceInput(image, FilterName());
            // The inversion call with no pixels does nothing; it stays a no-op.
            pixmill::FuncTest(nullptr, nullptr, 0, 0);
            const double found = Estimate(src, x, y, shape, blackPad, angle, params);
            // The estimators return whole levels from -2 to 255.
            const int level =
                pixmill::filters::PadLevelInImageScale(static_cast<int>(found), blackPad);
            SetResult(L"{\"threshold\":\"%d\"}", level);
            return pixmill::filters::BinarisePad(src, level, blackPad);
        });
    pixmill::filters::SetOutputImages(pins, results);
}

double CVBcvGetThresholdFilter::Estimate(const cv::Mat& src, int x, int y, int shape, bool blackPad,
                                         int angle, const std::vector<IParam*>&) {
    return pixmill::VBcvGetThreshold(src.data, src.cols, src.rows, x, y, shape, blackPad ? 1 : 0,
                                     angle, 0);
}

void CVBcvGetThresholdFilter::Trace() {
    LogW(1, L"VBcvGetThresholdFilter");
}

PIXMILL_REGISTER_FILTER(L"VBcvGetThresholdFilter", CVBcvGetThresholdFilter);
