// Masked normalised correlation: a template matched against an image where
// only the template pixels under a mask count.
//
// OpenCV's plain matchTemplate scores every template pixel alike. The pad and
// mark matchers need to hide parts of a template (a probe mark, a changing
// label), so they score placements with the correlation coefficient taken
// over the masked pixels only. `matchTemplateMask` composes that score from
// tiled correlations computed through the discrete Fourier transform;
// `crossCorr` is the tiled correlation on its own. Filters include this
// header and pass their own name, which then appears in the assertion
// messages they raise.
#pragma once

#include <opencv2/core.hpp>

namespace pixmill::inspect::pattern {

// The function name and source file that an assertion of the matcher names
// in its cv::Exception, so a failure reads as the calling filter's own.
struct MatchCaller {
    const char* function;
    const char* file;
};

inline constexpr MatchCaller kMatchTemplateMaskCaller{"matchTemplateMask",
                                                      "inspect/pattern/MatchTemplateMask.cpp"};
inline constexpr MatchCaller kCrossCorrCaller{"crossCorr", "inspect/pattern/MatchTemplateMask.cpp"};

// Fills `result` (CV_32F, one channel, img.rows - templ.rows + 1 rows by
// img.cols - templ.cols + 1 columns) with the masked correlation coefficient
// of every template placement:
//
//   R(x,y) = sum M^2 (T - t)(I - i) / ( ||M (T - t)|| * sqrt(sum M^2 (I - i)^2) )
//
// over the template window, with t and i the M-weighted means of template
// and window (per channel; channels are summed). 1 is a perfect match on the
// masked pixels.
//
// Checks, in this order, each raising cv::Exception code -215 (assertion
// failed) with the condition as its text and `caller` as function and file:
//   1. "_mask.depth() == CV_8U || _mask.depth() == CV_32F"
//   2. "_mask.channels() == _templ.channels() || _mask.channels() == 1"
//   3. "_templ.size() == _mask.size()"
//   4. "_img.size().height >= _templ.size().height && _img.size().width >= _templ.size().width"
// Image and template must have the same channel count (1 to 4) and a depth
// OpenCV can convert; a mismatch raises cv::Exception as well.
//
// Mask: an 8-bit mask is binary (any non-zero value counts as 1); a CV_32F
// mask is used as weights. A one-channel mask applies to every channel.
//
// Undefined placements: where a mask channel sums to 0 (an all-zero mask),
// every score is NaN. Where the window has no variance under the mask (its
// masked variance is below 1e-12 of its masked sum of squares, the reach of
// rounding), or the template has none, the score is NaN. NaN never wins
// cv::minMaxLoc, so a caller's peak search skips these placements.
void matchTemplateMask(cv::InputArray img, cv::InputArray templ, cv::OutputArray result,
                       cv::InputArray mask, const MatchCaller& caller = kMatchTemplateMaskCaller);

// Correlation of `img` with `templ` into the existing `corr`, whose size and
// type say what is computed: corr(x,y) = sum templ(u,v) * img(x+u-ax, y+v-ay)
// + delta, with (ax, ay) the anchor. With a one-channel `corr` the channels
// of a multi-channel image are summed; with as many channels as the image,
// each goes to its own channel. Pixels outside the image come from its
// parent matrix (unless borderType has BORDER_ISOLATED), then from
// copyMakeBorder with `borderType`.
//
// Checks, in this order (code -215): "img.dims <= 2 && templ.dims <= 2 &&
// corr.dims <= 2", "depth == tdepth || tdepth == CV_32F", "corr.rows <=
// img.rows + templ.rows - 1 && corr.cols <= img.cols + templ.cols - 1", "ccn
// == 1 || delta == 0"; a transform size that does not fit an int gives code
// -211, "the input arrays are too big".
//
// The output is cut into tiles of about 4.5 template sizes (at least a 256
// point transform); the template's transform is taken once for all tiles.
void crossCorr(const cv::Mat& img, const cv::Mat& templ, cv::Mat& corr, cv::Point anchor,
               double delta, int borderType, const MatchCaller& caller = kCrossCorrCaller);

}  // namespace pixmill::inspect::pattern
