// The pad threshold filter on the VBcvGetThreshold estimator; registered as
// "VBcvGetThresholdFilter".
#pragma once

#include "framework/Filter.h"

// For each 8-bit one-channel input image: the level of VBcvGetThreshold for the
// figure of Shape (0 to 3), size x by y, rotated by Angle, and
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
class CVBcvGetThresholdFilter : public CFilter {
public:
    CVBcvGetThresholdFilter();
    ~CVBcvGetThresholdFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;

protected:
    // The estimator's level for one checked image; the Ex filter uses its
    // own estimator with the Offset parameter.
    virtual double Estimate(const cv::Mat& src, int x, int y, int shape, bool blackPad, int angle,
                            const std::vector<IParam*>& params);
    // The name the filter's refusals carry.
    virtual const char* FilterName() const { return "VBcvGetThresholdFilter"; }
};
