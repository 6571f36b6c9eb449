#include "Filters/FindMarkCenterFilter.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "Filters/SizeLimit.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

namespace {

constexpr int kAccepted = 0;
constexpr int kRefused = -1;

// The outer contours of the image thresholded at `threshold` and shaped by
// the morphology operation with `element`.
std::vector<std::vector<cv::Point>> MarkContours(const cv::Mat& image, int threshold, bool invert, int operation,
                                                 const cv::Mat& element) {
    cv::Mat binary;
    cv::threshold(image, binary, threshold, 255, cv::THRESH_BINARY);
    if (invert) cv::bitwise_not(binary, binary);
    cv::morphologyEx(binary, binary, operation, element, cv::Point(-1, -1), 1);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(binary, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    return contours;
}

}  // namespace

CFindMarkCenterFilter::CFindMarkCenterFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"radius", 0, 0, 1000, 10));
    AddParam(new sorvik::Param<int>(L"minSize", 0, 0, 1000, 10));
    AddParam(new sorvik::Param<int>(L"maxSize", 0, 0, 1000, 10));
    AddParam(new sorvik::Param<bool>(L"invert"));
    AddParam(new sorvik::Param<int>(L"threshold", 70, 0, 255, 1));
    AddParam(new sorvik::Param<int>(L"filterSize", 1, 1, 33, 2));
    AddParam(new sorvik::Param<int>(L"morphology", 0, 0, 1, 1));
}

void CFindMarkCenterFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int radius = pixmill::ParamValue<int>(params, L"radius", 0);
    const int minSize = pixmill::ParamValue<int>(params, L"minSize", 0);
    const int maxSize = pixmill::ParamValue<int>(params, L"maxSize", 0);
    const bool invert = pixmill::ParamValue<bool>(params, L"invert", false);
    int threshold = pixmill::ParamValue<int>(params, L"threshold", 70);
    const int filterSize = pixmill::ParamValue<int>(params, L"filterSize", 1);
    // Closing joins a mark broken by texture; the gradient (morphology 1)
    // keeps only the mark's rim. Other values close.
    const int operation =
        pixmill::ParamValue<int>(params, L"morphology", 0) == 1 ? cv::MORPH_GRADIENT : cv::MORPH_CLOSE;

    std::vector<cv::Mat> outputs;
    std::wstring text;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        pin::RequireGray8(image, "FindMarkCenterFilter");
        // A square element wider than twice the image's larger side reaches
        // every pixel from every pixel already: larger sizes are refused, as
        // are sizes whose work exceeds the bound; sizes below 1 are taken as
        // 1 (no effect).
        pixmill::filters::CheckWindow(filterSize, image, true, "FindMarkCenterFilter: filterSize");
        const int side = std::clamp(filterSize, 1, 2 * std::max(image.rows, image.cols) + 1);
        pixmill::filters::CheckImageSize(side, side, 1, "FindMarkCenterFilter: filterSize");
        const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(side, side), cv::Point(-1, -1));

        auto contours = MarkContours(image, threshold, invert, operation, element);
        if (contours.empty()) {
            // One more try, lower and without inversion; the lowered level
            // stays for the run's following images.
            threshold = pin::CutToInt(threshold * 0.8);
            contours = MarkContours(image, threshold, false, operation, element);
        }

        bool found = false;
        cv::Point2f centre;
        float kept = 0.0f;
        double nearest = 99999.0;
        for (const auto& contour : contours) {
            cv::Point2f c;
            float r = 0.0f;
            cv::minEnclosingCircle(contour, c, r);
            const double difference = std::fabs(static_cast<double>(r) - radius);
            if (difference < nearest) {
                nearest = difference;
                centre = c;
                kept = r;
                found = true;
            }
        }

        cv::Mat colour;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        const bool accepted = found && minSize <= kept && kept <= maxSize;
        if (accepted) {
            const cv::Point c(cvRound(centre.x), cvRound(centre.y));
            cv::circle(colour, c, cvRound(kept), cv::Scalar(0, 255, 0), 3, cv::LINE_8);
            cv::circle(colour, c, 2, cv::Scalar(0, 0, 255), 2, cv::LINE_8);
            text += pin::Format(L"{\"centerX\":\"%f\"}{\"centerY\":\"%f\"}{\"radius\":\"%f\"}",
                                static_cast<double>(centre.x), static_cast<double>(centre.y),
                                static_cast<double>(kept));
        }
        text += pin::Format(L"{\"resultCode\":\"%d\"}", accepted ? kAccepted : kRefused);
        outputs.push_back(colour);
    }
    if (!text.empty()) m_result = text;
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CFindMarkCenterFilter::Trace() {
    LogW(1, L"FindMarkCenterFilter");
}

PIXMILL_REGISTER_FILTER(L"FindMarkCenterFilter", CFindMarkCenterFilter);
