// Edge detection.
#pragma once

#include "framework/Filter.h"

// For each 8-bit input image: the Canny edge map with hysteresis
// thresholds MinThreshold and MaxThreshold, 3 by 3 Sobel gradients and the
// L1 gradient norm. Edges are 255, the rest 0.
class CCannyEdgeFilter : public CFilter {
public:
    CCannyEdgeFilter();
    ~CCannyEdgeFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
