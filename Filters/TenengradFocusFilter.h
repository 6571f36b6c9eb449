// Sharpness of each input image by the Tenengrad measure; registered as
// "TenengradFocusFilter".
#pragma once

#include "framework/Filter.h"

// For each image of input pin 1: the gradient magnitude m (3x3 Sobel in
// double precision), its local mean a over a Kernel x Kernel box, and
//   tenengrad = sum of m, mean = mean of a, max = greatest value of a.
// The result is the list [{"tenengrad":"%f", "mean":"%f", "max":"%f" }, ...]
// in input order ("[]" without images). Each output image is a min-max
// normalized to 0..255, in three channels, with a red circle of radius
// Kernel at the sharpest neighbourhood. Kernel is kept within 1..30.
class CTenengradFocusFilter : public CFilter {
public:
    CTenengradFocusFilter();
    ~CTenengradFocusFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};

namespace pixmill::filters {

// The three measures of one image and the marked picture.
struct TenengradMeasure {
    double tenengrad = 0.0;
    double mean = 0.0;
    double max = 0.0;
    cv::Point maxAt;
    cv::Mat picture;  // CV_8UC3
};

// Measures one 8-bit one-channel image with a box of side `kernel` (1..30).
TenengradMeasure MeasureTenengrad(const cv::Mat& gray, int kernel);

}  // namespace pixmill::filters
