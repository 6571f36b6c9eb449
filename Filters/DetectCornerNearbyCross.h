// Die corners around street crossings; registered as
// "DetectCornerNearbyCross".
#pragma once

#include "framework/Filter.h"

// For each input image: the crossings of the streets between dies and, in
// each quadrant around a crossing, the die's first corner (where its sides
// nearest the crossing meet) and second corner (where its far sides meet),
// as { "Count":"n", "Cross":[{"Cross":"0", "F_LT_X":"..", ... "S_LB_Y":".."}]}
// (the last image's text remains). Slots are named after the die's corner:
// the die down-right of the crossing gives LT, down-left RT, up-left RB,
// up-right LB. The output is the image in colour with short strokes at
// each corner. No parameters.
class CDetectCornerNearbyCross : public CFilter {
public:
    CDetectCornerNearbyCross();
    ~CDetectCornerNearbyCross() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
