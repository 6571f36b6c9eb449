// The usual start of a recipe: brings the caller's images, or a file, in.
#pragma once

#include "framework/Filter.h"

// Emits the master images whose ID equals ImageID; when there are none, the
// image read from the file at Path. Its output pin reduces three-channel
// images to one channel, so the recipe always works on gray images.
class CSourceFilter : public CFilter {
public:
    CSourceFilter();
    ~CSourceFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
