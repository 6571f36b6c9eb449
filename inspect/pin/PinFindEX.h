// The pin tip searches with verification.
//
// VBcvPinFindEX runs the pin tip search's preparation, scans once at the
// given tip size and then asks whether the peak is unique: a needle tip must
// stand out. Edge profiles through the found window's stripe and the score
// map of all corners are searched for a rival away from the tip (outside
// guard bands around it); a rival refuses the answer with code 13 rather
// than report a wrong pin. VBcvCrownPinFind does the same with stricter
// parameter checks and a rival test on single profile samples, with a guard
// band and level that the caller sets.
#pragma once

#include <vector>

#include "inspect/pin/PinFind.h"

namespace pixmill::inspect::pin {

// Edge sums of each row over the found window's columns, and of each column
// over its rows, with their normalised form (the largest sum becomes 255; an
// all-zero profile stays 0). The stripe is clipped to the image.
struct PinEdgeProfile {
    std::vector<double> rowSum, rowNorm, colSum, colNorm;
};
PinEdgeProfile EdgeProfileOf(const cv::Mat& edge, TipPosition position, int64_t tx, int64_t ty);

// A closed range of rows or columns around the tip where no rival is sought.
struct GuardBand {
    int lo = 0, hi = -1;
    bool Holds(int64_t v) const { return v >= lo && v <= hi; }
};

// The first window of `length` samples, from sample 0 while it starts below
// size - length, whose first and last samples both lie outside `band` and
// whose sum is at or above `level`.
struct RivalWindow {
    bool found = false;
    double sum = 0;  // the rival's sum
};
RivalWindow FindRivalWindow(const std::vector<double>& profile, int64_t length, GuardBand band,
                            double level);

// Every sample outside `band` at or above `level`.
std::vector<int> RivalSamples(const std::vector<double>& profile, GuardBand band, double level);

// Corners (i, j) of tx x ty windows that lie outside the cross of the two
// bands (zone pixel 255, and i, i + tx, j, j + ty all outside their band)
// whose raw score, at (j - 1, i - 1), is at or above `level`. Each is marked
// on `marks` with a circle of radius 1 when given.
int CountRivalCorners(const cv::Mat& zone, const cv::Mat& rawScores, int64_t tx, int64_t ty,
                      GuardBand rows, GuardBand cols, double level, cv::Mat* marks = nullptr);

// The crown search's guard band (pixels on each side of the tip) and level
// (fraction of the tip's mean profile level).
struct CrownRule {
    int alpha = 0;
    double beta = 0;
};

// The single scan, rival search and verdict after PinRun::Prepare. Without
// a crown rule, window rivals and a 30-pixel band; with one, single-sample
// rivals and its band.
PinFindResult VerifiedSearch(PinRun& run, double verifyFactor, const CrownRule* crown);

PinFindResult PinFindEX(const PinFindArgs& args, double verifyFactor, int saveMode,
                        ImageStore& store = Files()) noexcept;
PinFindResult CrownPinFind(const PinFindArgs& args, double verifyFactor, int saveMode, int alpha,
                           double beta, ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::pin
