// Alignment on the central inspection area, high magnification: the largest blob; registered as
// "ADIHighAlign".
#pragma once

#include "framework/Filter.h"

class CADIHighAlign : public CFilter {
public:
    CADIHighAlign();
    ~CADIHighAlign() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
