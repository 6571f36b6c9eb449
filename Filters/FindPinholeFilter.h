// Reports the last blob of a binary image as a pinhole; registered as
// "FindPinholeFilter".
//
// Labels with 8-connectivity when `Near` is set, else 4. The last blob in
// label order counts when its width lies strictly between Minsize and
// Maxsize: its box is drawn on a colour copy (the output) and a fragment
// {"x":left,"y":top,"w":image columns,"h":image rows} is appended to
// the run's result, one fragment per accepted image. A run that accepts
// nothing leaves the result and the outputs as they were.
#pragma once

#include "framework/Filter.h"

class CFindPinholeFilter : public CFilter {
public:
    CFindPinholeFilter();
    ~CFindPinholeFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
