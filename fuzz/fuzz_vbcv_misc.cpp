// The fiducial mark find, the region intensity data and the flat pad
// binarisation on arbitrary image files and arguments. Every call must come
// back with its failure record or a result that is consistent with the
// image; the histogram buffer is exactly as large as the call is told, so
// a write past it is a finding.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

using pixmill::fuzz::AnyDouble;
using pixmill::fuzz::AnyInt;

namespace {

const char* const kImage = "C:\\fuzz\\misc.bmp";

// Writes the input image: shapes on a ground, raw pixels, or bytes that may
// not be an image. Returns its size (0 x 0 when it is not an image).
cv::Size WriteInput(FuzzedDataProvider& in) {
    static const std::string native = [] {
        std::string path = pixmill::platform::NativePath(std::string(kImage));
        pixmill::platform::CreateParentDirectories(path);
        return path;
    }();
    const int mode = in.ConsumeIntegralInRange(0, 2);
    if (mode == 2) {
        pixmill::platform::WriteWholeFile(native, in.ConsumeRandomLengthString(2048));
        return {0, 0};
    }
    int w = in.ConsumeIntegralInRange(1, 160), h = in.ConsumeIntegralInRange(1, 160);
    if (in.ConsumeIntegralInRange(0, 7) == 0) {  // wider than a pad image may be
        w = in.ConsumeIntegralInRange(481, 500);
        h = in.ConsumeIntegralInRange(1, 8);
    }
    cv::Mat image(h, w, CV_8UC1, cv::Scalar(in.ConsumeIntegral<uint8_t>()));
    if (mode == 0) {
        const int shapes = in.ConsumeIntegralInRange(0, 4);
        for (int i = 0; i < shapes; ++i) {
            const cv::Point c(in.ConsumeIntegralInRange(0, w), in.ConsumeIntegralInRange(0, h));
            const cv::Scalar ink(in.ConsumeIntegral<uint8_t>());
            const int r = in.ConsumeIntegralInRange(1, 60);
            if (in.ConsumeBool())
                cv::circle(image, c, r, ink, in.ConsumeBool() ? cv::FILLED : 3);
            else
                cv::rectangle(image, cv::Rect(c.x - r, c.y - r / 3, 2 * r, 2 * r / 3 + 1), ink,
                              cv::FILLED);
        }
    } else {
        const std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(image.total());
        std::copy(px.begin(), px.end(), image.data);
    }
    cv::imwrite(native, image);
    return image.size();
}

void Fiducial(FuzzedDataProvider& in, cv::Size size) {
    const int type = AnyInt(in, -1, 3), tx = AnyInt(in, -2, 200), ty = AnyInt(in, -2, 200);
    const int line = AnyInt(in, -1, 40), polarity = AnyInt(in, -1, 3);
    const int sx = AnyInt(in, -1, 200), sy = AnyInt(in, -1, 200);
    const double minScore = AnyDouble(in, -1.0, 101.0);
    const FiducialMarkResult r = VBcvFiducialMarkFind(in.ConsumeBool() ? kImage : nullptr, type,
                                                      tx, ty, line, polarity, sx, sy, minScore);
    if (r.X == -1.0 && r.Y == -1.0 && r.Score == -1.0) return;
    // A found centre lies on the image and a score between 0 and 100.
    if (!(r.Score >= 0.0 && r.Score <= 100.0 && r.Score >= minScore)) __builtin_trap();
    if (!(r.X >= -0.5 && r.Y >= -0.5 && r.X <= size.width - 0.5 && r.Y <= size.height - 0.5))
        __builtin_trap();
}

void Intensity(FuzzedDataProvider& in) {
    const int x = AnyInt(in, -2, 170), y = AnyInt(in, -2, 170);
    const int w = AnyInt(in, -2, 170), h = AnyInt(in, -2, 170);
    const int size = in.ConsumeIntegralInRange(-1, 300);
    std::vector<int> buffer(static_cast<size_t>(std::max(size, 1)), -3);
    int* histogram = in.ConsumeIntegralInRange(0, 15) == 0 ? nullptr : buffer.data();
    const IntensityData r = VBcvGetIntesityData(in.ConsumeBool() ? kImage : nullptr, x, y, w, h,
                                                histogram, size);
    if (r.Mean == -1.0 && r.StdDev == -1.0 && r.Min == -1.0 && r.Max == -1.0 && r.Pixels == -1.0) {
        // The buffer is left alone on a failure.
        if (std::any_of(buffer.begin(), buffer.end(), [](int v) { return v != -3; }))
            __builtin_trap();
        return;
    }
    const int64_t counted = std::accumulate(buffer.begin(), buffer.begin() + 256, int64_t{0});
    if (!(r.Min <= r.Mean && r.Mean <= r.Max && r.StdDev >= 0.0 && r.Min >= 0.0 &&
          r.Max <= 255.0 && static_cast<double>(counted) == r.Pixels))
        __builtin_trap();
}

void FlatPad(FuzzedDataProvider& in, cv::Size size) {
    static const char* const results[] = {"C:\\fuzz\\out\\bin.png", "C:\\fuzz\\out\\bin.xyz", "",
                                          nullptr};
    const char* result = results[in.ConsumeIntegralInRange(0, 3)];
    const int x = AnyInt(in, -10, 200), y = AnyInt(in, -10, 200);
    const int shape = AnyInt(in, -1, 6), blackPad = AnyInt(in, -1, 2);
    const int angle = AnyInt(in, -10, 400), offset = AnyInt(in, -10, 100);
    const FlatPadResult r = VBcvBinarization_for_Flat_Pad(in.ConsumeBool() ? kImage : nullptr,
                                                          result, x, y, shape, blackPad, angle,
                                                          offset);
    const int32_t* f = &r.Level;
    if (std::all_of(f, f + 7, [](int32_t v) { return v == -1; })) return;
    const int64_t pixels = static_cast<int64_t>(size.width) * size.height;
    if (!(r.Level >= 0 && r.Level <= 255 && r.Marks >= 0 && r.MarkPixels >= 0 &&
          r.MarkPixels <= pixels && r.MarkX >= 0 && r.MarkY >= 0 &&
          r.MarkX + r.MarkWidth <= size.width && r.MarkY + r.MarkHeight <= size.height))
        __builtin_trap();
    if ((r.Marks == 0) != (r.MarkPixels == 0)) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    pixmill::inspect::SetSavePauses(false);
    FuzzedDataProvider in(data, size);
    const int call = in.ConsumeIntegralInRange(0, 2);
    const cv::Size image = WriteInput(in);
    switch (call) {
        case 0: Fiducial(in, image); break;
        case 1: Intensity(in); break;
        default: FlatPad(in, image); break;
    }
    return 0;
}
