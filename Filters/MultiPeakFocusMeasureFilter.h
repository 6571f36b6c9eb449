// Chooses the sharpest image of a focus series; registered as
// "MultiPeakFocusMeasureFilter".
#pragma once

#include <array>

#include "framework/Filter.h"

// The images of all input pins form one series of a scene at different focus
// heights. One gradient level, taken from the joint histogram of the whole
// series, separates edges from noise; an image's focus value is its gradient
// summed over the pixels where any image of the series rises above that
// level, so a scene with several in-focus planes is rated on their edges.
//
// Result: { "FocusIndex":"%d","Values":[{"Num":"1", "FocusValue":"%.1f"},...]}
// with FocusIndex counting from 0 (-1 when every value is 0) and Num from 1.
// Output: with "Image Result" false the input image at the focus index (no
// image when it is -1); with "Image Result" true a chart of the values, one
// bar per image. Without input images neither result nor output changes.
// All images of a series must have one size; a mixed series, an empty image
// entry or an image that is not 8-bit fails the filter.
class CMultiPeakFocusMeasureFilter : public CFilter {
public:
    CMultiPeakFocusMeasureFilter();
    ~CMultiPeakFocusMeasureFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};

namespace pixmill::filters {

using GradientHistogram = std::array<double, 256>;

// The gradient image of one 8-bit gray image: 3x3 Gaussian, the absolute
// Sobel derivatives along x and y, averaged.
cv::Mat FocusGradient(const cv::Mat& gray);

// Adds one count per pixel of an 8-bit one-channel image.
void AddToHistogram(const cv::Mat& gradient, GradientHistogram& histogram);

// The level that separates edges from noise. The peak p is the first
// greatest bin; the tail t is where the histogram, after a steep descent of
// six steps from p, flattens or runs out (0 if it never descends so). Mode 0
// gives (p + t) / 2, any other mode p.
int GradientLevel(const GradientHistogram& histogram, int mode);

struct MultiPeakFocus {
    int level = 0;
    std::vector<double> values;
    int focusIndex = -1;  // first strictly greatest value above 0, else -1
};

// Rates a series of gradient images of one size.
MultiPeakFocus RateFocusSeries(const std::vector<cv::Mat>& gradients, int mode);

// A chart of the values: 8-bit, 100 columns, 4 * n + 8 rows, one bar of two
// rows per value, its length in proportion to the greatest value; the bar
// at `highlight` in white, the others in gray.
cv::Mat FocusChart(const std::vector<double>& values, int highlight);

}  // namespace pixmill::filters
