// The LCT brightness: the mean level of a large bright area, without the
// marks that stand on it.
#include "Filters/LCTGetBrightFilter.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "enhance/Enhance.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

constexpr int kBlurSide = 21;
constexpr double kAreaLevel = 50.0;
// The area must span this share of the image in each axis.
constexpr double kMinAreaShare = 0.5;
// The measured rectangle is the area less this many pixels in each axis,
// half of it on each side, clear of the area's blurred rim.
constexpr int kRimPixels = 50;
constexpr int kCloseSide = 9;

// Marks count as standing out when the flattened image departs from its flat
// level of 128 by more than this, or by more than Otsu's split on their side
// when that is smaller.
constexpr int kMarkContrast = 10;
// The gain of the flattening: the response of EnhanceImage grows with sigma,
// and at 4 a mark of a few tens of gray levels at the sigma's scale
// saturates, so Otsu's split falls between marks and background instead of
// inside the marks' soft rims.
constexpr float kEnhanceGain = 4.0f;

struct MarkScale {
    double sigma;
    int growSide;
};

MarkScale ScaleFor(bool highCamera) {
    return highCamera ? MarkScale{17.0, 9} : MarkScale{8.5, 5};
}

cv::Mat Rectangular(int side) {
    return cv::getStructuringElement(cv::MORPH_RECT, cv::Size(side, side));
}

// The largest component of the thresholded, closed image, by bounding box
// area; the first of equals wins. Empty when there is none.
cv::Rect LargestBrightArea(const cv::Mat& gray) {
    cv::Mat blurred;
    cv::blur(gray, blurred, cv::Size(kBlurSide, kBlurSide), cv::Point(-1, -1));
    cv::Mat bright;
    cv::threshold(blurred, bright, kAreaLevel, 255.0, cv::THRESH_BINARY);
    cv::morphologyEx(bright, bright, cv::MORPH_CLOSE, Rectangular(kCloseSide), cv::Point(-1, -1),
                     1);
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centroids;
    const int count = cv::connectedComponentsWithStats(bright, labels, stats, centroids);
    cv::Rect best;
    int64_t bestArea = 0;
    for (int label = 1; label < count; ++label) {
        const cv::Rect box(stats.at<int>(label, cv::CC_STAT_LEFT),
                           stats.at<int>(label, cv::CC_STAT_TOP),
                           stats.at<int>(label, cv::CC_STAT_WIDTH),
                           stats.at<int>(label, cv::CC_STAT_HEIGHT));
        const int64_t area = static_cast<int64_t>(box.width) * box.height;
        if (area > bestArea) {
            bestArea = area;
            best = box;
        }
    }
    return best;
}

// 255 where the flattened image stands out, dark or bright.
cv::Mat Marks(const cv::Mat& gray, double sigma) {
    const cv::Mat flat = pixmill::filters::MultiScaleEnhance(gray, sigma);
    cv::Mat bright(flat.size(), CV_8UC1);
    cv::Mat dark(flat.size(), CV_8UC1);
    pixmill::Enhance_Threshold_Otsu(flat.data, bright.data, flat.cols, flat.rows, true,
                                    128 + kMarkContrast);
    pixmill::Enhance_Threshold_Otsu(flat.data, dark.data, flat.cols, flat.rows, false,
                                    128 - kMarkContrast);
    cv::Mat marks;
    cv::bitwise_or(bright, dark, marks);
    return marks;
}

}  // namespace

namespace pixmill::filters {

double EnhanceReduction(double sigma) {
    double factor = 1.0;
    if (sigma > 20.0) {
        factor = 0.25;
    } else if (sigma > 15.0) {
        factor = 0.4;
    } else if (sigma > 10.0) {
        factor = 0.5;
    }
    return std::clamp(factor, 0.15, 2.0);
}

cv::Mat MultiScaleEnhance(const cv::Mat& gray, double sigma) {
    const double factor = EnhanceReduction(sigma);
    cv::Mat small;
    if (factor == 1.0) {
        small = gray.isContinuous() ? gray : gray.clone();
    } else {
        const cv::Size reduced(std::max(1, cvRound(gray.cols * factor)),
                               std::max(1, cvRound(gray.rows * factor)));
        cv::resize(gray, small, reduced, 0, 0, cv::INTER_AREA);
    }
    cv::Mat enhanced(small.size(), CV_8UC1);
    pixmill::EnhanceImage(small.data, enhanced.data, small.cols, small.rows, 0,
                          static_cast<float>(sigma * factor), kEnhanceGain);
    if (factor == 1.0) return enhanced;
    cv::Mat full;
    cv::resize(enhanced, full, gray.size(), 0, 0, cv::INTER_LINEAR);
    return full;
}

LctBrightness MeasureLctBrightness(const cv::Mat& gray, bool highCamera) {
    LctBrightness out;
    const cv::Rect area = LargestBrightArea(gray);
    const int minWidth = static_cast<int>(gray.cols * kMinAreaShare);
    const int minHeight = static_cast<int>(gray.rows * kMinAreaShare);
    if (area.empty() || area.width < minWidth || area.height < minHeight) return out;
    out.area = area;
    const int width = area.width - kRimPixels;
    const int height = area.height - kRimPixels;
    // An area of 50 pixels or less in an axis leaves nothing to measure.
    if (width <= 0 || height <= 0) return out;
    out.measured = cv::Rect(area.x + kRimPixels / 2, area.y + kRimPixels / 2, width, height);

    const MarkScale scale = ScaleFor(highCamera);
    cv::Mat keep;
    cv::morphologyEx(Marks(gray, scale.sigma), keep, cv::MORPH_DILATE, Rectangular(scale.growSide));
    cv::bitwise_not(keep, keep);
    // A mask that keeps nothing gives a mean of 0.
    out.bright = cv::mean(gray(out.measured), keep(out.measured))[0];
    return out;
}

}  // namespace pixmill::filters

CLCTGetBrightFilter::CLCTGetBrightFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // The flag form records the default only; the value starts at it too, so
    // a recipe that does not name HighCamera measures as the high camera.
    auto* highCamera = AddParam(new sorvik::Param<bool>(L"HighCamera", true));
    highCamera->value = true;
}

void CLCTGetBrightFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool highCamera = pixmill::ParamValue<bool>(params, L"HighCamera", true);
    std::vector<cv::Mat> pictures;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (cv::Mat* image : pin->GetImage()) {
            const cv::Mat gray =
                pixmill::filters::FocusInput(image ? *image : cv::Mat(), "LCTGetBrightFilter");
            const pixmill::filters::LctBrightness measure =
                pixmill::filters::MeasureLctBrightness(gray, highCamera);
            SetResult(L"{\"Bright\":%.1f}", measure.bright);
            cv::Mat picture;
            cv::cvtColor(gray, picture, cv::COLOR_GRAY2BGR);
            if (!measure.area.empty())
                cv::rectangle(picture, measure.area, cv::Scalar(0, 255, 0), 1, cv::LINE_8);
            if (!measure.measured.empty())
                cv::rectangle(picture, measure.measured, cv::Scalar(0, 0, 255), 1, cv::LINE_8);
            pictures.push_back(std::move(picture));
        }
    }
    pixmill::filters::SetOutputImages(pins, pictures);
}

void CLCTGetBrightFilter::Trace() {
    LogW(1, L"LCTGetBrightFilter");
}

PIXMILL_REGISTER_FILTER(L"LCTGetBrightFilter", CLCTGetBrightFilter);
