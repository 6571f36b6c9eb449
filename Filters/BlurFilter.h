// Box (mean) smoothing.
#pragma once

#include "framework/Filter.h"

// For each input image: the mean over a Kernel by Kernel square around
// each pixel, the border reflected.
class CBlurFilter : public CFilter {
public:
    CBlurFilter();
    ~CBlurFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
