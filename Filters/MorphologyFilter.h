// Speck and hole removal.
#pragma once

#include "framework/Filter.h"

// For each input image: an opening followed by a closing with a square
// KernelSize by KernelSize element. Bright details and dark gaps narrower
// than the element go; larger shapes keep their outline.
class CMorphologyFilter : public CFilter {
public:
    CMorphologyFilter();
    ~CMorphologyFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
