// Directional contrast enhancement on a recipe graph.
#pragma once

#include "framework/Filter.h"

// For each input image: EnhanceImage with the filter's Diretion (1 along
// rows, 2 along columns, 0 both), Sigma and Scale. Flat areas come out at
// 128 and edges swing toward 0 and 255. Writes no result text.
class CEnhanceFilter : public CFilter {
public:
    CEnhanceFilter();
    ~CEnhanceFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
