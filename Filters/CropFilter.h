// Cuts a rectangle out of images.
#pragma once

#include "framework/Filter.h"

// For each input image: the rectangle (x, y, width, height). Where the
// rectangle reaches past the image the result keeps the requested size and
// the part outside is black; where it misses the image entirely (or is
// empty, as with all parameters 0) the image passes unchanged. Each result
// is also saved as a debug image.
class CCropFilter : public CFilter {
public:
    CCropFilter();
    ~CCropFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
