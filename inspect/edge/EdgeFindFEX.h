// The four-frame wafer edge find: every plausible rim position on each of
// the four quadrant frames, and the sets of four that fit one wafer.
//
// Each frame's 480 x 480 region is averaged along its diagonals
// (EdgeImage.h). Along the frame's diagonal, the onward rise at a step is
// the mean of the next 20 averaged pixels minus the pixel there; it peaks at
// the foot of the rim, one to three pixels before it. A position is a peak
// of that rise above the gray threshold; its sign (the wafer brighter or
// darker than beyond its rim) is read on the frame itself. A combination
// takes one position of each frame, all of one sign, of comparable strength
// and geometrically consistent. The tables live in the library until
// released; they are replaced whole under a lock, so a reader in another
// thread sees either the old or the new tables, never a mix.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::edge {

// The frames of one call, cut to their regions: gray and colour.
struct FEXFrames {
    std::array<cv::Mat, 4> gray, colour;
};

// Reads "<path>0.bmp" to "<path>3.bmp"; false when one is unreadable or
// smaller than 480 x 480.
bool ReadFEXFrames(ImageStore& store, const char* path, FEXFrames& frames);

struct FEXCandidate {
    cv::Point point;
    double strength = 0;  // absolute onward rise
    int sign = 1;         // +1 wafer brighter than beyond its rim, -1 darker
};

struct FEXOutcome {
    std::array<std::vector<FEXCandidate>, 4> candidates;  // strongest first
    std::vector<std::array<cv::Point, 4>> combinations;
    int abnormal = 0;          // combinations refused for a y outside 31 to 449
    cv::Mat canvas, canvas2;   // colour frames; averaged frames (thin chuck only)
};

// Largest number of combinations kept.
inline constexpr size_t kMaxCombinations = 100000;

// Positions and combinations of four frames, with the canvases drawn.
FEXOutcome ComputeFEX(const FEXFrames& frames, int grayThreshold, int quadPercent, bool thinChuck);

FEXCounts EdgeFindFEXProcess(const char* path, int sx, int sy, bool thinChuck,
                             ImageStore& store = Files()) noexcept;
void EdgeFindFEXRelease() noexcept;
FEXCoordinate EdgeFindFEXCoordinate(int index, int mode) noexcept;

// Fixed files.
extern const wchar_t* const kEdgeIni;         // C:\PROBERFILES\Parameter\Temporary.ini
extern const wchar_t* const kEdgeIniSection;  // EdgeProfile
extern const wchar_t* const kEdgeDebugFolder;    // C:\PROBERPARAM\ParaImg\ (debug)
extern const wchar_t* const kEdgeFailureFolder;  // D:\proberfiles\WaferEdgeFail_images\ (failures)

}  // namespace pixmill::inspect::edge
