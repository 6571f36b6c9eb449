// Chooses one of two recipe branches; registered as "PinBlobModeSelector".
//
// With `AutoMode` set the images of the input "Auto" (key 1) go out, else
// those of "Manual" (key 2). Only the chosen input is pulled, so nothing
// upstream of the other one runs.
#pragma once

#include "framework/Filter.h"

class CPinBlobModeSelector : public CFilter {
public:
    CPinBlobModeSelector();
    ~CPinBlobModeSelector() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
