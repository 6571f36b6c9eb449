// Finds the wafer's rim on four corner images; registered as
// "WaferEdgeFilter".
//
// The corner images RT, LT, LB and RB (pins 1 to 4) are square crops of the
// four diagonal corners of a dark wafer on a bright chuck, each crossed by
// the rim. Each is turned so that its corner-to-corner diagonal stands
// upright, and flattened across it into a gray profile along the diagonal.
// The profiles of opposite corners (RT with LB, LT with RB) are slid over
// each other; among the offsets where they match best, the one with the
// most dark, equal samples just past the rim wins, and half of it places
// the rim in each image: the filter measures how far the wafer sits off the
// middle of each diagonal pair, assuming its rim passes through the images'
// middles when the wafer is centred.
//
// Output: the four corners annotated and joined as they lie on the wafer
// (and with DrawDebug the two pairs' plots); result text
// {"WaferEdge": {"RT":{"X": x, "Y": y}, ..., "FIND_RT_LB" : "SUCCESS", "FIND_LT_RB" : "FAIL"} }.
// A pair that finds nothing reports "FAIL" and points that are not to be
// used. Colour images are read in gray; all four must be at least as large
// as RT's rows in both directions, else the filter fails and keeps its
// previous output.
#pragma once

#include <array>
#include <vector>

#include "framework/Filter.h"

namespace pixmill::filters {

struct WaferEdgeSettings {
    int startSkip = 10, mask = 51, grayTolerance = 10;
    bool drawDebug = false;
};

// One pair's working values, kept for the plot and for tests.
struct WaferEdgePair {
    std::vector<double> scores;
    std::vector<int> candidates;
    std::vector<double> grays, percents;  // per candidate; percent -1 when no sample counted
    double grayAverage = 0;
    bool found = false;
    int selected = -1;   // index into candidates
    int offset = 0;      // final offset
    int secondary = 0;   // accepted secondary delta, 0 when not accepted
    cv::Mat first, second;  // the profiles
};

struct WaferEdgeSet {
    std::array<cv::Point, 4> points;  // RT, LT, LB, RB
    std::array<WaferEdgePair, 2> pairs;
    cv::Mat composite;
    std::array<cv::Mat, 2> plots;  // with DrawDebug, for a pair that found
};

// The whole computation for one set of four gray images (RT, LT, LB, RB).
WaferEdgeSet FindWaferEdge(const std::array<cv::Mat, 4>& images, const WaferEdgeSettings& settings);

}  // namespace pixmill::filters

class CWaferEdgeFilter : public CFilter {
public:
    CWaferEdgeFilter();
    ~CWaferEdgeFilter() override = default;

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    void Trace() override;
};
