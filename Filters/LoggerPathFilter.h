// Passes images on while saving a probe image to disk.
#pragma once

#include "framework/Filter.h"

// The images of the "ByPass" input go to the output unchanged. When Active
// is set, the first image of the "Log" input is saved as
// Root\PathPrefix.png and the result names that file; the "Log" images never
// reach the output.
class CLoggerPathFilter : public CFilter {
public:
    CLoggerPathFilter();
    ~CLoggerPathFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
