// Removes the pattern that an image shares with a reference of the same
// scene; registered as "BackgroundPatternSubstractFilter".
#pragma once

#include <opencv2/core.hpp>

#include "framework/Filter.h"

namespace pixmill::filters {

struct PatternDifference {
    cv::Mat difference;  // CV_8UC1, |image - moved reference|, 0 where uncovered
    cv::Point2d offset;  // a reference feature at x lies at x + offset in the image
    double score = 0;    // correlation at the offset; 0 when no search was made
};

// Lines `reference` up with `image` (both CV_8UC1 of one size) within
// `maxShift` pixels per axis and subtracts it. `normalize` evens the
// reference's mean and spread to the image's first.
PatternDifference SubtractPattern(const cv::Mat& image, const cv::Mat& reference, int maxShift,
                                  bool normalize);

}  // namespace pixmill::filters

// Each image of "In" (key 1) is compared with the image of "Reference"
// (key 2) at the same position, or the last reference when there are
// fewer: the reference is lined up on the image and subtracted, leaving
// what differs. Output: the difference per image, or 255/0 at Threshold.
// Result: [{"dx":"..","dy":"..","score":".."},...]. No reference, or one of
// another size, makes the filter fail and keep its output.
class CBackgroundPatternSubstractFilter : public CFilter {
public:
    CBackgroundPatternSubstractFilter();
    ~CBackgroundPatternSubstractFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
