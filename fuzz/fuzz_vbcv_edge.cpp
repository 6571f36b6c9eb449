// The wafer edge functions on arbitrary frame files and arbitrary cpos,
// sizes, widths and table indices. Every call must come back with its
// record, and every reported point must lie in the 480 x 480 region.
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include <cstdlib>

#include "FuzzSupport.h"
#include "framework/TestHooks.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

using pixmill::fuzz::AnyDouble;
using pixmill::fuzz::AnyInt;
using pixmill::fuzz::InRegion;

namespace {

const char* const kPrefix = "C:\\fuzz\\edge";

// A frame: a drawn rim on a flat ground at the camera's size (or another),
// raw pixels, or bytes that may not be an image at all.
void WriteFrame(FuzzedDataProvider& in, const std::string& native) {
    pixmill::fuzz::WriteFrameFile(in, native, 1024, [](FuzzedDataProvider& in, cv::Mat& image) {
        cv::circle(image, {in.ConsumeIntegralInRange(-2000, 2600), in.ConsumeIntegralInRange(-2000, 2600)},
                   in.ConsumeIntegralInRange(1, 3000), cv::Scalar::all(in.ConsumeIntegral<uint8_t>()), cv::FILLED);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    // The pattern window must stay closed however the fuzzer's shell is set.
    static const bool headless = [] {
        ::unsetenv("DISPLAY");
        ::unsetenv("WAYLAND_DISPLAY");
        return true;
    }();
    (void)headless;
    pixmill::inspect::SetSavePauses(false);
    FuzzedDataProvider in(data, size);
    const std::string prefix = kPrefix;
    const std::string single = prefix + ".bmp";
    pixmill::platform::CreateParentDirectories(pixmill::platform::NativePath(single));

    const int cpos = AnyInt(in, -2, 5), sx = AnyInt(in, -10, 520), sy = AnyInt(in, -10, 520);
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0: {
            WriteFrame(in, pixmill::platform::NativePath(single));
            const EdgePoint p = VBcvEdgeFind(single.c_str(), cpos, sx, sy);
            if (!InRegion(p.X) || !InRegion(p.Y)) __builtin_trap();
            VBcvEdgeFind_GetScore();
            // Headless fuzz runs: no window opens, both calls answer at once.
            if (in.ConsumeBool()) VBcvEdgePattern(single.c_str(), cpos, sx);
            if (in.ConsumeBool()) VBcvDestroyWindow(in.ConsumeBool() ? "pattern" : nullptr);
            break;
        }
        case 1: {
            WriteFrame(in, pixmill::platform::NativePath(single));
            const EdgePointPair r = VBcvEdgeFindEX(single.c_str(), cpos, sx, sy);
            for (double v : {r.InnerX, r.InnerY, r.OuterX, r.OuterY})
                if (!InRegion(v)) __builtin_trap();
            break;
        }
        case 2: {
            WriteFrame(in, pixmill::platform::NativePath(single));
            VBcvEdgeFindIA(single.c_str(), cpos, AnyInt(in, -5, 600), AnyInt(in, -5, 600));
            break;
        }
        default: {
            for (int i = 0; i < 4; ++i)
                WriteFrame(in, pixmill::platform::NativePath(prefix + std::to_string(i) + ".bmp"));
            const FEXCounts c = in.ConsumeBool() ? VBcvEdgeFindFEX_Process(prefix.c_str(), sx, sy)
                                                 : VBcvEdgeFindFEX_Process_Thin_Chuck(prefix.c_str(), sx, sy);
            for (int k = 0; k < 4; ++k) {
                const FEXCoordinate xy = VBcvEdgeFindFEX_GetCoordinate(AnyInt(in, -2, c.Combinations + 2),
                                                                       in.ConsumeIntegralInRange(0, 1));
                for (int v : {xy.X0, xy.Y0, xy.X1, xy.Y1, xy.X2, xy.Y2, xy.X3, xy.Y3})
                    if (v < -1 || v > 479) __builtin_trap();
            }
            if (in.ConsumeBool()) VBcvEdgeFindFEX_Release();
            break;
        }
    }
    return 0;
}
