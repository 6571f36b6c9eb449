// The small image routines the pin inspections stand on: gradient image,
// mean levels, blob clean-up by contour area, hull outline, enclosing circle
// and bounding box of the first contour, inclusive integral sums, the
// centroid of saturated pixels, an arrow mark and a pseudo-colour rendering.
//
// Images are 8-bit, one channel, unless a routine says otherwise. A
// destination of the wrong size or type is (re)created at the size of the
// source. None of the routines traces or reports; they never read or write
// outside the images they are given.
#pragma once

#include <opencv2/core.hpp>

namespace pixmill::inspect::pin {

struct PinCircleResult {
    cv::Point center;   // cut to integers
    double radius = 0;  // unrounded
};

struct PinBoxResult {
    cv::Point center;  // ((2x + w) / 2, (2y + h) / 2), cut
    double width = 0;  // 0 when there was no contour
    double height = 0;
};

// Mean of a one-channel image; 0.0 for another channel count, NaN for an
// image without pixels.
double GrayMean(const cv::Mat& image);

// Mean of the non-zero pixels; 0.0 for another channel count, NaN when no
// pixel is set.
double GrayMeanNonZero(const cv::Mat& image);

// |d/dx| + |d/dy| of 3 x 3 Sobel derivatives (replicated border), each
// saturated to a byte, their sum saturated again.
void SobelEdgeImage(const cv::Mat& source, cv::Mat& destination);

// The outline (thickness 1, 8-connected) of the convex hull of all non-zero
// pixels; all zero when there are none.
void ConvexHullImage(const cv::Mat& source, cv::Mat& destination);

// Redraws, filled and with holes filled in, every top-level contour whose
// area is at least `minimumArea`. The colour is white, or one random colour
// per call on a three-channel destination.
void AreaFilterContours(const cv::Mat& source, cv::Mat& destination, double minimumArea);

// Smallest circle around the first contour, drawn filled into
// `destination` (zeroed first only when it had to be created). All zero,
// nothing drawn, when there is no contour.
PinCircleResult EnclosingCircleOf(const cv::Mat& source, cv::Mat& destination);

// Bounding box of the first contour, drawn as a rectangle from (x, y) to
// (x + w, y + h) with `thickness` (-1 fills). Width 0, nothing drawn, when
// there is no contour.
PinBoxResult BoundingBoxOf(const cv::Mat& source, cv::Mat& destination, int thickness);

// S(r, c) = sum of the source at rows <= r and columns <= c, both ends
// inclusive, summed in 32-bit floats row by row. `source` is converted to
// 32-bit float first if it is not.
void IntegralImage(const cv::Mat& source, cv::Mat& integral);

// The same over packed arrays of width * height floats. Does nothing for a
// null array or a size that is not positive.
void IntegralArray(const float* source, float* destination, int width, int height);

// Mean position of the pixels above 254 in columns [left, right) and rows
// [top, bottom). A left or top below 0 counts as 0; a right below 1 as the
// width, a bottom below 1 as the height; a right or bottom beyond the image
// as its edge. (-1, -1) when no pixel qualifies.
cv::Point BrightCentroid(const cv::Mat& image, int left, int top, int right, int bottom);

// A line from `from` to `to` with two barbs about one pixel long at `to`.
// A `to` on column 0 takes the fixed direction 1.5708.
void DrawArrow(cv::Mat& image, cv::Point from, cv::Point to, const cv::Scalar& colour);

// Maps gray level v to the angle ((v * 360) >> 8) degrees and colours it
// ((1 + sin) * 127.5, (1 - cos) * 127.5, (1 - sin) * 127.5) as channels 0, 1, 2.
void PseudoColorImage(const cv::Mat& source, cv::Mat& destination);

}  // namespace pixmill::inspect::pin
