// Pattern subtraction: the middle of the reference is found in the image by
// normalised correlation, the reference is moved by the offset found, and
// the absolute difference keeps only what the two do not share.
#include "Filters/BackgroundPatternSubstractFilter.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "Filters/PeakSearch.h"
#include "Filters/ResultList.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

constexpr int kMaxShift = 128;
// Below this smaller side the search window would be a few pixels wide and
// its peak meaningless: such images are compared where they lie.
constexpr int kMinSearchSide = 16;

}  // namespace

namespace pixmill::filters {

PatternDifference SubtractPattern(const cv::Mat& image, const cv::Mat& reference, int maxShift,
                                  bool normalize) {
    PatternDifference out;
    const int shift = std::min(image.cols, image.rows) < kMinSearchSide
                          ? 0
                          : FittingShift(maxShift, image.size());
    if (shift > 0) {
        const cv::Rect middle(shift, shift, reference.cols - 2 * shift,
                              reference.rows - 2 * shift);
        cv::Mat scores;
        cv::matchTemplate(image, reference(middle), scores, cv::TM_CCOEFF_NORMED);
        // A flat window or template gives no score; it must not win.
        cv::patchNaNs(scores, -2.0);
        double best = 0;
        cv::Point at;
        cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
        const cv::Point2d refined = RefinePeak(scores, at);
        out.offset = cv::Point2d(refined.x - shift, refined.y - shift);
        out.score = best;
    }

    cv::Mat ref = reference;
    if (normalize) {
        cv::Scalar imageMean, imageSpread, refMean, refSpread;
        cv::meanStdDev(image, imageMean, imageSpread);
        cv::meanStdDev(reference, refMean, refSpread);
        // A flat reference has no spread to stretch: only its level moves.
        const double gain = refSpread[0] > 0 ? imageSpread[0] / refSpread[0] : 1.0;
        reference.convertTo(ref, CV_8U, gain, imageMean[0] - gain * refMean[0]);
    }
    cv::Mat covered;
    const cv::Mat moved = MoveImage(ref, out.offset.x, out.offset.y, &covered);
    cv::absdiff(image, moved, out.difference);
    out.difference.setTo(0, covered == 0);
    return out;
}

}  // namespace pixmill::filters

CBackgroundPatternSubstractFilter::CBackgroundPatternSubstractFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Reference", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"MaxShift", 16, 0, kMaxShift, 1));
    AddParam(new sorvik::Param<int>(L"Threshold", 0, 0, 255, 1));
    AddParam(new sorvik::Param<bool>(L"Normalize", false));
}

void CBackgroundPatternSubstractFilter::Proc(std::vector<IPin*> pins,
                                             std::vector<IParam*> params) {
    Trace();
    const int maxShift = std::clamp(pixmill::ParamValue<int>(params, L"MaxShift", 16), 0, kMaxShift);
    const int threshold = std::clamp(pixmill::ParamValue<int>(params, L"Threshold", 0), 0, 255);
    const bool normalize = pixmill::ParamValue<bool>(params, L"Normalize", false);

    const pixmill::filters::PairedInputs inputs(pins);
    if (inputs.second.empty())
        throw std::invalid_argument("BackgroundPatternSubstractFilter: no reference image");

    pixmill::filters::ResultList list;
    std::vector<cv::Mat> results;
    for (size_t i = 0; i < inputs.first.size(); ++i) {
        const cv::Mat image =
            pixmill::filters::FocusInput(inputs.first[i], "BackgroundPatternSubstractFilter");
        const cv::Mat reference = pixmill::filters::FocusInput(
            i < inputs.second.size() ? inputs.second[i] : inputs.second.back(),
            "BackgroundPatternSubstractFilter");
        if (reference.size() != image.size())
            throw std::invalid_argument(
                "BackgroundPatternSubstractFilter: the reference differs in size from the image");
        pixmill::filters::PatternDifference d =
            pixmill::filters::SubtractPattern(image, reference, maxShift, normalize);
        if (threshold > 0)
            cv::threshold(d.difference, d.difference, threshold, 255, cv::THRESH_BINARY);
        pixmill::filters::AppendFormat(list.Next(),
                                       L"{\"dx\":\"%.3f\",\"dy\":\"%.3f\",\"score\":\"%.3f\"}",
                                       d.offset.x, d.offset.y, d.score);
        results.push_back(d.difference);
    }
    pixmill::filters::SetOutputImages(pins, results);
    m_result = list.Close();
}

void CBackgroundPatternSubstractFilter::Trace() {
    LogW(1, L"BackgroundPatternSubstractFilter");
}

PIXMILL_REGISTER_FILTER(L"BackgroundPatternSubstractFilter", CBackgroundPatternSubstractFilter);
