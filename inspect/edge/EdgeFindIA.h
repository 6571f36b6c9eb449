// The edge check for image alignment: is there a rim in the middle band of
// a quadrant frame, and how strong is it.
//
// Along the frame's diagonal (EdgeImage.h) each step is rated by how
// differently the averaged image rises onward and backward (the mean of the
// next 20 averaged pixels less the pixel, against the same for the previous
// 20) plus the frame's own local step (the mean of the 5 frame pixels ahead
// less the 5 behind). A rim scores about twice its contrast, of either
// polarity; flat ground scores near 0.
#pragma once

#include <vector>

#include "inspect/Inspection.h"

namespace pixmill::inspect::edge {

int EdgeFindIA(const char* path, int cpos, int width, int tolerance, ImageStore& store = Files()) noexcept;

// Strength at diagonal steps 0 to 479 of a 480 x 480 frame region and its
// diagonal mean; 0 within 30 steps of either end, where it is not rated.
std::vector<double> AlignmentStrength(const cv::Mat& region, const cv::Mat& averaged, int cpos);

}  // namespace pixmill::inspect::edge
