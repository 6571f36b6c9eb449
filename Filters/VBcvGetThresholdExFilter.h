// The pad threshold filter on the VBcvGetThresholdEx estimator; registered as
// "VBcvGetThresholdExFilter".
#pragma once

#include "Filters/VBcvGetThresholdFilter.h"

// For each 8-bit one-channel input image: the level of VBcvGetThresholdEx for the
// figure of Shape (0 to 5), size x by y, rotated by Angle and the corner cut Offset, and
// the image binarised at it. Parameters width and height are read and
// ignored: the image gives the size.
//
// BlackPad: the estimator works on the complemented image; its level L is
// turned into the original image's scale as 254 - L, which is reported and
// applied with "value <= level" (THRESH_BINARY_INV). That selects exactly
// the pixels whose complement lies above L, so the pad comes out white in
// both modes. A failure value (-1, -2) is reported and applied as it is.
//
// Result text, for the last image: {"threshold":"<level>"}. An image that is
// not 8-bit one-channel makes the filter fail (its output stays as it was).
// Everything but the estimator is the VBcvGetThresholdFilter's.
class CVBcvGetThresholdExFilter : public CVBcvGetThresholdFilter {
public:
    CVBcvGetThresholdExFilter();
    ~CVBcvGetThresholdExFilter() override = default;

    void Trace() override;

protected:
    double Estimate(const cv::Mat& src, int x, int y, int shape, bool blackPad, int angle,
                    const std::vector<IParam*>& params) override;
    const char* FilterName() const override { return "VBcvGetThresholdExFilter"; }
};
