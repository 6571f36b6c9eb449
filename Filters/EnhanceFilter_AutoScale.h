// Directional contrast enhancement whose gain follows the filter width.
#pragma once

#include "framework/Filter.h"

// For each input image: EnhanceImage with Diretion and Sigma and a gain
// derived from Sigma, falling linearly from about 1.69 at Sigma 1 to a floor
// of 0.15, reached near Sigma 14.4. Reports the gain of the last image as
// {"fScale":1.34}.
class CEnhanceFilter_AutoScale : public CFilter {
public:
    CEnhanceFilter_AutoScale();
    ~CEnhanceFilter_AutoScale() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
