// The second pin family on arbitrary images and arguments: the fixed input
// files and frame series of any size and channel count, truncated or not
// images at all. Every call must come back with its result record.
#include <climits>
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFocus.h"
#include "inspect/pin/PinFormfactor.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "platform/Profile.h"

using pixmill::fuzz::AnyDouble;
using pixmill::fuzz::AnyInt;

namespace {

// Writes an image file at `native`: drawn rectangles on a level, raw
// pixels, a truncated image, or bytes that are no image.
void WriteImage(FuzzedDataProvider& in, const std::string& native) {
    const int mode = in.ConsumeIntegralInRange(0, 3);
    if (mode == 3) {
        pixmill::platform::WriteWholeFile(native, in.ConsumeRandomLengthString(512));
        return;
    }
    const int w = in.ConsumeIntegralInRange(1, 500), h = in.ConsumeIntegralInRange(1, 500);
    const int channels = in.ConsumeBool() ? 1 : 3;
    cv::Mat image(h, w, CV_8UC(channels), cv::Scalar::all(in.ConsumeIntegral<uint8_t>()));
    if (mode == 1) {
        std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(image.total() * image.elemSize());
        std::copy(px.begin(), px.end(), image.data);
    } else {
        const int n = in.ConsumeIntegralInRange(0, 4);
        for (int i = 0; i < n; ++i) {
            const cv::Rect r(in.ConsumeIntegralInRange(0, w), in.ConsumeIntegralInRange(0, h),
                             in.ConsumeIntegralInRange(1, 200), in.ConsumeIntegralInRange(1, 200));
            cv::rectangle(image, r, cv::Scalar::all(in.ConsumeIntegral<uint8_t>()), cv::FILLED);
        }
    }
    std::vector<uchar> bytes;
    cv::imencode(".bmp", image, bytes);
    if (mode == 2 && !bytes.empty()) bytes.resize(in.ConsumeIntegralInRange<size_t>(0, bytes.size()));
    pixmill::platform::WriteWholeFile(native, std::string(bytes.begin(), bytes.end()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    pixmill::inspect::SetSavePauses(false);
    namespace pin = pixmill::inspect::pin;
    static const std::string pinInput = [] {
        const std::string n = pixmill::platform::NativePath(std::wstring(pin::kPinInputImage));
        pixmill::platform::CreateParentDirectories(n);
        return n;
    }();
    static const std::string focusInput =
        pixmill::platform::NativePath(std::wstring(pin::kFocusInputImage));
    static const std::string series = "C:\\fuzz\\frame";
    FuzzedDataProvider in(data, size);

    const int which = in.ConsumeIntegralInRange(0, 6);
    if (which <= 2 || which == 6) WriteImage(in, pinInput);
    if (which == 5) WriteImage(in, focusInput);
    const int frames = in.ConsumeIntegralInRange(-1, 3);
    if (which == 3 || which == 4) {
        for (int k = 0; k < std::max(frames, 0); ++k) {
            const std::string n = pixmill::platform::NativePath(series + std::to_string(k) + ".bmp");
            pixmill::platform::CreateParentDirectories(n);
            if (in.ConsumeIntegralInRange(0, 7) != 0) WriteImage(in, n);  // else keep or miss
        }
    }
    if (which == 0 && in.ConsumeBool())
        pixmill::platform::WriteProfileString(pin::kTemporaryIni, L"PINALIGN", L"FormFactorMarginX",
                                              pixmill::platform::FromUtf8(in.ConsumeRandomLengthString(8)));

    const int sx = AnyInt(in, -8, 490), sy = AnyInt(in, -8, 490);
    const int a = AnyInt(in, -4, 300), b = AnyInt(in, -4, 300), c = AnyInt(in, -4, 120),
              d = AnyInt(in, -4, 120);
    const double x = AnyDouble(in, -20.0, 300.0), y = AnyDouble(in, -20.0, 300.0), t1 = AnyDouble(in, -20.0, 300.0), t2 = AnyDouble(in, -20.0, 300.0);
    double code = 0;
    switch (which) {
        case 0:
            code = VBcvPinFind_Formfactor_EX2(sx, sy, a, b, c, d, x, y, t1, t2, in.ConsumeBool()).Code;
            break;
        case 1: code = VBcvPinFind_Formfactor_EX(sx, sy, c, d, x, y, t1).Code; break;
        case 2: {
            // The largest pin size is the smallest or one more, without
            // stepping past the int range when the smallest is an extreme.
            const int largest = c < std::numeric_limits<int>::max() ? c + in.ConsumeIntegralInRange(0, 1) : c;
            code = VBcvPinFind_Formfactor(sx, sy, c, largest).Code;
            break;
        }
        case 3: {
            // Few angles keep one run short: a resolution of at least 1
            // degree, or one of the values that must be refused.
            static const double kOdd[] = {std::numeric_limits<double>::quiet_NaN(),
                                          std::numeric_limits<double>::infinity(), 0.0, -1.0};
            const double step = in.ConsumeBool() ? kOdd[in.ConsumeIntegralInRange(0, 3)]
                                                 : in.ConsumeFloatingPointInRange(1.0, 20.0);
            code = VBcvRotatePinFind(in.ConsumeBool() ? series.c_str() : nullptr, frames, 0, sx, sy,
                                     c, d, in.ConsumeFloatingPointInRange(-5.0, 30.0), step)
                       .Code;
            break;
        }
        case 4: {
            const PinFocusingResult r = VBcvPinFocusing(series.c_str(), frames, sx, sy, c, d, a);
            if (r.SFrame < -1 || r.SFrame >= std::max(frames, 1)) __builtin_trap();
            break;
        }
        case 5: code = VBcvPinFocusCheck(sx, sy, c, d).Code; break;
        default: {
            const double level = VBcvPinLightFind(sx, sy, AnyInt(in, -300, 300), AnyInt(in, -300, 300),
                                                  in.ConsumeIntegralInRange(-1, 2),
                                                  in.ConsumeIntegralInRange(-1, 2), c, d);
            if (!(level == -1.0 || (level >= 0.0 && level <= 255.0))) __builtin_trap();
            break;
        }
    }
    // A code is a number (the rotated search returns an angle there).
    if (std::isnan(code)) __builtin_trap();
    return 0;
}
