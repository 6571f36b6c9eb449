// Alignment that does not need focus. Defocus removes the fine texture of
// a scene and keeps its large structures, so both images are smoothed to a
// common band, and the middle of the reference is matched in the image
// with the shared masked matcher, its mask weighting the edges of those
// structures over flat areas where only noise differs.
#include "Filters/FocusingFreeAlignFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "Filters/PeakSearch.h"
#include "Filters/ResultList.h"
#include "framework/FilterRegistry.h"
#include "inspect/pattern/MatchTemplateMask.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

constexpr float kMaxSigma = 20.0f;
constexpr int kMaxShift = 256;
constexpr int kMinSide = 24;
// A mask that keeps less of the template than this share is too thin to
// carry a score; the whole template counts instead.
constexpr double kMinMaskShare = 0.05;

// The name under which the matcher's assertions report this filter.
constexpr pixmill::inspect::pattern::MatchCaller kCaller{
    "CFocusingFreeAlignFilter::matchTemplateMask", "Filters/FocusingFreeAlignFilter"};

cv::Mat Smoothed(const cv::Mat& gray, double sigma) {
    cv::Mat out;
    gray.convertTo(out, CV_32F);
    if (sigma > 0) cv::GaussianBlur(out, out, cv::Size(0, 0), sigma, sigma, cv::BORDER_REFLECT);
    return out;
}

// 255 where the template has structure: its gradient magnitude, spread by
// about sigma, above its mean.
cv::Mat StructureMask(const cv::Mat& templ, double sigma) {
    cv::Mat gx, gy, magnitude;
    cv::Sobel(templ, gx, CV_32F, 1, 0, 3);
    cv::Sobel(templ, gy, CV_32F, 0, 1, 3);
    cv::magnitude(gx, gy, magnitude);
    const int reach = 2 * static_cast<int>(std::ceil(sigma)) + 1;
    cv::dilate(magnitude, magnitude,
               cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(reach, reach)));
    cv::Mat mask;
    cv::compare(magnitude, cv::mean(magnitude)[0], mask, cv::CMP_GT);
    if (cv::countNonZero(mask) < kMinMaskShare * static_cast<double>(mask.total()))
        mask.setTo(255);
    return mask;
}

}  // namespace

namespace pixmill::filters {

FocusFreeOffset AlignOutOfFocus(const cv::Mat& image, const cv::Mat& reference, double sigma,
                                int maxShift) {
    const int shift = std::max(1, FittingShift(maxShift, reference.size()));
    const cv::Mat smoothImage = Smoothed(image, sigma);
    const cv::Mat smoothReference = Smoothed(reference, sigma);
    const cv::Mat templ =
        smoothReference(cv::Rect(shift, shift, reference.cols - 2 * shift, reference.rows - 2 * shift));
    const cv::Mat mask = StructureMask(templ, sigma);

    cv::Mat scores;
    inspect::pattern::matchTemplateMask(smoothImage, templ, scores, mask, kCaller);
    cv::patchNaNs(scores, -std::numeric_limits<float>::infinity());
    FocusFreeOffset out;
    cv::Point at;
    cv::minMaxLoc(scores, nullptr, &out.score, nullptr, &at);
    if (!std::isfinite(out.score)) {
        // No offset had a defined score (a flat picture): nothing to align.
        out.score = -1.0;
        return out;
    }
    const cv::Point2d refined = RefinePeak(scores, at);
    out.offset = cv::Point2d(refined.x - shift, refined.y - shift);
    return out;
}

}  // namespace pixmill::filters

CFocusingFreeAlignFilter::CFocusingFreeAlignFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Reference", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<float>(L"Sigma", 4.0f, 0.0f, kMaxSigma, 0.5f));
    AddParam(new sorvik::Param<int>(L"MaxShift", 32, 1, kMaxShift, 1));
    AddParam(new sorvik::Param<float>(L"MinScore", 0.3f, -1.0f, 1.0f, 0.01f));
}

void CFocusingFreeAlignFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const float sigmaText = pixmill::ParamValue<float>(params, L"Sigma", 4.0f);
    const double sigma = std::isfinite(sigmaText) ? std::clamp(sigmaText, 0.0f, kMaxSigma) : 4.0;
    const int maxShift = std::clamp(pixmill::ParamValue<int>(params, L"MaxShift", 32), 1, kMaxShift);
    const float scoreText = pixmill::ParamValue<float>(params, L"MinScore", 0.3f);
    const double minScore = std::isfinite(scoreText) ? std::clamp(scoreText, -1.0f, 1.0f) : 0.3;

    const pixmill::filters::PairedInputs inputs(pins);
    if (inputs.second.empty())
        throw std::invalid_argument("FocusingFreeAlignFilter: no reference image");

    pixmill::filters::ResultList list;
    std::vector<cv::Mat> results;
    for (size_t i = 0; i < inputs.first.size(); ++i) {
        const cv::Mat image =
            pixmill::filters::FocusInput(inputs.first[i], "FocusingFreeAlignFilter");
        const cv::Mat reference = pixmill::filters::FocusInput(
            i < inputs.second.size() ? inputs.second[i] : inputs.second.back(),
            "FocusingFreeAlignFilter");
        if (reference.size() != image.size())
            throw std::invalid_argument(
                "FocusingFreeAlignFilter: the reference differs in size from the image");
        if (std::min(image.cols, image.rows) < kMinSide)
            throw std::invalid_argument("FocusingFreeAlignFilter: image too small to align");
        pixmill::filters::FocusFreeOffset a =
            pixmill::filters::AlignOutOfFocus(image, reference, sigma, maxShift);
        const bool found = a.score >= minScore;
        if (!found) a.offset = cv::Point2d(0, 0);
        pixmill::filters::AppendFormat(
            list.Next(), L"{\"dx\":\"%.3f\",\"dy\":\"%.3f\",\"score\":\"%.3f\",\"found\":\"%ls\"}",
            a.offset.x, a.offset.y, a.score, found ? L"true" : L"false");
        results.push_back(found ? pixmill::filters::MoveImage(image, -a.offset.x, -a.offset.y)
                                : image.clone());
    }
    pixmill::filters::SetOutputImages(pins, results);
    m_result = list.Close();
}

void CFocusingFreeAlignFilter::Trace() {
    LogW(1, L"FocusingFreeAlignFilter");
}

PIXMILL_REGISTER_FILTER(L"FocusingFreeAlignFilter", CFocusingFreeAlignFilter);
