// Die corners around the crossings of the streets between dies: the streets
// are found as rows and columns that are almost all background, each pair
// of a row and a column street of comparable width is a crossing, and in
// each of the four quadrants around it the die's sides are traced by walks
// outward from the crossing: the first change into the die gives its near
// side, the next change (out of the die again) its far side. The near sides
// meet in the first corner, the far sides in the second.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <vector>

namespace pixmill::inspect::die {

// Corners LT, RT, RB, LB of the four dies around one crossing, named after
// the die's own corner: the die up-left of the crossing gives RB, up-right
// LB, down-left RT, down-right LT. (-1, -1) where not computed.
struct CrossCorners {
    cv::Point2f cross{-1.f, -1.f};
    std::array<cv::Point2f, 4> first;
    std::array<cv::Point2f, 4> second;
    CrossCorners() {
        first.fill(cv::Point2f(-1.f, -1.f));
        second.fill(cv::Point2f(-1.f, -1.f));
    }
};

// A run of street lines: `start` is the first 5-line strip that is at
// least 99 % background, `length` the number of such strips in a row.
struct Band {
    int start = 0;
    int length = 0;
    // Strip i covers lines i to i + 4, so a run of strips covers its
    // length + 4 lines: the middle of those is the street's middle.
    int middle() const { return start + (length + 4) / 2; }
    // The same middle to half a line: the walks start from `middle`, the
    // crossing is reported at `centre`.
    double centre() const { return start + (length + 3) / 2.0; }
};

// The street bands of a binary image (streets 0): rows when `rows`, else
// columns. None when the image has fewer than 6 lines that way.
std::vector<Band> StreetBands(const cv::Mat& binary, bool rows);

// The crossings of `gray` (8-bit, one channel) with their corners, rows of
// crossings first. An image below 6 pixels in either direction has none.
std::vector<CrossCorners> DetectCornersNearbyCross(const cv::Mat& gray);

// Marks each computed corner of `c` on `bgr` with two short strokes.
void DrawCrossCorners(cv::Mat& bgr, const CrossCorners& c);

}  // namespace pixmill::inspect::die
