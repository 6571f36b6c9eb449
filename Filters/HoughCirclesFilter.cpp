#include "Filters/HoughCirclesFilter.h"

#include <algorithm>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

namespace {

// The transform votes from every edge point for every radius of the range,
// then weighs each centre it found against every edge point. On a noise
// image nearly every pixel is an edge and nearly every pixel a centre, and
// the search runs for minutes; an image in which circles can be told apart
// has far fewer edges. Refused beyond:
// - one edge point in 32 pixels (a Canny threshold too low for the image);
constexpr int64_t kEdgeShare = 32;
// - this many votes (edge points times radii).
constexpr int64_t kMaxVotes = int64_t{6} * 1000 * 1000;

// Refuses a search whose edge points or votes exceed the bounds; the edge
// map is the transform's own (Canny at half and the full threshold).
void CheckSearch(const cv::Mat& image, int canny, int low, int high) {
    if (canny < 1) return;  // refused by the transform itself
    cv::Mat edges;
    cv::Canny(image, edges, std::max(canny / 2, 1), canny, 3);
    const int64_t points = cv::countNonZero(edges);
    const int64_t pixels = int64_t{image.rows} * image.cols;
    pixmill::filters::CheckAmount(points, std::max<int64_t>(pixels / kEdgeShare, 1024),
                                  "HoughCirclesFilter: Canny leaves edge points",
                                  "one in 32 pixels; a higher Canny threshold keeps fewer");
    pixmill::filters::CheckAmount(points * (int64_t{high} - low + 1), kMaxVotes,
                                  "HoughCirclesFilter: MinRadius..MaxRadius votes",
                                  "edge points times radii; a narrower radius range or a higher Canny "
                                  "threshold needs fewer");
}

}  // namespace

CHoughCirclesFilter::CHoughCirclesFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"MinDist", 5000, 1, 10000, 1));
    AddParam(new sorvik::Param<int>(L"Canny", 50, 1, 255, 1));
    AddParam(new sorvik::Param<int>(L"MinRadius", 300, 0, 1000, 1));
    AddParam(new sorvik::Param<int>(L"MaxRadius", 500, 0, 1000, 1));
}

void CHoughCirclesFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    // A MinDist or Canny below 1 is refused by the transform (an exception,
    // logged like any failure of the filter).
    const int minDist = pixmill::ParamValue<int>(params, L"MinDist", 5000);
    const int canny = pixmill::ParamValue<int>(params, L"Canny", 50);
    const int minRadius = pixmill::ParamValue<int>(params, L"MinRadius", 300);
    const int maxRadius = pixmill::ParamValue<int>(params, L"MaxRadius", 500);

    std::vector<cv::Mat> outputs;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        pin::RequireGray8(image, "HoughCirclesFilter");
        cv::Mat colour;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);

        // A circle centred in the image with a radius beyond its two sides
        // together has no edge in it, so radii are bounded there; this keeps
        // the transform's squared radii in range. Negative radii count as 0,
        // and a MaxRadius of 0 means up to the image's larger side.
        const int reach = static_cast<int>(std::min<int64_t>(int64_t{image.rows} + image.cols, 1 << 20));
        const int low = std::clamp(minRadius, 0, reach + 1);
        const int high = std::clamp(maxRadius, 0, reach);
        std::vector<cv::Vec3f> circles;
        if (low <= reach) CheckSearch(image, canny, low, high == 0 ? reach : high);
        if (low <= reach)
            cv::HoughCircles(image, circles, cv::HOUGH_GRADIENT, 1.0, minDist, canny, 35.0, low, high);

        int largest = -1;
        for (size_t i = 0; i < circles.size(); ++i) {
            const cv::Vec3f& c = circles[i];
            if (largest < 0 || c[2] > circles[largest][2]) largest = static_cast<int>(i);
            cv::circle(colour, cv::Point(cvRound(c[0]), cvRound(c[1])), cvRound(c[2]), cv::Scalar(0, 255, 0), 1,
                       cv::LINE_AA);
        }
        if (largest >= 0) {
            const cv::Vec3f& c = circles[largest];
            const cv::Point centre(cvRound(c[0]), cvRound(c[1]));
            const cv::Scalar red(0, 0, 255);
            cv::line(colour, centre - cv::Point(5, 0), centre + cv::Point(5, 0), red, 3, cv::LINE_AA);
            cv::line(colour, centre - cv::Point(0, 5), centre + cv::Point(0, 5), red, 3, cv::LINE_AA);
            cv::circle(colour, centre, cvRound(c[2]), red, 1, cv::LINE_AA);
            SetResult(L"{\"r\":\"%f\", \"x\":\"%f\",\"y\":\"%f\"}", static_cast<double>(c[2]),
                      static_cast<double>(c[0]), static_cast<double>(c[1]));
        } else {
            SetResult(L"{\"r\":\"-1\"}");
        }
        outputs.push_back(colour);
    }
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CHoughCirclesFilter::Trace() {
    LogW(1, L"HoughCirclesFilter");
}

PIXMILL_REGISTER_FILTER(L"HoughCirclesFilter", CHoughCirclesFilter);
