// Two-level thresholding of gray images; registered as "ThresholdFilter".
//
// This is the filter to copy when writing a new one: its source unit walks
// through every step a filter takes, once.
#pragma once

#include "framework/Filter.h"

// For each one-channel input image: 255 where the pixel is above Threshold
// and 0 elsewhere, or the reverse when Invert is set. A three-channel image
// is refused (the filter fails and keeps its previous output).
class CBinaryFilter : public CFilter {
public:
    CBinaryFilter();
    ~CBinaryFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
