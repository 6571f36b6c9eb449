// Brightness of the background of a target; registered as
// "LCTGetBrightFilter".
#pragma once

#include "framework/Filter.h"

// For each image of input pin 1: finds the large bright area (after a 21x21
// blur, above 50, closed), keeps it if it spans at least half the image in
// both axes, shrinks it by 50 pixels in width and height about its centre,
// masks out whatever stands out of the flattened image (dark or bright
// marks, dilated), and averages the rest of the input there.
//
// Result: {"Bright":%.1f}, 0.0 when no area qualifies, the shrunk area is
// empty or the mask leaves nothing. Output: the image in three channels with
// the area (green) and the measured rectangle (red).
//
// HighCamera sets the scale of what is masked: the high magnification
// camera's marks are flattened with sigma 17 and grown with a 9x9 element;
// for the low magnification camera, whose marks are smaller in pixels, both
// are halved (sigma 8.5, 5x5).
class CLCTGetBrightFilter : public CFilter {
public:
    CLCTGetBrightFilter();
    ~CLCTGetBrightFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};

namespace pixmill::filters {

struct LctBrightness {
    double bright = 0.0;
    cv::Rect area;      // the bright area; empty when none qualifies
    cv::Rect measured;  // the area less 50 pixels in width and height
};

// Measures one 8-bit one-channel image.
LctBrightness MeasureLctBrightness(const cv::Mat& gray, bool highCamera);

// The reduction of the multi-scale enhancement for a sigma: full size up to
// 10, then 1/2 up to 15, 2/5 up to 20 and 1/4 beyond: the kernels run on a
// quarter to a sixteenth of the pixels, and the sigma they see stays above 5,
// long enough to keep the kernel's shape.
double EnhanceReduction(double sigma);

// EnhanceImage (both directions) at `sigma` on the image reduced by
// EnhanceReduction, enlarged back to the input size. Flat areas come out at
// 128.
cv::Mat MultiScaleEnhance(const cv::Mat& gray, double sigma);

}  // namespace pixmill::filters
