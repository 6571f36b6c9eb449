// Inverts images.
#pragma once

#include "framework/Filter.h"

// For each input image: the bitwise complement of every sample, so 8-bit
// black becomes white.
class CInvertFilter : public CFilter {
public:
    CInvertFilter();
    ~CInvertFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
