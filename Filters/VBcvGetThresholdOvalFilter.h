// The pad threshold filter on Otsu's level of the whole image; registered as
// "VBcvGetThresholdOvalFilter".
#pragma once

#include "framework/Filter.h"

// For each 8-bit one-channel input image of at most 480 x 480: OtsuLevel
// over all its pixels (traced as "Threshold : %d\n"), and the image
// binarised at it, 255 above the level, or at or below it with BlackPad. The
// level is found on the image as it is, so it needs no change of scale for a
// black pad. A larger image gets the level -1 after the lines
// "Image Buffer Sise is wrong! \n" and "[VBcvGetThreshold_Oval] End \n".
//
// Result text, for the last image: {"threshold":"<level>"}.
class CVBcvGetThresholdOvalFilter : public CFilter {
public:
    CVBcvGetThresholdOvalFilter();
    ~CVBcvGetThresholdOvalFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
