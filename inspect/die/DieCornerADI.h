// Alignment on the central inspection area after background flattening:
// the largest blob's centre (high magnification).
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace pixmill::inspect::die {

struct ADISettings {
    int inspWidth = 60;
    int inspHeight = 60;
    float sigma = 21.0f;
    float scale = 1.0f;
    bool bright = true;  // W/B
    int absolute = 128;  // ABSolute
};

// The binary inspection area: the centred InspWidth x InspHeight rectangle,
// padded by int(4 sigma) replicated pixels, flattened by EnhanceImage and
// binarised by Enhance_Threshold_Otsu. Empty, with `origin` untouched, when
// the area is below 10, larger than the image, the image is empty, or sigma
// or scale is negative, not a number, or sigma beyond 100.
cv::Mat ADIBinaryArea(const cv::Mat& gray, const ADISettings& s, cv::Point& origin);

struct ADIHighResult {
    bool found = false;
    cv::Point2f centre{-1.f, -1.f};
    int width = -1;
    int height = -1;
    bool left = false, top = false, right = false, bottom = false;
};

// The largest blob narrower and lower than the area (the first of equal
// areas): its centroid in image coordinates, size and which of the area's
// limits it touches. Not found when no blob qualifies.
ADIHighResult ADIHighAlign(const cv::Mat& gray, const ADISettings& s);

}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {

struct ADILowSettings {
    ADISettings area{400, 400, 9.0f, 1.0f, true, 128};
    int lineX = 80;  // the widest column band still taken for a street
    int lineY = 80;  // the widest row band still taken for a street
};

// The street crossings of a grid of blobs in the flattened, opened binary
// inspection area. Streets are runs of 5-pixel strips that are at least 99 %
// background, longer than 1.5 times the mean run (so die streets stand out
// from the narrower gaps between the blobs of a die), no longer than LineY
// (rows) or LineX (columns), and strictly inside the span of blob centres.
// A crossing needs a blob strictly in each quadrant around it; the nearest
// four must agree in size (ratio above 0.5) and form a near-square (shortest
// side over longest above 0.8). Its position is the area centroid of that
// quadrilateral in image coordinates, truncated. Empty when the area does not
// fit, the image is empty, or there are fewer than four blobs.
std::vector<cv::Point> ADILowAlign(const cv::Mat& gray, const ADILowSettings& s);

}  // namespace pixmill::inspect::die
