// Shared steps of the filters that locate one image in another: the peak of
// a score map to a fraction of a pixel, the search margin that fits an
// image, and moving an image by a fractional offset.
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace pixmill::filters {

// The vertex of the parabola through three samples around the middle one,
// as an offset from it within -0.5 .. 0.5; 0 when the three do not bend
// downward or a sample is not finite.
inline double ParabolaOffset(float before, float at, float after) {
    if (!std::isfinite(before) || !std::isfinite(at) || !std::isfinite(after)) return 0.0;
    const double bend = static_cast<double>(before) - 2.0 * at + after;
    if (!(bend < 0.0)) return 0.0;
    return std::clamp(0.5 * (static_cast<double>(before) - after) / bend, -0.5, 0.5);
}

// `peak` of a CV_32F score map refined on each axis by a parabola through
// its neighbours; an axis at the map's edge stays whole.
inline cv::Point2d RefinePeak(const cv::Mat& scores, cv::Point peak) {
    cv::Point2d refined(peak.x, peak.y);
    const float at = scores.at<float>(peak);
    if (peak.x > 0 && peak.x + 1 < scores.cols)
        refined.x += ParabolaOffset(scores.at<float>(peak.y, peak.x - 1), at,
                                    scores.at<float>(peak.y, peak.x + 1));
    if (peak.y > 0 && peak.y + 1 < scores.rows)
        refined.y += ParabolaOffset(scores.at<float>(peak.y - 1, peak.x), at,
                                    scores.at<float>(peak.y + 1, peak.x));
    return refined;
}

// The offset searched on each axis: `wanted` kept within 0 and a quarter of
// the smaller side, so the template that remains is at least half the image.
inline int FittingShift(int wanted, cv::Size size) {
    return std::clamp(wanted, 0, std::min(size.width, size.height) / 4);
}

// `src` moved by (dx, dy) (bilinear, a feature at x goes to x + dx), the
// uncovered strip 0. `covered`, when given, receives 255 where the moved
// image has pixels of `src` under it and 0 in the strip.
inline cv::Mat MoveImage(const cv::Mat& src, double dx, double dy, cv::Mat* covered = nullptr) {
    const cv::Matx23d move(1, 0, dx, 0, 1, dy);
    cv::Mat out;
    cv::warpAffine(src, out, move, src.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
    if (covered) {
        const cv::Mat ones(src.size(), CV_8UC1, cv::Scalar(255));
        // The same move of an all-white image: only pixels whose samples all
        // lay inside the source stay at 255, so blended edges count as
        // uncovered.
        cv::warpAffine(ones, *covered, move, src.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
        cv::threshold(*covered, *covered, 254, 255, cv::THRESH_BINARY);
    }
    return out;
}

}  // namespace pixmill::filters
