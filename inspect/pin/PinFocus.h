// Setting up the pin camera: is the edge blob of the tip larger than the
// tip (VBcvPinFocusCheck), which frames of a focus series are sharp
// (VBcvPinFocusing), and how much darker or brighter the tip is than its
// surroundings (VBcvPinLightFind).
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::pin {

extern const wchar_t* const kFocusInputImage;  // C:\PROBERPARAM\ParaImg\PinImage\FocimageRef.bmp

// The least step between neighbouring pixels that starts or ends a run,
// whatever smaller Diff the caller passes: below it, sensor noise would
// make runs of its own.
constexpr int kLeastRunStep = 21;

// Runs of one frame in one direction (rows for `horizontal`, else
// columns): a run starts after a rise of at least `step` between two
// neighbouring pixels and ends before the next fall of at least `step`; it
// is kept when it starts more than 4 pixels from the start of its line and
// ends before the last 5. `runs` gets the runs in white, `strength` (32-bit
// float) the smaller of each run's steepest rise and steepest fall along
// it.
void DrawRuns(const cv::Mat& gray, int step, bool horizontal, cv::Mat& runs, cv::Mat& strength);

// The passing blobs of a run image, filled: boxes at least 5 pixels inside
// the image, a contour area of at least 10 and at least 0.6 of the box.
cv::Mat CollectRunBlobs(const cv::Mat& runs);

struct FocusingArgs {
    std::string path;  // frames "<path><k>.bmp", k from 0
    int frameCount = 0;
    int sx = 0, sy = 0, tx = 0, ty = 0;
    int diff = 0;  // least step of a run, raised to kLeastRunStep
};

PinFocusingResult PinFocusing(const FocusingArgs& args, ImageStore& store = Files()) noexcept;
PinFocusCheckResult PinFocusCheck(int sx, int sy, int tx, int ty,
                                  ImageStore& store = Files()) noexcept;
double PinLightFind(int sx, int sy, int cx, int cy, int aType, int mode, int tx, int ty,
                    ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::pin
