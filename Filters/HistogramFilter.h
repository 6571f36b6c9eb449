// Measures images and charts the measurements, one bar per image.
#pragma once

#include "framework/Filter.h"

// A diagnostic filter. Each input image is measured from its gray-level
// histogram of channel 0 (levels 0 to 254; 255 is not counted) according to
// Display:
//   1 (and any unknown value): mean level (white bar) and variance (gray bar)
//   2: lowest (white) and highest (gray) level present
//   3: highest less lowest level present (white)
//   4: strength of the image's detail once the lowest frequencies are gone
//      (white): the mean of 20 ln |x| over the filtered image
// The output is one chart of Ratio columns and one band of 4 rows per
// image; each list of bars is scaled so that its largest magnitude spans the
// width. Without input images there is no chart. The result is {}.
class CHistogramFilter : public CFilter {
public:
    CHistogramFilter();
    ~CHistogramFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
