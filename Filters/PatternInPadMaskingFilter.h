// Removes a pad's repeating pattern by comparison with a reference picture
// of the same pad; registered as "PatternInPadMaskingFilter".
#pragma once

#include "framework/Filter.h"

// Each image of "In" (key 1, the pad after probing) is compared with the
// image of "Reference" (key 2) at the same position, or with the last
// reference when there are fewer: the two are lined up on their pattern,
// evened out and divided, and the output is a two-level image in which the
// shared pattern is gone (255) and darker places such as a probe mark are 0.
// Without any reference image, or when a reference cannot be brought to the
// pad image's size, the pad image passes unchanged. Images must be 8-bit
// gray; another type makes the filter fail and keep its previous output.
// No parameters; the result text is "".
class CPatternInPadMaskingFilter : public CFilter {
public:
    CPatternInPadMaskingFilter();
    ~CPatternInPadMaskingFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
