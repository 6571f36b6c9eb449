// Binarisation levels for one pad image: the shape-masked triangle
// estimators behind the threshold filters, and the two-stage variance level
// of the exported oval pad call.
//
// The estimators look only at the pixels of a figure drawn around the image
// centre (the pad's expected outline), build their histogram, find the foot
// of the histogram's main slope with a triangle construction and walk down
// from it to the first bin lower than the mean height of the bins below. The
// Ex form accepts two more figures and then checks how the pixels at or
// below each level spread over the image, to move the level to where the
// dark surround stops growing.
//
// Their lines ("[VBcvGetThreshold] Fail : ...") go to VBcvTrace.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace pixmill {

// Largest width or height the estimators and the oval call accept.
inline constexpr int kPadImageMaxSide = 480;
// Largest magnitude of a pad figure's size or corner cut. Beyond it a figure
// would lie thousands of images away; such values are refused so that every
// drawn coordinate stays exact in integer arithmetic.
inline constexpr int kPadFigureMaxSize = 32767;

// Failure values of VBcvGetThreshold and VBcvGetThresholdEx.
inline constexpr double kPadLevelBadInput = -1.0;  // size, buffer or figure refused
inline constexpr double kPadLevelNoCorner = -2.0;  // the triangle found no foot

// A triangle construction on a curve: the first occupied level, the level of
// the maximum, the level farthest below the chord between them, and whether
// such a corner was accepted (-1: not).
struct TrianglePoint {
    int start = -1;
    int peak = -1;
    int corner = -1;
    int distance = -1;
};

// The triangle of VBcvGetThreshold on a 256-bin histogram `hist` with its
// running sum `cum` and pixel count `total`. Only levels 10 to 245 take part
// (10 to 254 when no peak qualifies there). A peak must hold more than 40%
// of the pixels or have more than 60% of them below it. Distances are
// |i*m - h + c| / (m*m + 1)^2 with the chord's slope m and intercept c in
// single precision. `distance` is 0 when a corner above `start` was found.
TrianglePoint TriangleOnHistogram(const double (&hist)[256], const double (&cum)[256],
                                  double total);

// The plain triangle of VBcvGetThresholdEx. With `findBounds`, `start` is the
// first level of curve[0 .. count-1] above 0 and `peak` the first highest
// level from there (heights compared after truncation to whole numbers);
// otherwise the chord runs from 0 to `count`, so curve[0 .. count] is read.
// Only points below the chord count. `distance` is the best distance cut to
// an integer when a corner above `start` was found. A chord of no length
// finds no corner.
TrianglePoint TriangleOnCurve(const double* curve, int count, bool findBounds);

// The mask of the pad figure on a width x height image: 255 inside, 0
// outside. Shapes: 0 whole image, 1 circle of diameter `width` at the
// centre, 2 diamond touching the middle of each side, 3 stadium of straight
// length `x` and cap diameter `y` rotated by `angle` degrees about the
// centre, 4 box of `x` by `y` at the lower left corner with its corners cut
// by `offset`, rotated about the lower left corner, 5 the same box with the
// two corners of one side cut (angle 0 top, 90 right, 180 bottom, 270 left;
// any other angle draws nothing). Outlines of shapes 2 to 5 are filled from
// the image centre with 4-connectivity, so a centre outside the figure fills
// the region around it, up to the whole image. Arguments are not checked
// here; the estimators check them first.
cv::Mat DrawPadMask(int width, int height, int x, int y, int shape, int angle, int offset);

// The level of a pad image by the shape-masked triangle. data: width *
// height bytes. x, y: the figure's size; Shape 0 to 3 (see DrawPadMask);
// BlackPad non-zero: the pixels are complemented first, and the level is
// returned in that complemented scale. Angle: degrees, not negative.
// Returns the level (-1 when no bin below the foot is low enough), or
// -1.0 for a width or height that is negative or above 480, a null buffer
// with pixels, a negative Shape, BlackPad or Angle, a Shape above 3 or a
// figure size beyond kPadFigureMaxSize; -2.0 when the triangle finds no
// corner (also for an image without pixels). Never throws.
double VBcvGetThreshold(const uint8_t* data, int width, int height, int x, int y, int Shape,
                        int BlackPad, int Angle, int reserved);

// As VBcvGetThreshold with Shapes 0 to 5 and the corner cut `Offset`, the
// plain triangle, and the spatial-spread correction: for every level from
// the histogram's start to the corner, the variance of the x and of the y
// positions of the figure's pixels at or below it; where a triangle on one
// of those curves lies late enough (past the corner less a fifth of the
// slope's width), its level replaces the walked one. Writes one
// "Triangle Info" line to standard output. Never throws.
double VBcvGetThresholdEx(const uint8_t* data, int width, int height, int x, int y, int Shape,
                          int BlackPad, int Angle, int Offset, int reserved);

// The level of the exported oval pad call: t1, the variance level of the
// dark half of the histogram; then the mean of the pixels below t1,
// averaged with t1 in integer arithmetic. The pixels are visited by the
// transposed loop (outer index to width, inner to height, address
// outer * width + inner), which covers a square image once; the visit stops
// at the end of the buffer. With no pixel below t1 (also a width or height
// of 0) the level is t1 / 2. A width or height below 0 or above 480, or a
// null buffer with pixels, returns -1 after the lines "Image Buffer Sise is
// wrong! \n" and "[VBcvGetThreshold_Oval] End \n". Traces
// "Final Threshold : %d\n" on success. Never throws.
int GetThresholdOvalAutoPadReg(const uint8_t* data, int width, int height);

}  // namespace pixmill
