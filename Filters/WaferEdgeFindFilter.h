// Finds bright bands that cross the whole image and reports a point on the
// edge of each; registered as "WaferEdgeFindFilter".
//
// Made for the wafer seen bright through the camera's frame: the image is
// blurred, split by Otsu's threshold and closed, and every bright component
// that spans the full width (Direction 0, 2) or the full height (1, 3),
// without filling the image, and whose blurred mean exceeds 0.9 times that
// of all bright pixels is a band. Direction picks the reported side: 0 the
// middle of its top, 1 of its left, 2 of its bottom (one past its last
// row), 3 of its right (one past its last column). The output is the closed
// mask without the refused components; the result text
// { "Count":"n", "Blobs":[{"Blob":"0", "X":"x", "Y":"y"},...]}.
#pragma once

#include <vector>

#include "framework/Filter.h"

namespace pixmill::filters {

struct BandFind {
    std::vector<cv::Point> points;
    cv::Mat mask;
};

// The worker on one image (8-bit, one or three channels).
BandFind FindBands(const cv::Mat& image, int direction, int blurSize, int closeSize);

}  // namespace pixmill::filters

class CWaferEdgeFindFilter : public CFilter {
public:
    CWaferEdgeFindFilter();
    ~CWaferEdgeFindFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
