// Corners of dies standing bright on a black background; registered as
// "BlackBackgroundCornerDetectFilter".
#pragma once

#include "framework/Filter.h"

// For each input image: the dies of about DieWidth x DieHeight (within the
// tolerances; a die cut by the border is not held to the size across the
// cut) with their LT, RT, RB, LB corners, as
// { "Count":"n", "Dies":[{"Die":"0", "LT_X":"..", ...}, ...]} (the last
// image's text remains). The output is the image in colour with a short
// mark at each corner found. A die size below 10 or an image below 100
// pixels gives no dies.
class CBlackBackgroundCornerDetectFilter : public CFilter {
public:
    CBlackBackgroundCornerDetectFilter();
    ~CBlackBackgroundCornerDetectFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
