// The pattern functions on image files: finding a pattern inside a target
// image by normalised correlation, and marking the pixels that change across
// a numbered series of images of one scene.
#pragma once

#include <opencv2/core.hpp>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::pattern {

// Fixed result images of VBcvPatternMatching.
extern const wchar_t* const kPatternSuccessImage;  // C:\PROBERPARAM\ParaImg\PinLowAlignResult.jpg
extern const wchar_t* const kPatternFailImage;     // C:\PROBERPARAM\ParaImg\PinLowAlignFail.jpg

// VBcvPatternMatching: the pattern's centre in the target and the score
// (0 to 100, truncated), or -1, -1, -1. Lines go to the log (progress at
// level 2, failures at level 4).
PatternMatchResult FindPattern(const char* targetPath, const char* patternPath,
                               int scoreThreshold, ImageStore& store = Files()) noexcept;

// VBcvMakePatternMask: 1 with "<path><name>M.bmp" written, 0 on failure.
int MakePatternMask(const char* path, const char* name, int imageCount, int pixelTolerance,
                    int changeLimit, ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::pattern
