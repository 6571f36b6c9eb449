// The pin tip search and the pieces the verified searches share with it.
//
// The prober writes the camera image to PinRefimage.bmp and asks where the
// needle tip lies relative to the centre of a search area cut from the
// middle of that image. The search builds a multi-scale edge image, checks
// that it holds enough edge and that its blob is of a plausible size and
// position, then slides a tip-shaped window over one integral image of the
// edges. VBcvPinFind tries growing tip sizes and keeps the one whose ring
// lies best on edge pixels; VBcvPinFindEX and VBcvCrownPinFind scan once
// and then look for rival structures (PinFindEX.h).
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

#include "inspect/Inspection.h"
#include "inspect/pin/PinImage.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::pin {

// S Type (tip shape) and A Type (search area shape).
enum PinSearchShape { CIRCLE = 0, RECTANGLE = 1 };

// The arguments the pin searches share. `reserved` is passed by the prober
// and not read.
struct PinFindArgs {
    int sx = 0, sy = 0;                // search area, pixels, multiples of 4
    int sType = CIRCLE;                // tip shape
    int aType = RECTANGLE;             // search area shape
    int tx = 0, ty = 0;                // expected tip size, pixels, at least 4
    double edgeRatioThreshold = 0.01;  // least Total Edge / Max Edge
    double sizeDivisor = 1.0;          // how much smaller than the tip the blob may be
    double maxCircleRadius = 280.0;    // largest enclosing radius (CIRCLE tips)
};

// Fixed files of the pin family.
extern const wchar_t* const kPinInputImage;   // C:\PROBERPARAM\ParaImg\PinImage\PinRefimage.bmp
extern const wchar_t* const kPinDebugFolder;  // C:\PROBERPARAM\ParaImg\PinImage\ (debug)
extern const wchar_t* const kPinFailureFolder;  // D:\proberfiles\PinImage\ (failures)

// ---------------------------------------------------------------------------
// Steps of the search, each callable on its own
// ---------------------------------------------------------------------------

// Mean of the gradient images of the area at full, half and quarter size,
// at full size, uncleaned. All zero for an area below 4 x 4.
cv::Mat MultiScaleEdge(const cv::Mat& area);

// Clears the 5-pixel frame and every pixel below `m`.
void ClearFrameAndBelow(cv::Mat& edge, double m);

// Clears whole every non-overlapping 5 x 5 tile (centres at 2, 7, 12, ...)
// whose mean is below `m`.
void ClearWeakTiles(cv::Mat& edge, double m);

// Multi-scale edge image of the search area, cleaned: the mean of the
// gradient images at full, half and quarter size; pixels below the image's
// mean and the 5-pixel frame cleared; 5 x 5 tiles whose mean is below it
// cleared. The area's sides must be multiples of 4.
cv::Mat PinEdgeImage(const cv::Mat& area);

// Tip area times 255: int((tx/2) * ty / 2 * pi) for a CIRCLE tip, tx * ty
// for a RECTANGLE; 0 for another shape.
double MaxEdge(int sType, int64_t tx, int64_t ty);

// Which sides of the search area the blob's bounding box comes within 5
// pixels of. The right side alone is tested strictly.
struct BorderFlags {
    bool up = false, right = false, down = false, left = false;
};
BorderFlags BorderFlagsOf(const PinBoxResult& box, int sx, int sy);

// What a blob smaller than the tip asks for: a stage move (label set) or
// the search (label null). x and y are the estimated offset of the whole
// tip from the area centre.
struct BorderMove {
    const char* label = nullptr;  // "L", "R D", "L U D", ...
    double x = 0, y = 0;
};
BorderMove BorderMoveOf(const BorderFlags& flags, const PinBoxResult& box, int sx, int sy, int tx,
                        int ty);

// Top-left corner of a window, as the candidates keep it.
struct TipPosition {
    float x = 0, y = 0;
};

// Edge score of the tx x ty window with top-left corner (i, j), from the
// inclusive integral image S: the box sum for a RECTANGLE tip, the box sum
// less its four corner triangles' bounding squares (an octagon) for a
// CIRCLE tip, 0 for another shape. Corner cuts falling outside S are held
// at its edge.
double WindowScore(const cv::Mat& S, int i, int j, int64_t tx, int64_t ty, int sType);

// One pass over every window corner of one size (rows, then columns, from
// 1). A CIRCLE area skips corners outside `mask`. A score strictly above the
// best so far moves `position`; the first corner wins a tie. With
// `rawScores`, each scored corner's score is stored at (j - 1, i - 1).
struct CornerScan {
    double best = 0.0;
    bool anyCornerInArea = false;
};
CornerScan ScanCorners(const cv::Mat& S, const cv::Mat& mask, int64_t tx, int64_t ty, int sType,
                       int aType, TipPosition& position, cv::Mat* rawScores = nullptr);

// Share of the pixels of a ring of radius tx/2 around the window's centre
// that lie on edge pixels. `ring` is a scratch image of the edge image's
// size. 0 when no ring pixel falls inside the image.
double RingScore(const cv::Mat& edge, cv::Mat& ring, int64_t tx, int64_t ty, TipPosition position);

// The growing-size search: sizes tx, tx + 4, ... up to tx + 60, each
// scanned over the same integral image and recorded with its ring score,
// except the last one scanned.
struct SizeEntry {
    float score = 0, tx = 0, ty = 0, x = 0, y = 0;
};
struct SizeSearch {
    std::array<SizeEntry, 100> entries{};
    int count = 0;  // entries recorded and counted
    // What the loop left: the current size and the position of the last scan.
    int64_t tx = 0, ty = 0;
    TipPosition position;
    bool anyCornerInArea = false;
};
SizeSearch SearchSizes(const cv::Mat& edge, const cv::Mat& mask, const PinFindArgs& args,
                       float startY);

// The counted entry whose score is strictly above that of every later
// counted entry, first such from the smallest size; the last entry can
// never be chosen. -1 when none is.
int ChooseSize(const SizeEntry* entries, int count);

// Makes the chosen entry current, or keeps what the loop left.
void ApplyChoice(SizeSearch& search);

// ---------------------------------------------------------------------------
// The flow every pin search shares
// ---------------------------------------------------------------------------

// One call of a pin search: its images, measures and canvas. Steps raise a
// Fail; Handle turns it into the result.
class PinRun {
public:
    PinRun(const char* tag, const PinFindArgs& args, ImageStore& store);

    const char* Tag() const { return m_tag; }
    const PinFindArgs& Args() const { return m_args; }
    ImageStore& Store() { return m_store; }

    // Traces "<tag> Start \n".
    void Start();
    // Code 12 (tx or ty below 4), then 11 (sx or sy not a multiple of 4).
    void CheckSizes();
    // Reads and cuts the image, builds the edge image and the blob measures,
    // writes the debug images and canvas, and applies every test before the
    // search. Returns when the search should run.
    void Prepare();

    const cv::Mat& Edge() const { return m_edge; }
    const cv::Mat& Mask() const { return m_mask; }
    const PinBoxResult& Box() const { return m_box; }

    // Paints "[Error Occured : <code>]" and `lines` under it on the canvas,
    // saves it as pinDebug.jpg and throws `fail`. `x` and `y` are the
    // result's coordinates.
    [[noreturn]] void RaiseError(const Fail& fail, std::initializer_list<std::string> lines,
                                 double x = -1.0, double y = -1.0);

    // The final tests and the result for a tip of size (tx, ty) at
    // `position`: code 8 when a CIRCLE area had no corner, code 10 when the
    // tip touches the border, else marks, pinResult.jpg, canvas and (X, Y, 0).
    // `alsoMark`, when given, receives the same tip marks.
    PinFindResult Finish(int64_t tx, int64_t ty, TipPosition position, bool anyCornerInArea,
                         cv::Mat* alsoMark = nullptr);

    // The handler: traces the failure's lines, writes the failure images
    // the code calls for, and returns the result.
    PinFindResult Handle(const Fail& fail);

private:
    void PaintMeasures();
    void TestBlob();

    const char* m_tag;
    PinFindArgs m_args;
    ImageStore& m_store;
    TextCanvas m_canvas;
    cv::Mat m_loadedGray, m_loadedColour;  // the input as read
    cv::Mat m_gray, m_colour;              // the search area
    cv::Mat m_mask, m_edge;
    PinCircleResult m_circle;
    PinBoxResult m_box;
    double m_totalEdge = 0, m_maxEdge = 0, m_ratio = 0;
    double m_resultX = -1.0, m_resultY = -1.0;
};

// Runs one pin search. `body` does the work on a fresh PinRun; a Fail it
// raises becomes the result through PinRun::Handle, and any other exception
// the code-2 result with the "File Error" line. Nothing leaves.
template <class Body>
PinFindResult RunPinSearch(const char* tag, const PinFindArgs& args, ImageStore& store,
                           Body&& body) noexcept {
    return RunGuarded(
        PinFindResult{-1.0, -1.0, 2.0},
        [&]() -> PinFindResult {
            PinRun run(tag, args, store);
            try {
                return body(run);
            } catch (const Fail& fail) {
                return run.Handle(fail);
            }
        },
        [&]() -> PinFindResult {
            Fail(2).Line("%s Fail : File Error\n", tag).Trace();
            return PinFindResult{-1.0, -1.0, 2.0};
        });
}

// The searches themselves; the exports are shims over these.
PinFindResult PinFind(const PinFindArgs& args, ImageStore& store = Files()) noexcept;
PinFindResult PinFindWrap(const PinFindArgs& args, int saveMode,
                          ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::pin
