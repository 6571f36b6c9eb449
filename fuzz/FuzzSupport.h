// Shared set-up of the fuzz targets.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <string>

namespace pixmill::fuzz {

// Points the library's root at a fresh temporary folder (every file the
// library writes lands there) and keeps logging to errors only.
void SetUpOnce();

// Fuzz bytes as wide text: each byte one character, so any byte sequence is
// a text and ASCII JSON stays readable.
std::wstring WideText(const std::string& bytes);

// A string escaped for use inside a JSON string literal.
std::string JsonEscape(const std::string& text);

// An integer argument: mostly within [low, high], sometimes an extreme of
// the int range or any int at all.
inline int AnyInt(FuzzedDataProvider& in, int low, int high) {
    switch (in.ConsumeIntegralInRange(0, 15)) {
        case 0: return std::numeric_limits<int>::max();
        case 1: return std::numeric_limits<int>::min();
        case 2: return in.ConsumeIntegral<int>();
        default: return in.ConsumeIntegralInRange(low, high);
    }
}

// A floating-point argument: NaN, infinity, -1, 0, or a value within
// [low, high].
inline double AnyDouble(FuzzedDataProvider& in, double low, double high) {
    switch (in.ConsumeIntegralInRange(0, 7)) {
        case 0: return std::numeric_limits<double>::quiet_NaN();
        case 1: return std::numeric_limits<double>::infinity();
        case 2: return -1.0;
        case 3: return 0.0;
        default: return in.ConsumeFloatingPointInRange(low, high);
    }
}

// Writes a camera frame file at `native`: a flat ground at the camera's size
// (640 x 480) or another, gray or colour, on which `draw` paints a shape;
// or raw pixels; or up to `junkBytes` bytes that may not be an image at all.
void WriteFrameFile(FuzzedDataProvider& in, const std::string& native, size_t junkBytes,
                    const std::function<void(FuzzedDataProvider&, cv::Mat&)>& draw);

// A reported coordinate of the frame functions: -1.0 or inside the
// 480 x 480 region.
inline bool InRegion(double v) {
    return v == -1.0 || (v >= 0.0 && v <= 479.0);
}

}  // namespace pixmill::fuzz
