// Flattens uneven illumination and binarises what stands out of it;
// registered as "BackgroundSubstractFilter" (EnhanceImageF runs it).
#pragma once

#include <opencv2/core.hpp>

#include "framework/Filter.h"

namespace pixmill::filters {

// The settings of one background subtraction, as the filter's parameters
// give them (already kept within their ranges).
struct BackgroundSettings {
    int blurSize = 31;          // side of the background square, odd, >= 3
    double threshWeight = 1.0;  // factor on Otsu's level of the flattened image
    bool curved = false;        // level scaled by the local background
    bool darkOnBright = false;  // B/W: structures darker than the background
    int erodeCount = 0;         // 3 x 3 erosions of the binary image
    bool edgeOnly = false;      // keep only the inner boundary
};

struct BackgroundResult {
    cv::Mat binary;         // CV_8UC1, 255 on structure
    cv::Mat flattened;      // CV_8UC1, the image with its background removed
    double threshold = 0;   // global level on the flattened image
    int foreground = 0;     // count of 255 pixels in `binary`
};

// The work of the filter on one 8-bit gray image with pixels.
BackgroundResult SubtractBackground(const cv::Mat& gray, const BackgroundSettings& settings);

}  // namespace pixmill::filters

// For each input image: the background (a grey opening, or a closing for
// dark structures, by a BlurSize square, then smoothed) is subtracted, the
// rest is thresholded at ThreshWeight times its Otsu level (scaled by the
// local light with CurvedThresh), eroded ErodeCount times and, with
// EdgeDetect, cut to its boundary. Output: one 8-bit binary image per input
// image. Result: [{"threshold":"..","foreground":".."},...].
class CBackgroundSubstractFilter : public CFilter {
public:
    CBackgroundSubstractFilter();
    ~CBackgroundSubstractFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
