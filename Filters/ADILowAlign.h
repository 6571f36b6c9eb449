// Alignment on the central inspection area, low magnification: the street
// crossings of a grid of blobs; registered as "ADILowAlign".
#pragma once

#include "framework/Filter.h"

class CADILowAlign : public CFilter {
public:
    CADILowAlign();
    ~CADILowAlign() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
