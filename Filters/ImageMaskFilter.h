// Masks gray images with gray masks.
#pragma once

#include "framework/Filter.h"

// Pairs the images of "origin" (key 1) and "mask" (key 2) by position, up to
// the shorter list. Each output is the per-sample AND of the origin and its
// mask, cut to the size both share from the top-left corner. The origin
// must be gray; a pair that cannot be combined ends the pairing silently,
// and the outputs made before it are still delivered.
class CImageMaskFilter : public CFilter {
public:
    CImageMaskFilter();
    ~CImageMaskFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
