// Finds a circular mark by threshold, morphology and contours; registered as
// "FindMarkCenterFilter".
//
// Thresholds at `threshold` (inverted with `invert`), applies a
// `filterSize` square closing (a morphological gradient when `morphology`
// is 1) and takes the outer contours' enclosing circles. The circle whose
// radius is nearest `radius` is accepted when that radius lies within
// [minSize, maxSize]. If no contour is found the threshold is lowered to
// 80% once, for this and the following images of the run. The result gives
// {"centerX"}{"centerY"}{"radius"} for an accepted circle and always a
// {"resultCode"}: 0 accepted, -1 no circle or radius out of range.
#pragma once

#include "framework/Filter.h"

class CFindMarkCenterFilter : public CFilter {
public:
    CFindMarkCenterFilter();
    ~CFindMarkCenterFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
