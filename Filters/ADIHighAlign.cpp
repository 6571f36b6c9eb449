// For each input image: the centre of the largest blob of the flattened,
// binarised inspection area (InspWidth x InspHeight at the image centre),
// its size and which limits of the area it touches, as
// {"Center_X":"..", "Center_Y":"..", "Width":"..", "Height":"..", "bLeft":"0", ...};
// -1.0 / -1 when no blob qualifies or the area does not fit. The output is
// the image in colour with a red circle at the centre found.
#include "Filters/ADIHighAlign.h"

#include <opencv2/imgproc.hpp>

#include "Filters/DieFilterLoop.h"
#include "framework/FilterRegistry.h"
#include "inspect/die/DieCornerADI.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace die = pixmill::inspect::die;

CADIHighAlign::CADIHighAlign() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"InspWidth", 60, 10, 960, 1));
    AddParam(new sorvik::Param<int>(L"InspHeight", 60, 10, 960, 1));
    AddParam(new sorvik::Param<float>(L"Sigma", 21.0f, 1.0f, 50.0f, 0.5f));
    AddParam(new sorvik::Param<float>(L"Scale", 1.0f, 0.1f, 10.0f, 0.1f));
    // On unless a recipe turns it off: bright features are sought.
    auto* polarity = AddParam(new sorvik::Param<bool>(L"W/B", true));
    polarity->value = true;
    AddParam(new sorvik::Param<int>(L"ABSolute", 128, 0, 255, 1));
}

void CADIHighAlign::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    LogW(1, L"OptionRead");
    die::ADISettings s;
    s.inspWidth = pixmill::ParamValue<int>(params, L"InspWidth", 60);
    s.inspHeight = pixmill::ParamValue<int>(params, L"InspHeight", 60);
    s.sigma = pixmill::ParamValue<float>(params, L"Sigma", 21.0f);
    s.scale = pixmill::ParamValue<float>(params, L"Scale", 1.0f);
    s.bright = pixmill::ParamValue<bool>(params, L"W/B", true);
    s.absolute = pixmill::ParamValue<int>(params, L"ABSolute", 128);
    pixmill::filters::RunOnDieImages(pins, "ADIHighAlign", [&](const cv::Mat& gray, cv::Mat& canvas) {
        const die::ADIHighResult r = die::ADIHighAlign(gray, s);
        if (r.found && !canvas.empty())
            cv::circle(canvas, cv::Point(cvRound(r.centre.x), cvRound(r.centre.y)), 10, cv::Scalar(0, 0, 255), 2,
                       cv::LINE_8);
        SetResult(L"{\"Center_X\":\"%.1f\", \"Center_Y\":\"%.1f\", \"Width\":\"%d\", \"Height\":\"%d\", "
                  L"\"bLeft\":\"%d\", \"bTop\":\"%d\", \"bRight\":\"%d\", \"bBottom\":\"%d\"}",
                  r.centre.x, r.centre.y, r.width, r.height, int(r.left), int(r.top), int(r.right), int(r.bottom));
    });
}

void CADIHighAlign::Trace() {
    LogW(1, L"ADIHighAlign");
}

PIXMILL_REGISTER_FILTER(L"ADIHighAlign", CADIHighAlign);
