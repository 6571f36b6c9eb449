// Dies standing bright on a black background: the binarisation level is
// chosen from the image itself (the level whose blobs are most often solid
// die-sized rectangles, then the best contrast across their rims), each
// die-sized component's sides are fitted as straight lines, and their
// crossings give the die's corners. A die cut by the image border keeps the
// corners its remaining sides give.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <vector>

namespace pixmill::inspect::die {

struct BlackBackgroundSettings {
    int dieWidth = 0;
    int dieHeight = 0;
    int toleranceWidth = 0;
    int toleranceHeight = 0;
    int searchMode = 0;  // 0 mask, 1 gradient peak, 2 edge image within the band
};

// Corners LT, RT, RB, LB as (x, y); -1.0 where a corner could not be
// computed.
struct DieCorners {
    std::array<cv::Point2f, 4> corner{cv::Point2f(-1.f, -1.f), cv::Point2f(-1.f, -1.f),
                                      cv::Point2f(-1.f, -1.f), cv::Point2f(-1.f, -1.f)};
    bool found = false;
};

// The level chosen for `gray` (8-bit, one channel, already blurred) by the
// coarse (30 to 220 by 15) and fine (by 5 around it) searches; 0 when no
// level shows a die-sized component.
int ChooseDieLevel(const cv::Mat& blurred, int minWidth, int minHeight);

// The dies of `gray` (8-bit, one channel) in component label order. Refuses
// (no dies) a die size below 10 or an image below 100 rows or columns.
std::vector<DieCorners> DetectBlackBackgroundDies(const cv::Mat& gray, const BlackBackgroundSettings& s);

// Draws each computed corner of `die` on `bgr` as three short strokes
// pointing into the die.
void DrawDieCorners(cv::Mat& bgr, const DieCorners& die);

}  // namespace pixmill::inspect::die
