// Form-factor pins: a rectangular plate with a smaller, darker base inside
// it at a known distance from the plate's centre.
//
// The three searches read the pin camera image (PinRefimage.bmp), cut the
// search area from its middle, turn the plate's outline into solid
// rectangles (an edge image cleaned twice, then every blob filled to its
// bounding box), and report the offset of the plate's centre from the area
// centre. VBcvPinFind_Formfactor locates the dark base inside each blob;
// VBcvPinFind_Formfactor_EX measures one plate by the brightness steps of
// its sides; VBcvPinFind_Formfactor_EX2 also merges a plate that arrived in
// two pieces, asks for a stage move when the plate is cut by the area, and
// takes its merge tolerances from the prober's Temporary.ini.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::pin {

// Where the merge tolerances live.
extern const wchar_t* const kTemporaryIni;  // C:\PROBERFILES\Parameter\Temporary.ini

struct FormfactorArgs {
    int sx = 0, sy = 0;                    // search area, multiples of 4
    int plateWidth = 0, plateHeight = 0;   // expected plate size (EX2 only)
    int baseWidth = 0, baseHeight = 0;     // expected base size, at least 4
    double distanceX = 0, distanceY = 0;   // base centre from plate centre
    double th1 = 0;                        // least PLATE - BASE gray difference
    double th2 = 0;                        // largest plate size error (EX2)
    int skipDifference = 0;                // not 0: no difference test (EX2)
};

// One blob of the filled edge image, with inclusive ends.
struct PlatePiece {
    int left = 0, top = 0, right = 0, bottom = 0, width = 0, height = 0;
    cv::Point centroid{-1, -1};
    int state = -1;
};

// The blobs of the filled edge image of a search area, in contour order:
// steps shared by the family. `baseWidth`/`baseHeight` set which blobs are
// dropped as too small (below a quarter of the base when filling, not above
// half of it when kept).
struct PlateBlobs {
    cv::Mat filled;                  // the second-level edge image, blobs filled
    std::vector<PlatePiece> pieces;  // kept pieces
};
PlateBlobs FindPlateBlobs(const cv::Mat& gray, int baseWidth, int baseHeight);

// The two merge margins, read from section PINALIGN of Temporary.ini on each
// call: FormFactorMarginX and FormFactorMarginY, 10 when absent; a value
// above plateHeight / 2 (for both keys) becomes 10.
struct PlateMargins {
    int x = 10, y = 10;
};
PlateMargins ReadPlateMargins(int plateHeight);

// Merges pieces of one plate around the piece nearest to the area centre.
// Fails (a Fail with code -1) when four or more pieces lie in the centre
// piece's band or when more than one partner makes up the plate.
void MergePlatePieces(const cv::Mat& filled, std::vector<PlatePiece>& pieces, int plateWidth,
                      int plateHeight, PlateMargins margins, const char* tag);

// Index of the largest step of a profile in its first quarter (P[i] - P[i-1],
// i from 1 up to length * 0.25) and in its last quarter (P[i] - P[i+1], i
// above length * 0.75 up to length - 2); a later index wins a tie. A range
// without an index leaves 0 and length - 1.
struct ProfileEdges {
    int first = 0, last = 0;
};
ProfileEdges FindProfileEdges(const std::vector<double>& profile);

PinFindResult PinFormfactor(int sx, int sy, int tx, int ty,
                            ImageStore& store = Files()) noexcept;
PinFindResult PinFormfactorEX(const FormfactorArgs& args, ImageStore& store = Files()) noexcept;
PinFindResult PinFormfactorEX2(const FormfactorArgs& args, ImageStore& store = Files()) noexcept;

}  // namespace pixmill::inspect::pin
