#include "Filters/DrawCircleFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// Where the last mask is saved for inspection on the prober.
const wchar_t* const kDebugImagePath = L"C:/PROBERPARAM/ParaImg/DrawCircleFilter_image.png";

}  // namespace

CDrawCircleFilter::CDrawCircleFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"center_x", 0, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"center_y", 0, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"width", 0, 0, 960, 1));
}

void CDrawCircleFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int centerX = pixmill::ParamValue<int>(params, L"center_x", 0);
    const int centerY = pixmill::ParamValue<int>(params, L"center_y", 0);
    const int radius = pixmill::ParamValue<int>(params, L"width", 0) / 2;

    std::vector<cv::Mat> masks;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (cv::Mat* image : pin->GetImage()) {
            // GRAY2BGR accepts one channel only, and an empty image not at
            // all: either failure throws and Process keeps the old outputs.
            const cv::Mat src = image ? *image : cv::Mat();
            cv::Mat bgr;
            cv::cvtColor(src, bgr, cv::COLOR_GRAY2BGR);
            cv::Mat mask = cv::Mat::zeros(bgr.size(), bgr.type());
            // Drawing costs the radius; one reaching past twice the image's
            // extent cannot change more pixels than a smaller one.
            pixmill::filters::CheckAmount(radius, 2 * (int64_t{src.cols} + src.rows),
                                          "DrawCircleFilter: width / 2",
                                          "twice the image's width and height together");
            // A negative radius (negative width) throws here as well.
            cv::circle(mask, cv::Point(centerX, centerY), radius, cv::Scalar(255, 255, 255, 0), -1,
                       1, 0);
            masks.push_back(mask);
            pixmill::WriteDebugImageFile(kDebugImagePath, mask);
        }
    }

    std::vector<cv::Mat*> out;
    for (cv::Mat& m : masks) out.push_back(&m);
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImage(out);
}

void CDrawCircleFilter::Trace() {
    LogW(1, L"DrawCircleFilter");
}

PIXMILL_REGISTER_FILTER(L"DrawCircleFilter", CDrawCircleFilter);
