// Background subtraction: the light under the structures is estimated by a
// grey opening (bright structures) or closing (dark ones) with a square too
// large for them, smoothed, and taken away; what remains is thresholded at a
// level found on the flattened picture itself.
#include "Filters/BackgroundSubstractFilter.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/ResultList.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

constexpr int kMinBlur = 3;
constexpr int kMaxBlur = 255;
constexpr float kMinWeight = 0.1f;
constexpr float kMaxWeight = 10.0f;
constexpr int kMaxErode = 20;
// The local light may lift or lower the curved level at most this many
// times: a black background carries no light to follow, and an unbounded
// scale would let the noise there through.
constexpr double kMinLightScale = 0.25;
constexpr double kMaxLightScale = 4.0;

}  // namespace

namespace pixmill::filters {

BackgroundResult SubtractBackground(const cv::Mat& gray, const BackgroundSettings& settings) {
    BackgroundResult out;
    // The square never exceeds the image: a larger one sees nothing more.
    int side = std::min(settings.blurSize, std::max(gray.cols, gray.rows));
    side = std::max(1, side | 1);
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(side, side));

    cv::Mat level;
    cv::morphologyEx(gray, level, settings.darkOnBright ? cv::MORPH_CLOSE : cv::MORPH_OPEN, square);
    // The smoothing may only move the background away from the structures'
    // side (up under bright ones, down over dark ones): smoothed across the
    // edge of a large region of the other polarity, it would otherwise
    // spill that region into its surroundings as a halo of false structure.
    cv::Mat background;
    cv::blur(level, background, cv::Size(side, side));
    if (settings.darkOnBright)
        background = cv::min(background, level);
    else
        background = cv::max(background, level);

    // Saturating 8-bit subtraction: where the smoothed background lies on
    // the other side of the image, the flattened value is 0.
    if (settings.darkOnBright)
        cv::subtract(background, gray, out.flattened);
    else
        cv::subtract(gray, background, out.flattened);

    cv::Mat scratch;
    const double otsu =
        cv::threshold(out.flattened, scratch, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    // At least 1, so a flat picture (all 0 once flattened) has no structure.
    out.threshold = std::max(1.0, otsu * settings.threshWeight);

    if (settings.curved) {
        const double meanLight = cv::mean(background)[0];
        cv::Mat level;
        background.convertTo(level, CV_32F, meanLight > 0 ? 1.0 / meanLight : 0.0,
                             meanLight > 0 ? 0.0 : 1.0);
        level = cv::max(cv::min(level, kMaxLightScale), kMinLightScale) * out.threshold;
        cv::Mat flat;
        out.flattened.convertTo(flat, CV_32F);
        cv::compare(flat, level, out.binary, cv::CMP_GT);
    } else {
        cv::compare(out.flattened, out.threshold, out.binary, cv::CMP_GT);
    }

    const cv::Mat cross3 = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    if (settings.erodeCount > 0)
        cv::erode(out.binary, out.binary, cross3, cv::Point(-1, -1), settings.erodeCount);
    if (settings.edgeOnly) {
        // The inner boundary: structure pixels with a background neighbour.
        // The image frame is no neighbour, so a region cut by the border
        // has no edge along it.
        cv::Mat inner;
        cv::erode(out.binary, inner, cross3);
        cv::subtract(out.binary, inner, out.binary);
    }
    out.foreground = cv::countNonZero(out.binary);
    return out;
}

}  // namespace pixmill::filters

CBackgroundSubstractFilter::CBackgroundSubstractFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"BlurSize", 31, kMinBlur, kMaxBlur, 2));
    AddParam(new sorvik::Param<float>(L"ThreshWeight", 1.0f, kMinWeight, kMaxWeight, 0.1f));
    AddParam(new sorvik::Param<bool>(L"CurvedThresh", false));
    AddParam(new sorvik::Param<bool>(L"B/W", false));
    AddParam(new sorvik::Param<int>(L"ErodeCount", 0, 0, kMaxErode, 1));
    AddParam(new sorvik::Param<bool>(L"EdgeDetect", false));
}

void CBackgroundSubstractFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    pixmill::filters::BackgroundSettings settings;
    // Ranges are descriptive only; what a recipe writes is kept inside them.
    settings.blurSize = std::clamp(pixmill::ParamValue<int>(params, L"BlurSize", 31), kMinBlur,
                                   kMaxBlur) |
                        1;
    const float weight = pixmill::ParamValue<float>(params, L"ThreshWeight", 1.0f);
    settings.threshWeight = std::isfinite(weight) ? std::clamp(weight, kMinWeight, kMaxWeight) : 1.0;
    settings.curved = pixmill::ParamValue<bool>(params, L"CurvedThresh", false);
    settings.darkOnBright = pixmill::ParamValue<bool>(params, L"B/W", false);
    settings.erodeCount =
        std::clamp(pixmill::ParamValue<int>(params, L"ErodeCount", 0), 0, kMaxErode);
    settings.edgeOnly = pixmill::ParamValue<bool>(params, L"EdgeDetect", false);

    pixmill::filters::ResultList list;
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& src) {
            const cv::Mat gray = pixmill::filters::FocusInput(src, "BackgroundSubstractFilter");
            pixmill::filters::BackgroundResult r =
                pixmill::filters::SubtractBackground(gray, settings);
            pixmill::filters::AppendFormat(list.Next(),
                                           L"{\"threshold\":\"%.3f\",\"foreground\":\"%d\"}",
                                           r.threshold, r.foreground);
            return r.binary;
        });
    pixmill::filters::SetOutputImages(pins, results);
    m_result = list.Close();
}

void CBackgroundSubstractFilter::Trace() {
    LogW(1, L"BackgroundSubstractFilter");
}

PIXMILL_REGISTER_FILTER(L"BackgroundSubstractFilter", CBackgroundSubstractFilter);
