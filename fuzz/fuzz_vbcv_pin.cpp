// The pin tip searches on arbitrary image files at their fixed input path
// and arbitrary arguments. Every call must come back with a result record.
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "FuzzSupport.h"
#include "inspect/Inspection.h"
#include "inspect/pin/PinFind.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

using pixmill::fuzz::AnyDouble;
using pixmill::fuzz::AnyInt;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    pixmill::inspect::SetSavePauses(false);
    static const std::string input = [] {
        std::string native = pixmill::platform::NativePath(std::wstring(pixmill::inspect::pin::kPinInputImage));
        pixmill::platform::CreateParentDirectories(native);
        return native;
    }();
    FuzzedDataProvider in(data, size);

    // The file: a drawn tip on noise, raw pixels, or bytes that may not be
    // an image at all.
    const int mode = in.ConsumeIntegralInRange(0, 2);
    if (mode == 2) {
        pixmill::platform::WriteWholeFile(input, in.ConsumeRandomLengthString(2048));
    } else {
        const int w = in.ConsumeIntegralInRange(1, 160), h = in.ConsumeIntegralInRange(1, 160);
        cv::Mat image(h, w, CV_8UC1, cv::Scalar(in.ConsumeIntegral<uint8_t>()));
        if (mode == 0) {
            cv::circle(image, {in.ConsumeIntegralInRange(0, w), in.ConsumeIntegralInRange(0, h)},
                       in.ConsumeIntegralInRange(1, 40), cv::Scalar(in.ConsumeIntegral<uint8_t>()), cv::FILLED);
        } else {
            std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(image.total());
            std::copy(px.begin(), px.end(), image.data);
        }
        cv::imwrite(input, image);
    }

    const int sx = AnyInt(in, -8, 200), sy = AnyInt(in, -8, 200);
    const int sType = in.ConsumeIntegralInRange(-1, 2), aType = in.ConsumeIntegralInRange(-1, 2);
    const int tx = AnyInt(in, -4, 120), ty = AnyInt(in, -4, 120);
    const double ratio = AnyDouble(in, -4.0, 400.0), divisor = AnyDouble(in, -4.0, 400.0), radius = AnyDouble(in, -4.0, 400.0), reserved = AnyDouble(in, -4.0, 400.0);
    const double verify = AnyDouble(in, -4.0, 400.0);
    const int saveMode = in.ConsumeIntegralInRange(-2, 4);
    PinFindResult r{};
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0: r = VBcvPinFind(sx, sy, sType, aType, tx, ty, ratio, divisor, radius, reserved); break;
        case 1: r = VBcvPinFind_WRAP(sx, sy, sType, aType, tx, ty, ratio, divisor, radius, reserved, saveMode); break;
        case 2: r = VBcvPinFindEX(sx, sy, sType, aType, tx, ty, ratio, divisor, radius, reserved, verify, saveMode); break;
        default:
            r = VBcvCrownPinFind(sx, sy, sType, aType, tx, ty, ratio, divisor, radius, reserved, verify, saveMode,
                                 in.ConsumeIntegralInRange(-5, 300), AnyDouble(in, -4.0, 400.0));
            break;
    }
    // A code is always a whole number.
    if (!(r.Code == std::floor(r.Code))) __builtin_trap();
    return 0;
}
