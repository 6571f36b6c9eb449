// Drops the blobs that touch the image border and shrinks the others to
// discs; registered as "NearEdgeFilter".
//
// Labels with 8-connectivity when `Near` is set, else 4. Each blob clear
// of all four borders becomes a filled white disc at its box centre, of
// radius w/2 - Erosion; a blob whose radius would fall below 0 is left out.
// An image without any blob gives no output image.
#pragma once

#include "framework/Filter.h"

class CNearEdgeFilter : public CFilter {
public:
    CNearEdgeFilter();
    ~CNearEdgeFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
