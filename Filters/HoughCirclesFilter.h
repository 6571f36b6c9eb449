// Finds the largest circle by the Hough gradient transform; registered as
// "HoughCirclesFilter".
//
// Circles at least `MinDist` apart with radii from `MinRadius` to
// `MaxRadius`, edges by a Canny upper threshold of `Canny` and an
// accumulator threshold of 35. Every circle is drawn on a colour copy (the
// output); the largest is marked and reported as {"r","x","y"}, or
// {"r":"-1"} when there is none.
#pragma once

#include "framework/Filter.h"

class CHoughCirclesFilter : public CFilter {
public:
    CHoughCirclesFilter();
    ~CHoughCirclesFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
