#include "Filters/VBcvGetThresholdExFilter.h"

#include "enhance/PadThreshold.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CVBcvGetThresholdExFilter::CVBcvGetThresholdExFilter() {
    // The pins and parameters of VBcvGetThresholdFilter, then the corner cut.
    AddParam(new sorvik::Param<int>(L"Offset"));
}

double CVBcvGetThresholdExFilter::Estimate(const cv::Mat& src, int x, int y, int shape,
                                           bool blackPad, int angle,
                                           const std::vector<IParam*>& params) {
    const int offset = pixmill::ParamValue<int>(params, L"Offset", 0);
    return pixmill::VBcvGetThresholdEx(src.data, src.cols, src.rows, x, y, shape, blackPad ? 1 : 0,
                                       angle, offset, 0);
}

void CVBcvGetThresholdExFilter::Trace() {
    LogW(1, L"VBcvGetThresholdExFilter");
}

PIXMILL_REGISTER_FILTER(L"VBcvGetThresholdExFilter", CVBcvGetThresholdExFilter);
