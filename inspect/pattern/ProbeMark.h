// Probe-mark comparison: a pad photographed after probing (the mark image,
// "PMI" in the trace) against the same pad before probing (the reference).
//
// Pads carry a repeating pattern. The comparison finds the pattern's dark
// features in both images, evens the reference's brightness out, lines the
// two up by the mean offset of paired features (at most 4 pixels either
// way), and divides the mark image by the reference: what both share comes
// out flat near 200, and a probe mark, dark in the mark image only, stands
// out as a dark place. VBcv1032Pattern_Matching writes the outcome to two
// files; the pattern-in-pad filter runs the same steps with its own detector
// and tail (CompareInPad). The steps are public so that tests can drive them
// one by one.
#pragma once

#include <cstdint>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "inspect/Inspection.h"

namespace pixmill::inspect::pattern {

// Receives each progress line of a comparison: VBcvTrace for the files
// variant, the log at level 1 for the filter.
using LineSink = std::function<void(const std::string&)>;

// The pattern features found in one image: x, y and box area of each, in
// contour order, and the pixel sum and count of the boxes' inner parts.
struct PatternList {
    std::vector<int> x, y, area;
    int64_t sum = 0;
    int64_t count = 0;

    bool Empty() const { return x.empty(); }
    // sum / count in integer division; 0 with no pixel.
    int Average() const { return count == 0 ? 0 : static_cast<int>(sum / count); }
};

// Where a feature is placed: the top-left corner of its box (files variant)
// or its centre (filter).
enum class FeatureAnchor { kCorner, kCentre };

// Features of `image` (8-bit, one channel) from its two-level picture
// `binary` (non-zero where a feature may lie). A contour counts when its area
// is within [N * 0.007, N * 0.5] (N = rows * cols) and its open arc length
// is at most (rows + cols) / 2; its feature is the bounding box of its
// polygon approximation (2 % of the closed arc length). The box's inner part
// (one pixel in from each side) adds to the sums. `onFeature` sees each
// feature's x, y and area as it is found.
PatternList DetectPatterns(const cv::Mat& image, const cv::Mat& binary, FeatureAnchor anchor,
                           const std::function<void(int, int, int)>& onFeature = {});

// The reference with its brightness evened out toward the mark's: by the
// whole-image means m and r when either image has no feature, else by the
// feature averages, the direction chosen by the inner pixel counts (mark
// count below the reference's: subtract refAverage - markAverage, else add
// markAverage - refAverage; either may be negative). Saturates at 0 and 255.
cv::Mat EvenBrightness(const cv::Mat& reference, const PatternList& mark,
                       const PatternList& ref, float m, float r);

// Features of the two images that lie within 3 pixels of each other on both
// axes and whose areas are within a factor 1.2, every reference feature
// against every mark feature; X and Y are the mean offsets (mark minus
// reference), cut to integers.
struct PairOffsets {
    std::vector<int> dx, dy;
    int X = 0, Y = 0;
    bool Any() const { return !dx.empty(); }
};
PairOffsets PairPatterns(const PatternList& mark, const PatternList& ref,
                         const LineSink& sink);

// `source` moved right by a and down by b (a, b >= 0) into a zero image of
// its size and type; the uncovered strip at the top and left stays 0. A
// shift not smaller than the image's side leaves it all 0. Images of one or
// three channels only: any other gives false with the channel error line,
// and `destination` stays 0.
bool ShiftImage(const cv::Mat& source, cv::Mat& destination, int a, int b, const LineSink& sink);

// The two images to divide, chosen from the offsets by the shift table.
// `untouchedMark` and `untouchedRef` are the images as loaded, `evenRef` the
// reference after EvenBrightness.
struct AlignedPair {
    cv::Mat mark, ref;
    bool paired = false;  // false: no pair was found
};
AlignedPair AlignPair(const cv::Mat& untouchedMark, const cv::Mat& untouchedRef,
                      const cv::Mat& evenRef, const PairOffsets& offsets, const LineSink& sink);

// 8-bit image of 200 * mark / (ref + 0.01), where a ratio of exactly 0 (a
// black mark pixel or shift strip) reads as 255 before the gain; rounded and
// saturated.
cv::Mat RatioImage(const cv::Mat& mark, const cv::Mat& ref);

// The published brightness gain of the last comparison on files:
// (256 - m) / (256 - m * 0.96), m the mark's mean.
float LastPadMeanGain();

// VBcv1032Pattern_Matching on files under the root mapping. Returns 1.0 on
// every path; success shows as "TempImg.bmp" (the flattened ratio image) and
// "ResultPadImg.bmp" (255 where darker than 0.9 times its mean) in
// `resultFolder`, which is created if missing. A null or empty folder, or
// one too long for a 256-byte file name, is refused before anything is read
// and writes no file.
double PatternMatching1032(const char* markPath, const char* referencePath,
                           const char* resultFolder, ImageStore& store = Files()) noexcept;

// VBcv1032Pattern_MatchingECC: aligns the reference onto the mark with a
// Euclidean ECC (at most kEccIterations steps, epsilon 1e-10), warps it and
// shows the differences in five HighGUI windows until a key is pressed.
// Without a display (no Wayland or reachable local X display, or Qt's
// offscreen platform) it traces "[VBcv1032Pattern_MatchingECC] No display :
// nothing shown" and returns; should HighGUI still refuse, the line carries
// OpenCV's message instead. Writes no file.
inline constexpr int kEccIterations = 100;
void PatternMatchingECC(const char* markPath, const char* referencePath,
                        ImageStore& store = Files()) noexcept;

// The pattern-in-pad comparison of one mark and one reference (8-bit, one
// channel). Lines go to `sink`. Returns 0 with the two-level result in
// `destination`, or 1 when the reference cannot be brought to the mark's
// size. Other faults raise (cv::Exception, std::bad_alloc).
int CompareInPad(const cv::Mat& mark, const cv::Mat& reference, cv::Mat& destination,
                 const LineSink& sink);

}  // namespace pixmill::inspect::pattern
