#include "Filters/DetectCornerNearbyCross.h"

#include "Filters/DieFilterLoop.h"
#include "framework/FilterRegistry.h"
#include "inspect/die/DieCornerCross.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace die = pixmill::inspect::die;

CDetectCornerNearbyCross::CDetectCornerNearbyCross() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
}

void CDetectCornerNearbyCross::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    Trace();
    LogW(1, L"OptionRead");
    pixmill::filters::RunOnDieImages(pins, "DetectCornerNearbyCross", [&](const cv::Mat& gray, cv::Mat& canvas) {
        const std::vector<die::CrossCorners> crosses = die::DetectCornersNearbyCross(gray);
        std::wstring text;
        die::AppendWide(text, L"{ \"Count\":\"%d\", \"Cross\":[", static_cast<int>(crosses.size()));
        for (size_t i = 0; i < crosses.size(); ++i) {
            const die::CrossCorners& c = crosses[i];
            if (!canvas.empty()) die::DrawCrossCorners(canvas, c);
            if (i > 0) text += L",";
            const auto& f = c.first;
            const auto& s = c.second;
            die::AppendWide(
                text,
                L"{\"Cross\":\"%d\", \"F_LT_X\":\"%.1f\", \"F_LT_Y\":\"%.1f\", \"F_RT_X\":\"%.1f\", \"F_RT_Y\":\"%.1f\", "
                L"\"F_RB_X\":\"%.1f\", \"F_RB_Y\":\"%.1f\", \"F_LB_X\":\"%.1f\", \"F_LB_Y\":\"%.1f\", \"S_LT_X\":\"%.1f\", "
                L"\"S_LT_Y\":\"%.1f\", \"S_RT_X\":\"%.1f\", \"S_RT_Y\":\"%.1f\", \"S_RB_X\":\"%.1f\", \"S_RB_Y\":\"%.1f\", "
                L"\"S_LB_X\":\"%.1f\", \"S_LB_Y\":\"%.1f\"}",
                static_cast<int>(i), f[0].x, f[0].y, f[1].x, f[1].y, f[2].x, f[2].y, f[3].x, f[3].y, s[0].x, s[0].y,
                s[1].x, s[1].y, s[2].x, s[2].y, s[3].x, s[3].y);
        }
        text += L"]}";
        SetResult(L"%ls", text.c_str());
    });
}

void CDetectCornerNearbyCross::Trace() {
    LogW(1, L"DetectCornerNearbyCross");
}

PIXMILL_REGISTER_FILTER(L"DetectCornerNearbyCross", CDetectCornerNearbyCross);
