// Sequences of image buffer calls with arbitrary handles and sizes: create,
// add, get, release, a recipe run by buffer ID and the canned focus measure
// on a buffer.
#include <limits>
#include <vector>

#include "FuzzSupport.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace {

const wchar_t* kRecipe =
    L"{\"Filters\":[{\"Name\":\"S\",\"Key\":\"s\",\"Type\":\"SourceFilter\",\"IsEndPoint\":true,"
    L"\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"1\"}]}]}";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    FuzzedDataProvider in(data, size);
    std::vector<void*> live;
    std::vector<void*> released;
    std::vector<uint8_t> scratch(4096);
    for (int step = 0; step < 64 && in.remaining_bytes() > 0; ++step) {
        // A handle: a live one, a released one, null or an arbitrary value.
        auto pick = [&]() -> void* {
            switch (in.ConsumeIntegralInRange(0, 3)) {
                case 0: return live.empty() ? nullptr : live[in.ConsumeIntegralInRange<size_t>(0, live.size() - 1)];
                case 1: return released.empty() ? nullptr : released[in.ConsumeIntegralInRange<size_t>(0, released.size() - 1)];
                case 2: return nullptr;
                default: return reinterpret_cast<void*>(in.ConsumeIntegral<uintptr_t>());
            }
        };
        switch (in.ConsumeIntegralInRange(0, 8)) {
            case 0:
                if (live.size() < 8) live.push_back(ImageBufferCreate());
                break;
            case 1: {
                void* h = pick();
                const int w = in.ConsumeIntegralInRange(-2, 40), hgt = in.ConsumeIntegralInRange(-2, 40);
                std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange(0, 40 * 40 * 3));
                const int claimed = in.ConsumeBool() ? static_cast<int>(px.size()) : in.ConsumeIntegralInRange(-5, 5000);
                // The size never claims more bytes than the data holds.
                ImageBufferAdd(h, in.ConsumeIntegralInRange(-1, 3), px.data(),
                               std::min<int>(claimed, static_cast<int>(px.size())), w, hgt);
                break;
            }
            case 2: {
                int w = 0, hgt = 0;
                const int want = in.ConsumeIntegralInRange(-5, static_cast<int>(scratch.size()));
                ImageBufferGet(pick(), in.ConsumeIntegralInRange(-1, 3), scratch.data(), want, &w, &hgt);
                break;
            }
            case 3: {
                void* h = pick();
                if (ImageBufferRelease(h) == 0) {
                    live.erase(std::remove(live.begin(), live.end(), h), live.end());
                    released.push_back(h);
                }
                break;
            }
            case 5: {
                // Result capacities from none through a part of a character
                // to more than the document needs.
                wchar_t result[96];
                MultiPeakFocusMeasureF(pick(), in.ConsumeBool() ? result : nullptr,
                                       in.ConsumeIntegralInRange(-4, static_cast<int>(sizeof result)));
                break;
            }
            case 6: {
                // Pixels and a kernel of any size; the measure reads only
                // width * height bytes of a buffer that holds that many.
                const int w = in.ConsumeIntegralInRange(-2, 40), hgt = in.ConsumeIntegralInRange(-2, 40);
                std::vector<uint8_t> px(static_cast<size_t>(std::max(w, 0)) * std::max(hgt, 0) + 1,
                                        in.ConsumeIntegral<uint8_t>());
                std::vector<uint8_t> out(px.size());
                TenengradFocusF(px.data(), in.ConsumeBool() ? out.data() : nullptr, w, hgt,
                                in.ConsumeIntegralInRange(-3, 40));
                // The background subtraction over the same pixels, with
                // parameters inside and outside their ranges.
                EnhanceImageF(in.ConsumeBool() ? px.data() : nullptr, in.ConsumeBool() ? out.data() : nullptr, w,
                              hgt, in.ConsumeIntegralInRange(-5, 300),
                              in.ConsumeBool() ? std::numeric_limits<float>::quiet_NaN()
                                               : in.ConsumeFloatingPointInRange(-1.0f, 20.0f),
                              in.ConsumeBool(), in.ConsumeBool(), in.ConsumeIntegralInRange(-2, 30), in.ConsumeBool());
                // The calling thread's error text is always a terminated text.
                if (PixmillLastError() == nullptr) __builtin_trap();
                break;
            }
            case 7: {
                // The host extensions that take no image: the debug image
                // switch, a log sink put in and taken out, the version and
                // the export description with any capacity.
                PixmillSetDebugImages(in.ConsumeIntegral<int>());
                if (in.ConsumeBool()) {
                    PixmillSetLogSink([](int, const char* line, void*) {
                        if (line == nullptr) __builtin_trap();
                    }, nullptr);
                    ImageBufferRelease(pick());
                    PixmillSetLogSink(nullptr, nullptr);
                }
                if (PixmillVersion() == nullptr) __builtin_trap();
                // The description is built whole on each call: not too often.
                if (in.ConsumeIntegralInRange(0, 7) == 0) {
                    wchar_t text[64];
                    const int whole = PixmillDescribeExports(
                        in.ConsumeBool() ? text : nullptr, in.ConsumeIntegralInRange(-4, static_cast<int>(sizeof text)));
                    if (whole <= 0) __builtin_trap();
                }
                break;
            }
            default: {
                int w = 0, hgt = 0;
                wchar_t result[64];
                RecipeExecuteByBufferID(pick(), scratch.data(), static_cast<int>(scratch.size()), &w, &hgt, kRecipe,
                                        nullptr, result, sizeof result);
                break;
            }
        }
    }
    for (void* h : live) ImageBufferRelease(h);
    return 0;
}
