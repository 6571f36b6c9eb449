// The multi-peak focus measure: the sharpest image of a focus series, rated
// on the strong edges of the series only.
#include "Filters/MultiPeakFocusMeasureFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "Filters/SizeLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
// The slope of the histogram at i is taken over this many bins.
constexpr int kSlopeSpan = 5;
constexpr int kLastSlope = 255 - kSlopeSpan;
// Six steps steeper than this make the descent from the peak.
constexpr double kSteepAngle = -80.0;
constexpr int kSteepSteps = 6;
// After the descent the tail begins where the slope is flatter than this or
// the bin falls below kTailBin.
constexpr double kFlatAngle = -5.0;
constexpr double kTailBin = 10.0;

constexpr int kChartWidth = 100;

void AppendFormat(std::wstring& text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring part;
    if (pixmill::platform::FormatWide(format, args, part)) text += part;
    va_end(args);
}

}  // namespace

namespace pixmill::filters {

cv::Mat FocusGradient(const cv::Mat& gray) {
    cv::Mat smooth;
    cv::GaussianBlur(gray, smooth, cv::Size(3, 3), 0, 0, cv::BORDER_REFLECT_101);
    cv::Mat dx;
    cv::Mat dy;
    cv::Sobel(smooth, dx, CV_16S, 1, 0, 3, 1.0, 0.0, cv::BORDER_REFLECT_101);
    cv::Sobel(smooth, dy, CV_16S, 0, 1, 3, 1.0, 0.0, cv::BORDER_REFLECT_101);
    cv::Mat ax;
    cv::Mat ay;
    cv::convertScaleAbs(dx, ax, 1.0, 0.0);
    cv::convertScaleAbs(dy, ay, 1.0, 0.0);
    cv::Mat gradient;
    cv::addWeighted(ax, 0.5, ay, 0.5, 0.0, gradient, -1);
    return gradient;
}

void AddToHistogram(const cv::Mat& gradient, GradientHistogram& histogram) {
    for (int y = 0; y < gradient.rows; ++y) {
        const uint8_t* row = gradient.ptr<uint8_t>(y);
        for (int x = 0; x < gradient.cols; ++x) histogram[row[x]] += 1.0;
    }
}

int GradientLevel(const GradientHistogram& histogram, int mode) {
    int peak = 0;
    double best = 0.0;
    for (int i = 0; i < 256; ++i) {
        if (histogram[i] > best) {
            best = histogram[i];
            peak = i;
        }
    }
    if (mode != 0) return peak;

    int tail = 0;
    int steep = 0;
    bool descended = false;
    for (int i = peak; i <= kLastSlope; ++i) {
        const double angle =
            std::atan(histogram[i + kSlopeSpan] - histogram[i]) * kDegreesPerRadian;
        if (angle < kSteepAngle) {
            if (++steep >= kSteepSteps) descended = true;
        } else {
            steep = 0;
        }
        if (descended && (angle > kFlatAngle || histogram[i] < kTailBin)) {
            tail = i;
            break;
        }
    }
    return (peak + tail) / 2;
}

MultiPeakFocus RateFocusSeries(const std::vector<cv::Mat>& gradients, int mode) {
    MultiPeakFocus out;
    if (gradients.empty()) return out;
    GradientHistogram histogram{};
    for (const cv::Mat& g : gradients) AddToHistogram(g, histogram);
    out.level = GradientLevel(histogram, mode);

    // The union over the series of the pixels above the level.
    cv::Mat mask = cv::Mat::zeros(gradients.front().size(), CV_8UC1);
    cv::Mat above;
    for (const cv::Mat& g : gradients) {
        cv::threshold(g, above, out.level, 255.0, cv::THRESH_BINARY);
        cv::bitwise_or(mask, above, mask);
    }
    // The mask holds 0 or 255, so the AND keeps the gradient where it is set.
    cv::Mat kept;
    double best = 0.0;
    for (size_t i = 0; i < gradients.size(); ++i) {
        cv::bitwise_and(gradients[i], mask, kept);
        const double value = cv::sum(kept)[0];
        out.values.push_back(value);
        if (value > best) {
            best = value;
            out.focusIndex = static_cast<int>(i);
        }
    }
    return out;
}

cv::Mat FocusChart(const std::vector<double>& values, int highlight) {
    const int64_t rows = 4 * static_cast<int64_t>(values.size()) + 8;
    CheckImageSize(kChartWidth, rows, 1, "MultiPeakFocusMeasureFilter: chart");
    cv::Mat chart = cv::Mat::zeros(static_cast<int>(rows), kChartWidth, CV_8UC1);
    const double greatest =
        values.empty() ? 0.0 : *std::max_element(values.begin(), values.end());
    if (!(greatest > 0.0)) return chart;
    for (size_t i = 0; i < values.size(); ++i) {
        const int length = cvRound(values[i] / greatest * kChartWidth);
        if (length <= 0) continue;
        const int top = 4 + 4 * static_cast<int>(i) + 1;
        const int gray = static_cast<int>(i) == highlight ? 255 : 128;
        cv::rectangle(chart, cv::Rect(0, top, length, 2), cv::Scalar(gray), cv::FILLED);
    }
    return chart;
}

}  // namespace pixmill::filters

CMultiPeakFocusMeasureFilter::CMultiPeakFocusMeasureFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Thresh Mode", 0, 0, 1, 1));
    AddParam(new sorvik::Param<bool>(L"Image Result"));
}

void CMultiPeakFocusMeasureFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    LogW(1, L"OptionRead");
    const int mode = pixmill::ParamValue<int>(params, L"Thresh Mode", 0);
    const bool chartResult = pixmill::ParamValue<bool>(params, L"Image Result", false);

    LogW(1, L"Get Input Image");
    std::vector<cv::Mat*> inputs;
    std::vector<cv::Mat> gradients;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (cv::Mat* image : pin->GetImage()) {
            const cv::Mat gray = pixmill::filters::FocusInput(image ? *image : cv::Mat(),
                                                              "MultiPeakFocusMeasureFilter");
            // One mask serves the whole series, so its images share one size.
            if (!gradients.empty() && gray.size() != gradients.front().size())
                throw std::invalid_argument(
                    "MultiPeakFocusMeasureFilter: the images of a series differ in size");
            gradients.push_back(pixmill::filters::FocusGradient(gray));
            inputs.push_back(image);
        }
    }
    if (gradients.empty()) return;

    const pixmill::filters::MultiPeakFocus focus =
        pixmill::filters::RateFocusSeries(gradients, mode);
    std::wstring text;
    AppendFormat(text, L"{ \"FocusIndex\":\"%d\",\"Values\":[", focus.focusIndex);
    for (size_t i = 0; i < focus.values.size(); ++i) {
        if (i > 0) text += L",";
        AppendFormat(text, L"{\"Num\":\"%d\", \"FocusValue\":\"%.1f\"}", static_cast<int>(i + 1),
                     focus.values[i]);
    }
    text += L"]}";

    LogW(1, L"Out convert");
    std::vector<cv::Mat> outputs;
    if (chartResult) {
        outputs.push_back(pixmill::filters::FocusChart(focus.values, focus.focusIndex));
    } else if (focus.focusIndex >= 0) {
        // A header only: the output pins make their own copies.
        outputs.push_back(*inputs[static_cast<size_t>(focus.focusIndex)]);
    }
    pixmill::filters::SetOutputImages(pins, outputs);
    m_result = text;
}

void CMultiPeakFocusMeasureFilter::Trace() {
    LogW(1, L"MultiPeakFocusMeasureFilter");
}

PIXMILL_REGISTER_FILTER(L"MultiPeakFocusMeasureFilter", CMultiPeakFocusMeasureFilter);
