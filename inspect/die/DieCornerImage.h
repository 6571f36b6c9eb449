// Image routines of the die corner inspections: the four-point outline of a
// contour, the convex hull scan, the local contrast clean-up of a fused
// frame, the removal of a dominant gray peak and the histogram stretch, plus
// the straight-line helpers the corner finders share (a side line fitted to
// edge points, the crossing of two lines).
//
// Images are 8-bit, one channel. No routine reads or writes outside the
// images it is given; none traces.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace pixmill::inspect::die {

// Four characteristic points of a contour: the point farthest from its
// first point; the point farthest from that one; the point farthest from
// both by summed distance; and the point with the greatest summed triangle
// area against the first three. Returned in contour order (sorted by their
// contour index). A contour of fewer than 4 points gives false.
bool ContourFourPoints(const std::vector<cv::Point>& contour, std::array<cv::Point, 4>& points,
                       std::array<int, 4>& indices);

// Convex hull by Graham scan: the pivot is the point with the lowest row
// (then lowest column); the rest are sorted by angle around it and walked,
// collinear points dropped. The hull starts with the pivot. Fewer than 3
// distinct points come back as they are (deduplicated).
std::vector<cv::Point> ConvexHullScan(const std::vector<cv::Point>& points);

// For each pixel with a 2-pixel border left out, the 3 x 3 block ending at
// it (its upper-left neighbourhood) is cleared in `dst` when its maximum
// and minimum differ by less than 5. `dst` starts as a copy of `src`.
void LocalContrastFilter(const cv::Mat& src, cv::Mat& dst);

// Clears dominant gray peaks: repeatedly the fullest bin from 1 to 255 not
// yet handled, with the bins from 15 below to 14 above it; when they hold
// more than `ratio` of the pixels those grays become 0 and the search goes
// on, otherwise it ends.
void PeakRemoval(const cv::Mat& src, cv::Mat& dst, double ratio);

// Stretches the grays so that the lowest level at which the cumulative
// histogram of the first 481 columns reaches `percent` maps to 255
// (255 * gray / level) and brighter grays saturate. A level of 0 maps 0 to
// 0 and every other gray to 255.
void HistogramStretch(const cv::Mat& src, cv::Mat& dst, double percent);

// A straight line through two points.
struct Segment {
    cv::Point2d a{-1.0, -1.0};
    cv::Point2d b{-1.0, -1.0};
    bool valid = false;
};

// The crossing of the lines through s.a, s.b and t.a, t.b. False (the
// corner stays unset) when either is invalid or they are parallel.
bool Intersect(const Segment& s, const Segment& t, cv::Point2d& at);

// A side line from edge points: the points are drawn as filled circles of
// radius 1 on a canvas of `canvasSize`; HoughLines (rho 1, theta 2 degrees,
// `houghThreshold`) proposes a line and the points within 5 pixels of the
// first one are least-squares fitted (fitLine, L2). Without a Hough line all
// points are fitted. Fewer than 4 points to fit give no line. `vertical`
// sides are stored at y = from and y = to, others at x = from and x = to.
Segment FitSide(const std::vector<cv::Point2f>& points, cv::Size canvasSize, int houghThreshold,
                bool vertical, double from, double to);

}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {

// The gray picture a die filter works on: 8-bit one-channel images as they
// are, 8-bit three- or four-channel ones converted to gray. Any other type
// throws std::invalid_argument naming `filter` (the filter then fails and
// keeps its previous output).
cv::Mat DieGray(const cv::Mat& image, const char* filter);

// The gray picture turned to colour for annotation (empty stays empty).
cv::Mat DieCanvas(const cv::Mat& gray);

// Appends text formatted by wide printf rules in the C locale.
void AppendWide(std::wstring& text, const wchar_t* format, ...);

}  // namespace pixmill::inspect::die
