// Restricted Otsu binarisation on a recipe graph.
#pragma once

#include "framework/Filter.h"

// For each input image: Enhance_Threshold_Otsu. W/B true looks for bright
// features (levels above 127, ABSolute a floor for the threshold), false for
// dark ones (levels at or below 128, ABSolute a ceiling). Reports the
// threshold of the last image as {"threshold":143}, the number unquoted.
class CEnhanceOtsuFilter : public CFilter {
public:
    CEnhanceOtsuFilter();
    ~CEnhanceOtsuFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
