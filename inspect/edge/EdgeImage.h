// The image pieces the wafer edge functions share: the 480 x 480 region a
// rim frame is worked on, the diagonal mean that turns a rim crossing the
// frame into a one-dimensional profile, and the walks along the frame's
// diagonal for each quadrant code.
//
// The prober's rim camera delivers 640 x 480 frames; the right 160 columns
// show the lens holder and are dropped, leaving the 480 x 480 region whose
// middle is 240 and whose last index is 479. Every scan of this family works
// on that region and nothing outside it.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace pixmill::inspect::edge {

// Side of the region the edge functions work on, its middle and its last
// index.
inline constexpr int kRegion = 480;
inline constexpr int kMid = 240;
inline constexpr int kLast = 479;
// Columns dropped on the right of a camera frame.
inline constexpr int kDroppedColumns = 160;

// Quadrant codes: which corner of the wafer the frame shows. The wafer
// centre lies toward the opposite corner of the frame.
enum Quadrant { kTopRight = 0, kTopLeft = 1, kBottomLeft = 2, kBottomRight = 3 };

// True for the four known codes (anything else, taken as unsigned, above 3).
inline bool KnownQuadrant(int cpos) {
    return static_cast<unsigned>(cpos) <= 3u;
}

// Step of the inner walk of `cpos`: from the frame's corner toward the
// wafer centre (0: x - 1, y + 1; 1: x + 1, y + 1; 2: x + 1, y - 1;
// 3: x - 1, y - 1). The outer walk is its reverse.
cv::Point InnerStep(int cpos);

// Replaces every pixel by the mean of the diagonal through it, truncated to
// 8 bits: for cpos 0 and 2 the diagonals on which row and column grow
// together, for 1 and 3 the anti-diagonals (row falls as column grows).
// Those run along the rim where the quadrant's rim crosses the frame's
// diagonal, so the rim stands out across them. `src` must be 8-bit, one
// channel; `dst` receives an image of the same size. The whole image is
// averaged: the functions pass their 480 x 480 region. An empty `src` gives
// an empty `dst`; an unknown `cpos` averages like 1 and 3.
void DiagonalAverage(const cv::Mat& src, cv::Mat& dst, int cpos);

// The 480 x 480 region of a camera frame read in gray, after dropping its
// right 160 columns: the top-left 480 x 480 pixels of a frame at least 640
// wide and 480 high (a larger frame keeps only that region). Empty for a
// smaller or empty frame, which the functions report as unreadable.
cv::Mat CameraRegion(const cv::Mat& frame);

// The top-left 480 x 480 pixels of a frame at least that large, without
// dropping columns (the four-frame find and the alignment check); empty
// otherwise.
cv::Mat SquareRegion(const cv::Mat& frame);

// Position `t` (0 to 479) on the region's diagonal for `cpos`, counted from
// the corner where the inner walk starts: 0 (479 - t, t), 1 (t, t),
// 2 (t, 479 - t), 3 (479 - t, 479 - t).
cv::Point DiagonalPoint(int cpos, int t);

// The averaged region's values along the diagonal of `cpos`, position 0 to
// 479 as DiagonalPoint numbers them, as doubles.
std::vector<double> DiagonalProfile(const cv::Mat& region, int cpos);

}  // namespace pixmill::inspect::edge
