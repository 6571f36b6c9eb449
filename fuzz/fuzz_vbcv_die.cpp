// The die corner functions on arbitrary frame series and arguments: the
// framed die functions on drawn, raw or broken files of any size, the
// black-background worker on drawn dies of any size and tolerance, and
// CornerDetectF on small images with any crop. Every call must come back
// with its record, and every reported point must lie in the 480 x 480
// region (or be -1.0).
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "framework/TestHooks.h"
#include "inspect/die/DieCornerBlack.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

using pixmill::fuzz::AnyInt;
using pixmill::fuzz::InRegion;

namespace {

const char* const kPrefix = "C:\\fuzz\\die";

// A bright rectangle on a dark ground (at camera size or another), raw
// pixels, or bytes that may not be an image at all.
void WriteFrame(FuzzedDataProvider& in, const std::string& native) {
    pixmill::fuzz::WriteFrameFile(in, native, 512, [](FuzzedDataProvider& in, cv::Mat& image) {
        const cv::Rect r(in.ConsumeIntegralInRange(-100, 700), in.ConsumeIntegralInRange(-100, 600),
                         in.ConsumeIntegralInRange(0, 800), in.ConsumeIntegralInRange(0, 800));
        cv::rectangle(image, r, cv::Scalar::all(in.ConsumeIntegral<uint8_t>()), cv::FILLED);
    });
}

cv::Mat DrawnDies(FuzzedDataProvider& in, cv::Size size) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(in.ConsumeIntegral<uint8_t>()));
    const int n = in.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < n; ++i) {
        const cv::RotatedRect r(cv::Point2f(in.ConsumeIntegralInRange(-50, 350), in.ConsumeIntegralInRange(-50, 350)),
                                cv::Size2f(in.ConsumeIntegralInRange(1, 300), in.ConsumeIntegralInRange(1, 300)),
                                static_cast<float>(in.ConsumeIntegralInRange(-45, 45)));
        cv::Point2f p[4];
        r.points(p);
        std::vector<cv::Point> poly(p, p + 4);
        cv::fillConvexPoly(image, poly, cv::Scalar(in.ConsumeIntegral<uint8_t>()));
    }
    return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    pixmill::inspect::SetSavePauses(false);
    FuzzedDataProvider in(data, size);
    const std::string prefix = kPrefix;
    pixmill::platform::CreateParentDirectories(pixmill::platform::NativePath(prefix + "x.bmp"));
    const int cpos = AnyInt(in, -2, 5);
    const int count = in.ConsumeIntegralInRange(-1, 3);
    switch (in.ConsumeIntegralInRange(0, 5)) {
        case 0:
        case 1:
        case 2:
        case 3: {
            static const char* const kStems[4] = {"FrameEdge", "FrameTheta", "FDC", "FDC"};
            const int fn = in.ConsumeIntegralInRange(0, 3);
            const int files = in.ConsumeIntegralInRange(0, 3);
            for (int i = 0; i < files; ++i)
                WriteFrame(in, pixmill::platform::NativePath(prefix + kStems[fn] + std::to_string(i) + ".bmp"));
            FDPoint r{};
            switch (fn) {
                case 0: r = VBcvFDEdgeFind(prefix.c_str(), cpos, count); break;
                case 1: r = VBcvFDThetaFind(prefix.c_str(), cpos, count); break;
                case 2: r = VBcvFDCornerFind(prefix.c_str(), cpos, count); break;
                default: r = VBcvFDCornerFind_Ex(prefix.c_str(), cpos, count); break;
            }
            if (!InRegion(r.X) || !InRegion(r.Y)) __builtin_trap();
            break;
        }
        case 4: {
            const cv::Size s(in.ConsumeIntegralInRange(1, 320), in.ConsumeIntegralInRange(1, 320));
            const cv::Mat image = DrawnDies(in, s);
            pixmill::inspect::die::BlackBackgroundSettings b;
            b.dieWidth = AnyInt(in, -5, 400);
            b.dieHeight = AnyInt(in, -5, 400);
            b.toleranceWidth = AnyInt(in, -5, 400);
            b.toleranceHeight = AnyInt(in, -5, 400);
            b.searchMode = AnyInt(in, -1, 3);
            for (const auto& d : pixmill::inspect::die::DetectBlackBackgroundDies(image, b))
                if (!d.found) __builtin_trap();
            break;
        }
        default: {
            const cv::Size s(in.ConsumeIntegralInRange(0, 240), in.ConsumeIntegralInRange(0, 240));
            const cv::Mat image = s.area() > 0 ? DrawnDies(in, s) : cv::Mat();
            const int declared = in.ConsumeBool() ? static_cast<int>(image.total()) : AnyInt(in, -1, 100000);
            int corners[10] = {};
            const int code = CornerDetectF(image.empty() ? nullptr : image.data, declared, s.width, s.height,
                                           AnyInt(in, -10, 250), AnyInt(in, -10, 250), AnyInt(in, -10, 250),
                                           AnyInt(in, -10, 250), AnyInt(in, -5, 300), AnyInt(in, -5, 300),
                                           AnyInt(in, -5, 300), AnyInt(in, -5, 300), in.ConsumeBool() ? 1 : 0,
                                           in.ConsumeBool() ? corners : nullptr);
            if (code != 1 && code != -1 && code != -3 && code != -4) __builtin_trap();
            break;
        }
    }
    return 0;
}
