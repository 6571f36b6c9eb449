// Counts the blobs whose width lies strictly between Minsize and Maxsize;
// registered as "SizeToleranceFilter".
//
// Every non-zero pixel is foreground (4-connectivity). Each accepted blob is
// boxed and numbered on a colour copy, which joins the outputs and
// overwrites the priority filter's debug image. The result gives the last
// accepted blob's centre and the count over the run's images.
#pragma once

#include "framework/Filter.h"

class CSizeToleranceFilter : public CFilter {
public:
    CSizeToleranceFilter();
    ~CSizeToleranceFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
