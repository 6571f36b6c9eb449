// The pattern family on arbitrary inputs: the masked matcher on images,
// templates and masks of any size, type and content; the probe-mark
// comparison, the pattern search and the series mask on image files that may
// be missing, of different sizes or not images at all; and the
// pattern-in-pad filter on two pins. The matcher may refuse with a
// cv::Exception; nothing else may escape, and what is returned must be sane.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "FuzzSupport.h"
#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "inspect/pattern/MatchTemplateMask.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace {

// An image of fuzzed size, type and pixels (at most 48 x 48).
cv::Mat AnyImage(FuzzedDataProvider& in, int depth, int channels) {
    const int w = in.ConsumeIntegralInRange(0, 48), h = in.ConsumeIntegralInRange(0, 48);
    cv::Mat m(h, w, CV_MAKETYPE(depth, channels), cv::Scalar::all(0));
    if (depth == CV_32F) {
        for (size_t i = 0; i < m.total() * m.channels(); ++i) {
            float v = in.ConsumeFloatingPointInRange(-2.0f, 300.0f);
            switch (in.ConsumeIntegralInRange(0, 15)) {
                case 0: v = std::numeric_limits<float>::quiet_NaN(); break;
                case 1: v = std::numeric_limits<float>::infinity(); break;
                case 2: v = 0.0f; break;
                default: break;
            }
            reinterpret_cast<float*>(m.data)[i] = v;
        }
    } else if (!m.empty()) {
        const std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(m.total() * m.elemSize());
        std::copy(px.begin(), px.end(), m.data);
    }
    return m;
}

int AnyDepth(FuzzedDataProvider& in) {
    static const int depths[] = {CV_8U, CV_32F, CV_16U};
    return depths[in.ConsumeIntegralInRange(0, 2)];
}

void Matcher(FuzzedDataProvider& in) {
    const int cn = in.ConsumeBool() ? 1 : 3;
    const cv::Mat img = AnyImage(in, in.ConsumeBool() ? CV_8U : CV_32F, cn);
    const cv::Mat templ = AnyImage(in, in.ConsumeBool() ? CV_8U : CV_32F, in.ConsumeBool() ? cn : 1);
    const cv::Mat mask = AnyImage(in, AnyDepth(in), in.ConsumeBool() ? 1 : cn);
    cv::Mat result;
    try {
        pixmill::inspect::pattern::matchTemplateMask(img, templ, result, mask);
    } catch (const cv::Exception&) {
        return;  // a refusal is a documented outcome
    }
    if (result.type() != CV_32FC1 || result.cols != img.cols - templ.cols + 1 ||
        result.rows != img.rows - templ.rows + 1)
        __builtin_trap();
}

// Writes a drawn pad, raw pixels or arbitrary bytes to `proberPath`, or
// leaves it absent.
void AnyFile(FuzzedDataProvider& in, const std::string& proberPath) {
    const std::string native = pixmill::platform::NativePath(proberPath);
    pixmill::platform::CreateParentDirectories(native);
    std::remove(native.c_str());
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0: return;
        case 1:
            pixmill::platform::WriteWholeFile(native, in.ConsumeRandomLengthString(256));
            return;
        default: {
            cv::Mat image = AnyImage(in, CV_8U, in.ConsumeBool() ? 1 : 3);
            if (image.empty()) return;
            for (int y = 2; y + 6 < image.rows; y += 9)
                for (int x = 2; x + 6 < image.cols; x += 9)
                    if (in.ConsumeBool()) cv::rectangle(image, cv::Rect(x, y, 5, 5), cv::Scalar::all(20), cv::FILLED);
            cv::imwrite(native, image);
        }
    }
}

void Filter(FuzzedDataProvider& in) {
    std::unique_ptr<IBaseObject> object(
        pixmill::FilterRegistry::Instance().Create(L"PatternInPadMaskingFilter"));
    auto* filter = dynamic_cast<IFilter*>(object.get());
    if (!filter) __builtin_trap();
    std::vector<cv::Mat> marks, refs;
    for (int i = in.ConsumeIntegralInRange(0, 3); i > 0; --i) marks.push_back(AnyImage(in, CV_8U, in.ConsumeBool() ? 1 : 3));
    for (int i = in.ConsumeIntegralInRange(0, 2); i > 0; --i) refs.push_back(AnyImage(in, CV_8U, 1));
    std::vector<cv::Mat*> a, b;
    for (cv::Mat& m : marks) a.push_back(&m);
    for (cv::Mat& m : refs) b.push_back(&m);
    filter->GetPin(1)->SetImage(a);
    filter->GetPin(2)->SetImage(b);
    for (cv::Mat* out : filter->GetPin(-1)->GetImage())
        if (out && !out->empty() && out->depth() != CV_8U) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    static const bool headless = [] {
        ::unsetenv("DISPLAY");
        ::unsetenv("WAYLAND_DISPLAY");
        return true;
    }();
    (void)headless;
    FuzzedDataProvider in(data, size);
    switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0: Matcher(in); break;
        case 1: {
            AnyFile(in, "C:\\fz\\mark.bmp");
            AnyFile(in, "C:\\fz\\ref.bmp");
            const char* folders[] = {"C:\\fz\\out", "", nullptr, "C:\\fz\\mark.bmp"};
            const double r = VBcv1032Pattern_Matching(in.ConsumeBool() ? "C:\\fz\\mark.bmp" : nullptr,
                                                      "C:\\fz\\ref.bmp", folders[in.ConsumeIntegralInRange(0, 3)]);
            if (r != 1.0) __builtin_trap();
            // Headless: the display step must trace and return, never block.
            if (in.ConsumeBool()) VBcv1032Pattern_MatchingECC("C:\\fz\\mark.bmp", "C:\\fz\\ref.bmp");
            VBcvPadMeanGain();
            break;
        }
        case 2: {
            AnyFile(in, "C:\\fz\\target.png");
            AnyFile(in, "C:\\fz\\pattern.png");
            const PatternMatchResult r = VBcvPatternMatching(
                "C:\\fz\\target.png", in.ConsumeBool() ? "C:\\fz\\pattern.png" : "",
                in.ConsumeIntegralInRange(-2, 101));
            if (r.score != -1 && (r.score < 0 || r.score > 100 || r.x < 0 || r.y < 0)) __builtin_trap();
            break;
        }
        case 3: {
            const int count = in.ConsumeIntegralInRange(-1, 3);
            for (int i = 0; i < 3; ++i) AnyFile(in, "C:\\fz\\s" + std::to_string(i) + ".bmp");
            const int r = VBcvMakePatternMask("C:\\fz\\", "s", count, in.ConsumeIntegralInRange(-1, 300),
                                              in.ConsumeIntegralInRange(-1, 101));
            if (r != 0 && r != 1) __builtin_trap();
            break;
        }
        default: Filter(in); break;
    }
    return 0;
}
