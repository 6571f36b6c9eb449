// Lines up two images of one scene when one of them is out of focus;
// registered as "FocusingFreeAlignFilter".
#pragma once

#include <opencv2/core.hpp>

#include "framework/Filter.h"

namespace pixmill::filters {

struct FocusFreeOffset {
    cv::Point2d offset;  // a reference feature at x lies at x + offset in the image
    double score = 0;    // masked correlation at the offset
};

// The offset of `image` against `reference` (CV_8UC1, one size, smaller side
// at least 24) within `maxShift` pixels per axis, after smoothing both with
// a Gaussian of `sigma` and weighting the reference's edges. Raises the
// matcher's cv::Exception, naming CFocusingFreeAlignFilter::matchTemplateMask,
// should its inputs not fit.
FocusFreeOffset AlignOutOfFocus(const cv::Mat& image, const cv::Mat& reference, double sigma,
                                int maxShift);

}  // namespace pixmill::filters

// Each image of "In" (key 1) is lined up on the image of "Reference" (key 2)
// at the same position, or the last reference when there are fewer, and
// moved onto it. Result: [{"dx":"..","dy":"..","score":"..","found":".."},...];
// below MinScore the image passes unmoved with "found":"false".
class CFocusingFreeAlignFilter : public CFilter {
public:
    CFocusingFreeAlignFilter();
    ~CFocusingFreeAlignFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
