// Places two image streams next to each other on one canvas.
#pragma once

#include "framework/Filter.h"

// For each position up to the longer of the "left" (key 1) and "right" (key
// 2) lists: an 8-bit canvas with the left image at its top-left corner and
// the right image beside it, or below it when T/B is set. Every canvas has
// the same size, room for the largest image of each list, and as many
// channels as the most colourful input; gray images are converted to colour
// when needed. A missing image leaves its half black. A pair that cannot be
// placed ends the work silently, and the canvases made before it are still
// delivered.
class CSideBySideFilter : public CFilter {
public:
    CSideBySideFilter();
    ~CSideBySideFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
