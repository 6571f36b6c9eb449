// Binarising a flat (unpatterned) pad image so that its probe marks stand
// out, with the level of the spread-corrected pad threshold estimator.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::misc {

extern const wchar_t* const kFlatPadDebugImage;  // C:\PROBERPARAM\ParaImg\FlatPadResult.jpg

// Connected groups of mark pixels smaller than this are sensor specks.
inline constexpr int kLeastMarkPixels = 5;

struct FlatPadArgs {
    std::string padPath;
    std::string resultPath;
    int x = 0, y = 0;  // the pad figure's size
    int shape = 0;
    int blackPad = 0;
    int angle = 0;
    int offset = 0;
};

// The marks of a gray pad image below `level` (above it, in the image's
// scale, for a black pad) inside `figure` (255 inside), specks dropped:
// 255 on the marks, 0 elsewhere. `level` is in the estimator's scale
// (complemented for a black pad). Fills the record's mark fields.
cv::Mat IsolateMarks(const cv::Mat& gray, const cv::Mat& figure, int level, bool blackPad,
                     FlatPadResult& result);

// VBcvBinarization_for_Flat_Pad. The result file is written directly, so
// that a failed write can be reported; the debug image goes to `store`.
FlatPadResult BinarizeFlatPad(const FlatPadArgs& args, ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::misc
