// Finds one pad of known size in a gray die image; registered as
// "EnhancePadFindFilter".
#pragma once

#include "framework/Filter.h"

// For each 8-bit one-channel input image at least PadWidth + 2 wide and
// PadHeight + 2 high: a binary image of the same size holding the pad,
// filled. The image is enhanced (EnhanceImage, both directions, Sigma, gain
// 5) and joined with its cleaned Otsu binarisation; then ever weaker
// detectors run until one delivers a pad-sized outline:
//   1  a blob of the filled image, box within 10% of the pad size and area
//      above Acceptance times the pad area;
//   2  the same on the image opened with a horizontal bar (area above 0.7);
//   3  the same with a vertical bar;
//   4  the best match of a pad-sized frame template on the bars, closed
//      across their gaps (normalised correlation above 0.75).
// The pad's four sides are then re-measured on the smoothed image: each
// side walks up to 5 pixels in and out of the detected box and settles on
// the darkest strip of a descent more than EdgeThresh below the pad's mean
// grey, or else where the detected blob ends. The output is the detected
// blob, dilated by 2 pixels and cut to the measured rectangle. When no
// detector succeeds, or the measured sides are implausible (width outside
// 0.85 to 1.2 PadWidth, height likewise), the output is the filled binary
// image instead. An all-dark image gives an all-zero image. Smaller images
// give no output, so the output list may be shorter than the input list.
//
// PadType true finds a dark pad (the image is inverted first). Without a
// recipe value, Acceptance and PadType are 0 and false; Proc's own start
// values, for a list without the key, are PadWidth and PadHeight 60,
// Acceptance 0.7, Sigma 4, EdgeThresh 30 and PadType false. PadWidth or
// PadHeight below 1 makes the filter fail (its output stays as it was), as
// does an image that is not 8-bit one-channel.
//
// Trace words at level 1: "OptionRead", "Get Input Image", "Input Image"
// (each image taken), "Loop" (each image), "Loop1" (each image large enough)
// and "Out convert". No result text.
class CEnhancePadFindFilter : public CFilter {
public:
    CEnhancePadFindFilter();
    ~CEnhancePadFindFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
