// Picks the pin tip of a probe-card view: the bright blob nearest the centre
// of the marked area; registered as "PintipPriorityFilter".
//
// The input's blobs form the marked area. The image is thresholded again at
// its mean gray level inside that area times `weight`, and each blob of
// that threshold whose width lies strictly between Minsize and Maxsize gets
// a priority from 0 to 200: up to 100 for nearness to the centre of the
// marked area's last blob, up to 100 for its brightness. The best blob is
// reported as {"x","y","w","h","count"} (centre, size, successes so
// far), or with -1 values when none qualifies.
#pragma once

#include "framework/Filter.h"

class CPintipPriorityFilter : public CFilter {
public:
    CPintipPriorityFilter();
    ~CPintipPriorityFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
