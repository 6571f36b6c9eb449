// The framed die functions: a die seen inside a frame of dark border,
// photographed in a numbered series of files at different focus or light.
// VBcvFDEdgeFind finds a diagonal edge point in the best frame of the
// series, VBcvFDThetaFind a straight horizontal or vertical side in the best
// frame, and VBcvFDCornerFind / VBcvFDCornerFind_Ex fuse the series and find
// one corner of the die.
//
// Every frame is cut to its 480 x 480 region as the wafer edge functions cut
// theirs (the right 160 columns dropped); a frame that is smaller or cannot
// be read is a file error. Quadrant codes (cpos) of this family:
//   0: walk from (30, 449) by (+1, -1); top side (dark above); corner nearest (0, 0)
//   1: walk from (449, 449) by (-1, -1); right side; corner nearest (479, 0)
//   2: walk from (449, 30) by (-1, +1); bottom side; corner nearest (479, 479)
//   3: walk from (30, 30) by (+1, +1); left side; corner nearest (0, 479)
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::die {

// The best diagonal edge point of one averaged region (DiagonalAverage with
// cpos): position and score of the strictly best step, score 0.0 and
// position (-1, -1) when no step scores above 0.
struct FramedEdge {
    cv::Point at{-1, -1};
    double score = 0.0;
};
FramedEdge ScanFramedEdge(const cv::Mat& averaged, int cpos);

// The side line of one 480 x 480 region for cpos: its position (the first
// row or column on the die's side of the step; -1 when there is none) and
// the edge strength of the 10 lines around it.
struct FramedLine {
    int position = -1;
    double strength = 0.0;
};
FramedLine ScanFramedLine(const cv::Mat& region, int cpos);

// The corner candidates of a fused region: for each of the four corner
// slots of the objects found (in their contour order), the points lying
// more than 20 pixels inside the region. `extended` applies the stricter
// object rules of VBcvFDCornerFind_Ex. Objects must reach the frame's
// sides (two points of their box within 5 pixels of a limit) unless
// `anywhere`.
using CornerLists = std::array<std::vector<cv::Point>, 4>;
CornerLists FusedCorners(const cv::Mat& fused, bool extended, const char* tag, bool anywhere = false);

// The fused, contrast-cleaned image of a series of 480 x 480 regions (all
// of them are used); empty for an empty series or one whose first frame has
// its edges darker than its flat areas.
cv::Mat FuseSeries(const std::vector<cv::Mat>& regions, bool extended);

FDPoint FDEdgeFind(const char* path, int cpos, int count, ImageStore& store = Files()) noexcept;
FDPoint FDThetaFind(const char* path, int cpos, int count, ImageStore& store = Files()) noexcept;
FDPoint FDCornerFind(const char* path, int cpos, int count, ImageStore& store = Files()) noexcept;
FDPoint FDCornerFindEx(const char* path, int cpos, int count, ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::die
