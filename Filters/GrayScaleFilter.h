// Reduces colour images to gray.
#pragma once

#include "framework/Filter.h"

// For each three-channel input image: its gray version. A one-channel image
// is refused (the filter fails and keeps its previous output). Threshold and
// Invert are reported to recipe editors but do not change the pixels.
class CGrayScaleFilter : public CFilter {
public:
    CGrayScaleFilter();
    ~CGrayScaleFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
