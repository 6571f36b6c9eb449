// Gaussian smoothing.
#pragma once

#include "framework/Filter.h"

// For each input image: a Gaussian blur with a Kernel by Kernel window and
// the standard deviation Sigma in both directions. An even Kernel is
// refused (the filter fails and keeps its previous output).
class CGaussianBlurFilter : public CFilter {
public:
    CGaussianBlurFilter();
    ~CGaussianBlurFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
