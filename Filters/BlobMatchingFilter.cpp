// Masked template matching for recipes: the shared masked matcher scores
// every placement, and the best ones are taken in turn with the scores
// around each find removed.
#include "Filters/BlobMatchingFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/PeakSearch.h"
#include "Filters/ResultList.h"
#include "framework/FilterRegistry.h"
#include "inspect/pattern/MatchTemplateMask.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

constexpr int kMaxCount = 100;
constexpr int kMaxDistance = 4096;

// The name under which the matcher's assertions report this filter.
constexpr pixmill::inspect::pattern::MatchCaller kCaller{"CBlobMatchingFilter::matchTemplateMask",
                                                         "Filters/BlobMatchingFilter"};

// The first image of the input pin with `key`, or an empty Mat.
cv::Mat FirstImage(const std::vector<IPin*>& pins, int key) {
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != key) continue;
        for (cv::Mat* image : pin->GetImage())
            if (image) return *image;
    }
    return cv::Mat();
}

}  // namespace

namespace pixmill::filters {

std::vector<BlobMatch> MatchBlobs(const cv::Mat& image, const cv::Mat& templ, const cv::Mat& mask,
                                  int maxCount, double minScore, cv::Size minDistance) {
    cv::Mat scores;
    inspect::pattern::matchTemplateMask(image, templ, scores, mask, kCaller);
    // Undefined placements (no variance under the mask) never win, and a
    // removed neighbourhood is marked the same way.
    constexpr float kGone = -std::numeric_limits<float>::infinity();
    cv::patchNaNs(scores, kGone);
    // The map before removals, so a refinement next to an earlier find
    // still sees its true neighbours.
    const cv::Mat original = scores.clone();
    const cv::Point2d half((templ.cols - 1) / 2.0, (templ.rows - 1) / 2.0);

    std::vector<BlobMatch> found;
    while (static_cast<int>(found.size()) < maxCount) {
        double best = 0;
        cv::Point at;
        cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
        if (!(best >= minScore) || !std::isfinite(best)) break;
        const cv::Point2d corner = RefinePeak(original, at);
        found.push_back({corner + half, best});
        const cv::Rect around(at.x - minDistance.width + 1, at.y - minDistance.height + 1,
                              2 * minDistance.width - 1, 2 * minDistance.height - 1);
        // The peak itself always goes, even with a distance of 1.
        scores(around & cv::Rect(0, 0, scores.cols, scores.rows)).setTo(kGone);
        scores.at<float>(at) = kGone;
    }
    return found;
}

}  // namespace pixmill::filters

CBlobMatchingFilter::CBlobMatchingFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Template", 2, false);
    AddPin(L"Mask", 3, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"MaxCount", 1, 1, kMaxCount, 1));
    AddParam(new sorvik::Param<float>(L"MinScore", 0.7f, -1.0f, 1.0f, 0.01f));
    AddParam(new sorvik::Param<int>(L"MinDistance", 0, 0, kMaxDistance, 1));
}

void CBlobMatchingFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int maxCount = std::clamp(pixmill::ParamValue<int>(params, L"MaxCount", 1), 1, kMaxCount);
    const float score = pixmill::ParamValue<float>(params, L"MinScore", 0.7f);
    const double minScore = std::isfinite(score) ? std::clamp(score, -1.0f, 1.0f) : 0.7;
    const int distance =
        std::clamp(pixmill::ParamValue<int>(params, L"MinDistance", 0), 0, kMaxDistance);

    const cv::Mat templRaw = FirstImage(pins, 2);
    if (templRaw.empty()) throw std::invalid_argument("BlobMatchingFilter: no template image");
    const cv::Mat templ = pixmill::filters::FocusInput(templRaw, "BlobMatchingFilter");
    const cv::Mat maskRaw = FirstImage(pins, 3);
    const cv::Mat mask = maskRaw.empty()
                             ? cv::Mat(templ.size(), CV_8UC1, cv::Scalar(255))
                             : pixmill::filters::FocusInput(maskRaw, "BlobMatchingFilter");
    const cv::Size minDistance = distance > 0 ? cv::Size(distance, distance)
                                              : cv::Size(std::max(1, templ.cols / 2),
                                                         std::max(1, templ.rows / 2));

    pixmill::filters::ResultList list;
    std::vector<cv::Mat> pictures;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (cv::Mat* raw : pin->GetImage()) {
            const cv::Mat image =
                pixmill::filters::FocusInput(raw ? *raw : cv::Mat(), "BlobMatchingFilter");
            const std::vector<pixmill::filters::BlobMatch> found =
                pixmill::filters::MatchBlobs(image, templ, mask, maxCount, minScore, minDistance);
            cv::Mat picture;
            cv::cvtColor(image, picture, cv::COLOR_GRAY2BGR);
            std::wstring& text = list.Next();
            pixmill::filters::AppendFormat(text, L"{\"Count\":\"%d\",\"Blobs\":[",
                                           static_cast<int>(found.size()));
            for (size_t k = 0; k < found.size(); ++k) {
                const pixmill::filters::BlobMatch& m = found[k];
                pixmill::filters::AppendFormat(
                    text, L"%ls{\"X\":\"%.3f\",\"Y\":\"%.3f\",\"Score\":\"%.3f\"}",
                    k ? L"," : L"", m.centre.x, m.centre.y, m.score);
                const cv::Point corner(cvRound(m.centre.x - (templ.cols - 1) / 2.0),
                                       cvRound(m.centre.y - (templ.rows - 1) / 2.0));
                cv::rectangle(picture, cv::Rect(corner, templ.size()), cv::Scalar(0, 255, 0), 1);
            }
            text += L"]}";
            pictures.push_back(picture);
        }
    }
    pixmill::filters::SetOutputImages(pins, pictures);
    m_result = list.Close();
}

void CBlobMatchingFilter::Trace() {
    LogW(1, L"BlobMatchingFilter");
}

PIXMILL_REGISTER_FILTER(L"BlobMatchingFilter", CBlobMatchingFilter);
