#include "Filters/HistogramFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/ImageLoop.h"
#include "Filters/SizeLimit.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

// Bins of the histogram: one per level from 0 to 254.
constexpr int kBins = 255;

// The widest chart drawn.
constexpr int kMaxChartWidth = 4096;

// The two bar lists of one chart; the second may stay empty.
struct Measurements {
    std::vector<float> first;
    std::vector<float> second;
};

// Exchanges the diagonal quadrants of a spectrum around (cx, cy), which moves
// the zero frequency between the corner and the centre.
void SwapQuadrants(cv::Mat& m, int cx, int cy) {
    cv::Mat topLeft(m, cv::Rect(0, 0, cx, cy));
    cv::Mat topRight(m, cv::Rect(cx, 0, cx, cy));
    cv::Mat bottomLeft(m, cv::Rect(0, cy, cx, cy));
    cv::Mat bottomRight(m, cv::Rect(cx, cy, cx, cy));
    cv::Mat t;
    topLeft.copyTo(t);
    bottomRight.copyTo(topLeft);
    t.copyTo(bottomRight);
    topRight.copyTo(t);
    bottomLeft.copyTo(topRight);
    t.copyTo(bottomLeft);
}

// How much detail the image holds: the lowest frequencies (the mean level
// and the slowest shading) are replaced by a token value, the image is
// transformed back, and the mean of 20 ln |x| over it is the measure. 0 for
// an image with nothing left. One-channel images only; images smaller than
// 2 by 2 are refused.
float SpectralMeasure(const cv::Mat& src) {
    LogW(1, L"Direct transform...");
    const int cx = src.cols / 2;
    const int cy = src.rows / 2;
    cv::Mat floating;
    src.convertTo(floating, CV_32F);
    cv::Mat spectrum;
    cv::dft(floating, spectrum, cv::DFT_SCALE | cv::DFT_COMPLEX_OUTPUT);

    SwapQuadrants(spectrum, cx, cy);
    spectrum(cv::Rect(cx - 1, cy - 1, 2, 2)).setTo(cv::Scalar(1, 1));
    SwapQuadrants(spectrum, cx, cy);

    LogW(1, L"Inverse transform...");
    cv::Mat filtered;
    cv::dft(spectrum, filtered, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT);
    const cv::Mat magnitude = cv::abs(filtered);
    double greatest = 0;
    cv::minMaxLoc(magnitude, nullptr, &greatest);
    if (!(greatest > 0)) return 0.0f;
    cv::Mat logs;
    cv::log(magnitude, logs);
    logs.convertTo(logs, -1, 20.0);
    return static_cast<float>(cv::mean(logs)[0]);
}

// Measures one image by `display` and appends to the lists.
void Measure(const cv::Mat& src, int display, Measurements& out) {
    // An empty image has no pixels to count, and its mean would divide by 0.
    if (src.empty()) throw std::invalid_argument("HistogramFilter: empty image");

    const int channels[] = {0};
    const int histSize[] = {kBins};
    const float range[] = {0.0f, static_cast<float>(kBins)};
    const float* ranges[] = {range};
    cv::Mat hist;
    cv::calcHist(&src, 1, channels, cv::Mat(), hist, 1, histSize, ranges, true, false);

    int64_t sum = 0;
    int lowest = kBins;
    int highest = 0;
    for (int bin = 0; bin < kBins; ++bin) {
        const int64_t count = static_cast<int64_t>(hist.at<float>(bin));
        if (count <= 0) continue;
        sum += count * bin;
        lowest = std::min(lowest, bin);
        highest = std::max(highest, bin);
    }

    const int64_t pixels = static_cast<int64_t>(src.total());
    switch (display) {
        case 2:
            out.first.push_back(static_cast<float>(lowest));
            out.second.push_back(static_cast<float>(highest));
            break;
        case 3:
            out.first.push_back(static_cast<float>(highest - lowest));
            break;
        case 4:
            out.first.push_back(SpectralMeasure(src));
            break;
        default: {
            // The mean is taken in whole levels, as the bins are.
            const float mean = static_cast<float>(sum / pixels);
            float variance = 0.0f;
            for (int bin = 0; bin < kBins; ++bin) {
                const int64_t count = static_cast<int64_t>(hist.at<float>(bin));
                if (count > 0) variance += static_cast<float>(count * std::pow(bin - mean, 2));
            }
            // A one-pixel image gives 0 / 0 here: the bar is then left out.
            out.first.push_back(mean);
            out.second.push_back(variance / static_cast<float>(pixels - 1));
            break;
        }
    }
}

// Draws one bar per value at `gray`, from the left edge, in the second and
// third row of each band of 4. The largest finite magnitude spans the width,
// so one value without a measure (the NaN variance of a one-pixel image)
// costs only its own bar; a bar that is 0 or less, or that has no finite
// length, is not drawn.
void DrawBars(cv::Mat& chart, const std::vector<float>& values, int gray) {
    double span = 0.0;
    for (float v : values)
        if (std::isfinite(v)) span = std::max(span, std::fabs(static_cast<double>(v)));
    const double scale = chart.cols / span;
    for (size_t i = 0; i < values.size(); ++i) {
        const double length = values[i] * scale;
        if (!std::isfinite(length)) continue;
        cv::rectangle(chart, cv::Rect(0, static_cast<int>(4 * i + 1), cvRound(length), 2),
                      cv::Scalar(gray), cv::FILLED);
    }
}

cv::Mat Chart(const Measurements& m, int ratio) {
    const int64_t rows = 4 * static_cast<int64_t>(m.first.size()) + 8;
    pixmill::filters::CheckImageSize(ratio, rows, 1, "HistogramFilter: Ratio");
    cv::Mat chart = cv::Mat::zeros(static_cast<int>(rows), ratio, CV_8UC1);
    DrawBars(chart, m.first, 255);
    // Drawn second, so a shorter gray bar shows over the white one.
    if (!m.second.empty()) DrawBars(chart, m.second, 100);
    return chart;
}

}  // namespace

CHistogramFilter::CHistogramFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // ID is kept for recipes that set it; nothing reads it.
    AddParam(new sorvik::Param<int>(L"ID", 1, 1, 1, 1));
    AddParam(new sorvik::Param<int>(L"Display", 1, 1, 4, 1));
    AddParam(new sorvik::Param<int>(L"Ratio", 100, 10, 256, 1));
}

void CHistogramFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int display = pixmill::ParamValue<int>(params, L"Display", 1);
    const int ratio = pixmill::ParamValue<int>(params, L"Ratio", 100);
    // Ratio is the chart's width in pixels: its bars need no more than a
    // screen's width, and every extra column is drawn and copied.
    pixmill::filters::CheckAmount(ratio, kMaxChartWidth, "HistogramFilter: Ratio",
                                  "the widest chart the bars can use");

    std::wstring result = L"{";
    std::vector<cv::Mat> charts;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        Measurements measurements;
        for (cv::Mat* image : pin->GetImage())
            Measure(image ? *image : cv::Mat(), display, measurements);
        result += L"}";
        if (!measurements.first.empty()) charts.push_back(Chart(measurements, ratio));
    }
    pixmill::filters::SetOutputImages(pins, charts);
    m_result = result;
}

void CHistogramFilter::Trace() {
    LogW(1, L"HistogramFilter");
}

PIXMILL_REGISTER_FILTER(L"HistogramFilter", CHistogramFilter);
