#include "Filters/VBcvGetThresholdOvalFilter.h"

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/PadLevel.h"
#include "enhance/Enhance.h"
#include "enhance/OtsuLevel.h"
#include "enhance/PadThreshold.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"
#include "logging/Trace.h"

using pixmill::logging::LogW;

CVBcvGetThresholdOvalFilter::CVBcvGetThresholdOvalFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"BlackPad"));
}

void CVBcvGetThresholdOvalFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool blackPad = pixmill::ParamValue<bool>(params, L"BlackPad", false);

    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& image) {
            const cv::Mat src = pixmill::filters::EnhanceInput(image, "VBcvGetThresholdOvalFilter");
            // The inversion call with no pixels does nothing; it stays a no-op.
            pixmill::FuncTest(nullptr, nullptr, 0, 0);
            int level = -1;
            if (src.cols > pixmill::kPadImageMaxSide || src.rows > pixmill::kPadImageMaxSide) {
                VBcvTrace("Image Buffer Sise is wrong! \n");
                VBcvTrace("[VBcvGetThreshold_Oval] End \n");
            } else {
                level = pixmill::OtsuLevel(src.data, src.cols, src.rows);
                VBcvTrace("Threshold : %d\n", level);
            }
            SetResult(L"{\"threshold\":\"%d\"}", level);
            return pixmill::filters::BinarisePad(src, level, blackPad);
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CVBcvGetThresholdOvalFilter::Trace() {
    LogW(1, L"VBcvGetThresholdOvalFilter");
}

PIXMILL_REGISTER_FILTER(L"VBcvGetThresholdOvalFilter", CVBcvGetThresholdOvalFilter);
