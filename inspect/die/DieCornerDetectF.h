// The canned die corner measurement behind CornerDetectF: a built-in recipe
// (source, crop, Otsu binarisation, black-background corner detection) run
// on the caller's pixels with the crop and die size set by an override, and
// the one die read back out of the result document.
#pragma once

#include <cstdint>
#include <string>

namespace pixmill::inspect::die {

// The two built-in recipes: bright features binarised (W/B "true") and dark
// features binarised (W/B "false").
extern const wchar_t* const kCornerRecipeBright;
extern const wchar_t* const kCornerRecipeDark;

// Return codes of CornerDetectF.
inline constexpr int kCornerOneDie = 1;
inline constexpr int kCornerNoDie = -1;
inline constexpr int kCornerIncomplete = -3;
inline constexpr int kCornerSeveralDies = -4;

// The strict number reader: optional leading "-", digits with at most one
// ".", nothing else. Anything else (a second ".", a "-" elsewhere, any other
// character, no digit at all, an empty text) reads 0.
double ReadStrictNumber(const std::wstring& text);

// Reads the die corners out of a recipe result document and fills
// `corners` (10 ints, may be null) as CornerDetectF does: 1 for the first
// complete die (centre then LT, RT, RB, LB, each offset by (x, y)), -4 when
// a second complete die follows it, -3 for a die with a corner missing and
// no complete die before it, -1 when no die is listed or the text does not
// parse.
int ReadCornerResult(const std::wstring& result, int x, int y, int* corners);

// The whole call: makes the image (when `image` is non-null, width and
// height are positive and `size` covers width * height bytes), runs the
// recipe chosen by `whiteOnBlack` (non-zero: dark features, W/B "false")
// with the crop and die overrides, writes the first output image to
// "C:\PROBERPARAM\ParaImg\PinImage\PinResult_Corner.bmp" and returns the
// code of ReadCornerResult.
int CornerDetect(const uint8_t* image, int size, int width, int height, int x, int y, int cropWidth,
                 int cropHeight, int dieWidth, int dieHeight, int toleranceWidth, int toleranceHeight,
                 int whiteOnBlack, int* corners);

}  // namespace pixmill::inspect::die
