// For each input image: the street crossings found between the blobs of the
// flattened, binarised inspection area (InspWidth x InspHeight at the image
// centre), in image coordinates, as
// { "Count":"n", "crosses":[{"Cross":"0", "X":"..", "Y":".."},...]};
// Count 0 with an empty list when the area does not fit or no crossing
// qualifies. The output is the image in colour with a circle at each
// crossing.
#include "Filters/ADILowAlign.h"

#include <opencv2/imgproc.hpp>

#include "Filters/DieFilterLoop.h"
#include "framework/FilterRegistry.h"
#include "inspect/die/DieCornerADI.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace die = pixmill::inspect::die;

CADILowAlign::CADILowAlign() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"InspWidth", 400, 10, 960, 1));
    AddParam(new sorvik::Param<int>(L"InspHeight", 400, 10, 960, 1));
    AddParam(new sorvik::Param<int>(L"LineX", 80, 10, 400, 1));
    AddParam(new sorvik::Param<int>(L"LineY", 80, 10, 400, 1));
    AddParam(new sorvik::Param<float>(L"Sigma", 9.0f, 1.0f, 50.0f, 0.5f));
    AddParam(new sorvik::Param<float>(L"Scale", 1.0f, 0.1f, 10.0f, 0.1f));
    // On unless a recipe turns it off: bright blobs are sought.
    auto* polarity = AddParam(new sorvik::Param<bool>(L"W/B", true));
    polarity->value = true;
    AddParam(new sorvik::Param<int>(L"ABSolute", 128, 0, 255, 1));
}

void CADILowAlign::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    LogW(1, L"OptionRead");
    die::ADILowSettings s;
    s.area.inspWidth = pixmill::ParamValue<int>(params, L"InspWidth", 400);
    s.area.inspHeight = pixmill::ParamValue<int>(params, L"InspHeight", 400);
    s.lineX = pixmill::ParamValue<int>(params, L"LineX", 80);
    s.lineY = pixmill::ParamValue<int>(params, L"LineY", 80);
    s.area.sigma = pixmill::ParamValue<float>(params, L"Sigma", 9.0f);
    s.area.scale = pixmill::ParamValue<float>(params, L"Scale", 1.0f);
    s.area.bright = pixmill::ParamValue<bool>(params, L"W/B", true);
    s.area.absolute = pixmill::ParamValue<int>(params, L"ABSolute", 128);
    pixmill::filters::RunOnDieImages(pins, "ADILowAlign", [&](const cv::Mat& gray, cv::Mat& canvas) {
        const std::vector<cv::Point> crosses = die::ADILowAlign(gray, s);
        std::wstring text;
        die::AppendWide(text, L"{ \"Count\":\"%d\", \"crosses\":[", static_cast<int>(crosses.size()));
        for (size_t i = 0; i < crosses.size(); ++i) {
            die::AppendWide(text, L"%ls{\"Cross\":\"%d\", \"X\":\"%d\", \"Y\":\"%d\"}", i ? L"," : L"",
                            static_cast<int>(i), crosses[i].x, crosses[i].y);
            if (!canvas.empty()) cv::circle(canvas, crosses[i], 10, cv::Scalar(0, 0, 255), 2, cv::LINE_8);
        }
        text += L"]}";
        SetResult(L"%ls", text.c_str());
    });
}

void CADILowAlign::Trace() {
    LogW(1, L"ADILowAlign");
}

PIXMILL_REGISTER_FILTER(L"ADILowAlign", CADILowAlign);
