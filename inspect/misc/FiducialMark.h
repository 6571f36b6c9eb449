// Finding a fiducial mark of known form and size (a cross, a circle, a
// square) in a camera image by normalised correlation with a drawn mark.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::misc {

extern const wchar_t* const kFiducialDebugImage;  // C:\PROBERPARAM\ParaImg\FiducialMark.jpg

enum MarkType { kCross = 0, kCircle = 1, kSquare = 2 };
enum MarkPolarity { kDarkMark = 0, kBrightMark = 1, kEitherMark = 2 };

struct FiducialArgs {
    std::string path;
    int markType = kCross;
    int tx = 0, ty = 0;   // outer size of the mark
    int lineWidth = 0;    // 0: filled circle or square
    int polarity = kEitherMark;
    int sx = 0, sy = 0;   // search window at the image centre; 0: the whole axis
    double minScore = 0;  // 0 to 100
};

// Ground left around the mark in its template, on every side.
int FiducialMargin(int tx, int ty);

// The template of a mark: (tx + 2 * margin) x (ty + 2 * margin), 8-bit,
// 255 where the mark covers a pixel wholly, 0 on the ground, the covered
// fraction on its edges. The mark's centre is the template's centre,
// ((cols - 1) / 2, (rows - 1) / 2). Arguments are not checked here.
cv::Mat DrawFiducialTemplate(int markType, int tx, int ty, int lineWidth);

// VBcvFiducialMarkFind.
FiducialMarkResult FindFiducialMark(const FiducialArgs& args,
                                    ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::misc
