// Reports the largest blob of a binary image as a pin tip; registered as
// "FindPintipFilter".
//
// As FindPinholeFilter, except that the blob of largest area counts (the
// lowest label on a tie) and the width test is Minsize <= w < Maxsize. The
// colour copy is handed out twice per accepted image.
#pragma once

#include "framework/Filter.h"

class CFindPintipFilter : public CFilter {
public:
    CFindPintipFilter();
    ~CFindPintipFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
