// The enhancement core: directional contrast enhancement and the two
// automatic thresholds shared by the pad, mark and alignment code.
//
// The four image functions work on packed 8-bit one-channel pixel buffers
// (width * height bytes, rows top to bottom, no row padding) that belong to
// the caller. They keep nothing between calls, so they may run concurrently
// on different buffers. The exported C functions of the same names are thin
// shims over these; the shims also stop every exception at the C boundary.
//
// Outcomes shared by the four image functions:
//   - a negative width or height returns -1 before anything else, and dst is
//     left untouched;
//   - a null src or dst with at least one pixel returns -1, dst untouched;
//   - an image without pixels (width or height 0) reads and writes nothing
//     and returns what each function states below.
// Failures of the image library (out of memory) leave as exceptions.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace pixmill {

// One of the two one-dimensional kernels of EnhanceImage.
struct EnhanceKernel {
    // The taps as floats in reverse order: data[i] holds tap size-1-i, so
    // data's last element is the tap at the most negative offset.
    std::vector<float> data;
    int size = 0;
    // EnhanceImage divides every element by this: the truncated sum of the
    // integer taps for the smoothing kernel, 32 for the derivative kernel.
    int divisor = 1;
};

// Sigma below this gives kernels too short to smooth; it is raised to it.
inline constexpr double kMinKernelSigma = 0.3;
// Sigma above this is lowered to it: twice the largest Sigma a recipe editor
// offers, and it bounds the kernel at 800 taps so a mistyped value cannot
// exhaust memory or stall the prober for minutes.
inline constexpr double kMaxKernelSigma = 100.0;
// The derivative peak tap is 10 * scale and must fit a 16-bit tap, so the
// gain is limited to +-3276 (a NaN gain counts as 0).
inline constexpr double kMaxKernelScale = 3276.0;

// Builds the smoothing kernel (a Gaussian with peak 71, 4 * sigma taps) and
// the derivative kernel (the negated second derivative of a Gaussian with
// peak 10 * scale, 8 * sigma taps). The derivative taps are corrected to sum
// to exactly zero, so flat areas stay flat. Either output may be null.
void BuildEnhanceKernels(double sigma, double scale, EnhanceKernel* smooth,
                         EnhanceKernel* derivative);

// Otsu's threshold over the pixels of `image` whose `mask` byte is non-zero.
// Both are CV_8UC1 of one size. The lowest level wins among equal maxima; a
// mask that selects nothing, or pixels of a single level, gives 0.
double MaskedOtsuThreshold(const cv::Mat& image, const cv::Mat& mask);

// The triangle threshold of a CV_8UC1 image, pulled further toward the long
// tail of the histogram: from the foot of the triangle down to the first bin
// lower than the average height of the bins below it. An image without
// pixels has an empty histogram, which the arithmetic takes for a mirrored
// one, and gives 2.
double RefinedTriangleThreshold(const cv::Mat& image);

// Sharpens with a separable second-derivative-of-Gaussian filter: flat areas
// come out at 128, edges swing toward 0 and 255. direction 1 responds to
// change along a row, 2 along a column, any other value to both. sigma is
// raised to 1.0 and scale to 0.1 unless above (NaN counts as below). Returns
// 0, also for an image without pixels.
int EnhanceImage(const uint8_t* src, uint8_t* dst, int width, int height, int direction,
                 float sigma, float scale);

// Binarises with Otsu's threshold restricted to one side of mid-grey. bright:
// levels above 127 are searched, the threshold is max(threshold, Otsu) and
// dst is 255 above it. Dark: levels at or below 128, min(threshold, Otsu),
// dst 255 at or below it. Returns the threshold used; an image without
// pixels returns max(threshold, 0) or min(threshold, 0).
int Enhance_Threshold_Otsu(const uint8_t* src, uint8_t* dst, int width, int height, bool bright,
                           int threshold);

// Binarises with RefinedTriangleThreshold (255 above it) and writes the
// result upside down: dst's first row comes from src's last row. Returns
// the threshold; an image without pixels returns 2 (see above).
int Threshold_Triangle(const uint8_t* src, uint8_t* dst, int width, int height);

// Writes the bitwise complement of src. Returns 0, also for an image without
// pixels.
int FuncTest(const uint8_t* src, uint8_t* dst, int width, int height);

}  // namespace pixmill
