// The canned focus measurements behind TenengradFocusF and
// MultiPeakFocusMeasureF: a fixed filter or recipe run on the caller's
// pixels or image buffer, and the one number the caller wants read out of
// the result document.
#pragma once

#include <cstdint>
#include <string>

namespace pixmill::api {

// The recipe that MultiPeakFocusMeasureF runs: a source of the images with
// ImageID 1 feeding MultiPeakFocusMeasureFilter (Thresh Mode 0, Image Result
// false) as its end point.
extern const wchar_t* const kMultiPeakFocusRecipe;

// The number after the first `"max":"` of a result text: the digits and
// points that follow, read as a decimal number, times 100 and truncated.
// 0 when the key is absent or no digit follows; saturates at INT_MAX.
int TenengradMaxTimes100(const std::wstring& result);

// The digits after the first `"FocusIndex":"` as a number; 0 when the key is
// absent or a digit does not follow (so an index of -1 reads as 0);
// saturates at INT_MAX.
int FocusIndexOf(const std::wstring& result);

// Copies the whole text with its terminator into a buffer of `bytes` bytes,
// cut to the whole characters that fit and always terminated. A null buffer
// or one too small for a single character receives nothing.
void CopyTerminated(const std::wstring& text, wchar_t* destination, int bytes);

// TenengradFocusFilter with the given Kernel on one gray image of width by
// height bytes, through FilterExecuteByBuffer: returns the greatest local
// mean gradient times 100, truncated. `destination` (may be null) receives
// the first width * height bytes of the marked three-channel picture.
int TenengradFocus(const uint8_t* source, uint8_t* destination, int width, int height,
                   int kernel);

// Runs kMultiPeakFocusRecipe on the images of a live image buffer (which
// keeps owning them) and returns the focus index read from the result; -1,
// running nothing, for a null or dead handle. The result document is copied
// as CopyTerminated does.
int MultiPeakFocusMeasure(void* buffer, wchar_t* resultText, int resultBytes);

}  // namespace pixmill::api
