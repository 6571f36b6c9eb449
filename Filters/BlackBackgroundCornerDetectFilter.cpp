#include "Filters/BlackBackgroundCornerDetectFilter.h"

#include "Filters/DieFilterLoop.h"
#include "framework/FilterRegistry.h"
#include "inspect/die/DieCornerBlack.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace die = pixmill::inspect::die;

CBlackBackgroundCornerDetectFilter::CBlackBackgroundCornerDetectFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // No limits of their own: the worker refuses sizes below 10.
    AddParam(new sorvik::Param<int>(L"DieWidth"));
    AddParam(new sorvik::Param<int>(L"DieHeight"));
    AddParam(new sorvik::Param<int>(L"ToleranceWidth"));
    AddParam(new sorvik::Param<int>(L"ToleranceHeight"));
    AddParam(new sorvik::Param<int>(L"SearchMode"));
}

void CBlackBackgroundCornerDetectFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    die::BlackBackgroundSettings s;
    s.dieWidth = pixmill::ParamValue<int>(params, L"DieWidth", 0);
    s.dieHeight = pixmill::ParamValue<int>(params, L"DieHeight", 0);
    s.toleranceWidth = pixmill::ParamValue<int>(params, L"ToleranceWidth", 0);
    s.toleranceHeight = pixmill::ParamValue<int>(params, L"ToleranceHeight", 0);
    s.searchMode = pixmill::ParamValue<int>(params, L"SearchMode", 0);
    LogW(1, L"OptionRead");
    pixmill::filters::RunOnDieImages(pins, "BlackBackgroundCornerDetectFilter", [&](const cv::Mat& gray, cv::Mat& canvas) {
        const std::vector<die::DieCorners> dies = die::DetectBlackBackgroundDies(gray.clone(), s);
        std::wstring text;
        die::AppendWide(text, L"{ \"Count\":\"%d\", \"Dies\":[", static_cast<int>(dies.size()));
        for (size_t i = 0; i < dies.size(); ++i) {
            const die::DieCorners& d = dies[i];
            if (!canvas.empty()) die::DrawDieCorners(canvas, d);
            if (i > 0) text += L",";
            die::AppendWide(text,
                            L"{\"Die\":\"%d\", \"LT_X\":\"%.1f\", \"LT_Y\":\"%.1f\", \"RT_X\":\"%.1f\", "
                            L"\"RT_Y\":\"%.1f\", \"RB_X\":\"%.1f\", \"RB_Y\":\"%.1f\", \"LB_X\":\"%.1f\", "
                            L"\"LB_Y\":\"%.1f\"}",
                            static_cast<int>(i), d.corner[0].x, d.corner[0].y, d.corner[1].x, d.corner[1].y,
                            d.corner[2].x, d.corner[2].y, d.corner[3].x, d.corner[3].y);
        }
        text += L"]}";
        SetResult(L"%ls", text.c_str());
    });
}

void CBlackBackgroundCornerDetectFilter::Trace() {
    LogW(1, L"BlackBackgroundCornerDetectFilter");
}

PIXMILL_REGISTER_FILTER(L"BlackBackgroundCornerDetectFilter", CBlackBackgroundCornerDetectFilter);
