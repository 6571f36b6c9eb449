// Makes a circular mask the size of each input image.
#pragma once

#include "framework/Filter.h"

// For each one-channel input image: a black three-channel image of the same
// size with a filled white circle of radius width / 2 at (center_x,
// center_y). The input's pixels are not used, only its size.
class CDrawCircleFilter : public CFilter {
public:
    CDrawCircleFilter();
    ~CDrawCircleFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
