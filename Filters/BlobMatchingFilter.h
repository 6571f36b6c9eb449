// Finds the best placements of a masked template; registered as
// "BlobMatchingFilter".
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "framework/Filter.h"

namespace pixmill::filters {

struct BlobMatch {
    cv::Point2d centre;  // the template's centre in the searched image
    double score = 0;    // masked correlation coefficient
};

// Up to `maxCount` placements of `templ` in `image` (both CV_8UC1) scoring
// at least `minScore` under `mask` (CV_8UC1, the template's size; non-zero
// counts), best first, no two within `minDistance` (x, y) of each other on
// both axes. Raises the matcher's cv::Exception, naming
// CBlobMatchingFilter::matchTemplateMask, on a bad mask or template size.
std::vector<BlobMatch> MatchBlobs(const cv::Mat& image, const cv::Mat& templ, const cv::Mat& mask,
                                  int maxCount, double minScore, cv::Size minDistance);

}  // namespace pixmill::filters

// Each image of "In" (key 1) is searched for the first image of "Template"
// (key 2) under the first image of "Mask" (key 3; without one every
// template pixel counts). Output: each searched image in colour with the
// placements drawn. Result: [{"Count":"n","Blobs":[{"X":..,"Y":..,
// "Score":..},...]},...].
class CBlobMatchingFilter : public CFilter {
public:
    CBlobMatchingFilter();
    ~CBlobMatchingFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
