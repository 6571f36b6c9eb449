// The Tenengrad focus measure: the sum of the gradient magnitude rates the
// sharpness of a whole image, and the greatest local mean of the magnitude
// finds its sharpest neighbourhood.
#include "Filters/TenengradFocusFilter.h"

#include <algorithm>
#include <cstdarg>
#include <opencv2/imgproc.hpp>

#include "Filters/FocusInput.h"
#include "Filters/ImageLoop.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

namespace {

constexpr int kMinKernel = 1;
constexpr int kMaxKernel = 30;

// Appends a printf-formatted text with its numbers in the C locale.
void AppendFormat(std::wstring& text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring part;
    if (pixmill::platform::FormatWide(format, args, part)) text += part;
    va_end(args);
}

}  // namespace

namespace pixmill::filters {

TenengradMeasure MeasureTenengrad(const cv::Mat& gray, int kernel) {
    TenengradMeasure out;
    cv::Mat gx;
    cv::Mat gy;
    cv::Sobel(gray, gx, CV_64F, 1, 0, 3, 1.0, 0.0, cv::BORDER_REFLECT_101);
    cv::Sobel(gray, gy, CV_64F, 0, 1, 3, 1.0, 0.0, cv::BORDER_REFLECT_101);
    // sqrt(gx*gx + gy*gy) in one pass. The magnitude takes gx's place and
    // the local mean gy's: at camera size each fresh matrix of doubles is
    // 40 MB whose first touch costs more than the arithmetic on it.
    cv::magnitude(gx, gy, gx);
    const cv::Mat& m = gx;

    // The local mean over a box of side `kernel`; a side of 1 gives m itself.
    const cv::Mat box =
        cv::Mat::ones(kernel, kernel, CV_64F) / static_cast<double>(kernel * kernel);
    cv::Mat& local = gy;
    cv::filter2D(m, local, -1, box, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);

    cv::minMaxLoc(local, nullptr, &out.max, nullptr, &out.maxAt);
    // A flat image has no spread to stretch: min-max normalization then
    // gives an all-black picture.
    cv::Mat normalized;
    cv::normalize(local, normalized, 0.0, 255.0, cv::NORM_MINMAX, CV_8U);
    cv::cvtColor(normalized, out.picture, cv::COLOR_GRAY2BGR);
    cv::circle(out.picture, out.maxAt, kernel, cv::Scalar(0, 0, 255), 2, cv::LINE_8);

    out.tenengrad = cv::sum(m)[0];
    out.mean = cv::mean(local)[0];
    return out;
}

}  // namespace pixmill::filters

CTenengradFocusFilter::CTenengradFocusFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Kernel", 10, kMinKernel, kMaxKernel, 1));
}

void CTenengradFocusFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    // The range is descriptive only; a recipe's 0 or 1000 is kept inside it
    // so the box and the mark stay meaningful.
    const int kernel =
        std::clamp(pixmill::ParamValue<int>(params, L"Kernel", 10), kMinKernel, kMaxKernel);

    std::wstring text = L"[";
    std::vector<cv::Mat> pictures;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (cv::Mat* image : pin->GetImage()) {
            const cv::Mat gray =
                pixmill::filters::FocusInput(image ? *image : cv::Mat(), "TenengradFocusFilter");
            pixmill::filters::TenengradMeasure measure =
                pixmill::filters::MeasureTenengrad(gray, kernel);
            AppendFormat(text, L"{\"tenengrad\":\"%f\", \"mean\":\"%f\", \"max\":\"%f\" },",
                         measure.tenengrad, measure.mean, measure.max);
            pictures.push_back(std::move(measure.picture));
        }
    }
    // The comma after the last object closes the list; without images the
    // list is closed as it stands.
    if (text.back() == L',') {
        text.back() = L']';
    } else {
        text += L']';
    }
    pixmill::filters::SetOutputImages(pins, pictures);
    m_result = text;
}

void CTenengradFocusFilter::Trace() {
    LogW(1, L"TenengradFocusFilter");
}

PIXMILL_REGISTER_FILTER(L"TenengradFocusFilter", CTenengradFocusFilter);
