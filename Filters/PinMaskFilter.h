// Fills the holes of a mask and cuts an image with it; registered as
// "PinMaskFilter".
//
// Pairs the images of "origin" (key 1) and "mask" (key 2) by position, up
// to the shorter list, cut to the size both share from the top-left corner.
// The mask's outside is found by flooding from its corner (0, 0); what the
// flood does not reach is the mask with its holes filled, and the output is
// the origin AND that filled mask. `Near` is accepted and has no effect.
#pragma once

#include "framework/Filter.h"

class CPinMaskFilter : public CFilter {
public:
    CPinMaskFilter();
    ~CPinMaskFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
