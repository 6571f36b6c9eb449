// The single-frame wafer edge finds: one rim point (VBcvEdgeFind), an inner
// and an outer rim point (VBcvEdgeFindEX), and the score of the last
// VBcvEdgeFind.
//
// The frame shows one quadrant of the rim (cpos, EdgeImage.h). Its 480 x 480
// region is averaged along the diagonals that run with the rim, and a walk
// from the frame's corner toward the wafer centre rates each position by how
// much brighter the rest of the walk is than the 30 pixels behind it. So the
// wafer must be brighter than what lies outside it (a bright wafer on a dark
// chuck); the outer point of VBcvEdgeFindEX is where, walking back out, the
// chuck beyond a dark bevel grows brighter again.
#pragma once

#include <string>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::edge {

EdgePoint EdgeFind(const char* path, int cpos, int sx, int sy, ImageStore& store = Files()) noexcept;
EdgePointPair EdgeFindEX(const char* path, int cpos, int sx, int sy,
                         ImageStore& store = Files()) noexcept;

// Returns the score of the last VBcvEdgeFind and sets it to 0.0.
double TakeEdgeFindScore() noexcept;

// The scans on an averaged 480 x 480 region, for tests and benchmarks.
// `size` is the larger of sx and sy (30 to 480).
EdgePoint ScanInner(const cv::Mat& averaged, int cpos, int size, double* bestScore);

// The wide path of a caller's narrow (UTF-8) path; "" for null.
std::wstring CallerPath(const char* path);

}  // namespace pixmill::inspect::edge
