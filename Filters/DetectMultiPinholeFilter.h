// Keeps the input inside the boxes of all pinholes of acceptable width;
// registered as "DetectMultiPinholeFilter".
//
// Labels with 8-connectivity when `Near` is set, else 4. For each blob whose
// width lies strictly between Minsize and Maxsize the output list gains the
// input masked by the boxes accepted so far. The result text describes the
// last blob in label order: its centre, size and the running count, or -1
// values with the count when that last blob is out of range.
#pragma once

#include "framework/Filter.h"

class CDetectMultiPinholeFilter : public CFilter {
public:
    CDetectMultiPinholeFilter();
    ~CDetectMultiPinholeFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
