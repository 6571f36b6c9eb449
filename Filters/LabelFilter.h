// Labels the blobs of a binary image for diagnosis; registered as
// "DiagnosisFilter".
//
// Labels with 8-connectivity when `Near` is set, else 4, draws every blob's
// box and number on a colour copy (the output) and reports the label count
// (background included), the image size, the largest blob's area and its
// box centre.
#pragma once

#include "framework/Filter.h"

class CLabelFilter : public CFilter {
public:
    CLabelFilter();
    ~CLabelFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
