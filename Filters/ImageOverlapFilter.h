// Overlays one image on another, in green.
#pragma once

#include "framework/Filter.h"

// Pairs the images of "base" (key 1) and "over" (key 2) by position, up to
// the shorter list. Each output is the base as a colour picture with the
// over image added to its green channel, scaled by Alpha / 100, in a region
// whose top-left corner is at (x, y) of the base. The region takes width by
// height pixels (the whole over image when either is 0 or less) from the
// top-left of the over image, clipped to both images. Both inputs must be
// gray; a pair that cannot be combined ends the pairing silently, and the
// outputs made before it are still delivered.
class CImageOverlapFilter : public CFilter {
public:
    CImageOverlapFilter();
    ~CImageOverlapFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
