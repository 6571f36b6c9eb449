// The oval pad export and the two threshold estimators on arbitrary pixels,
// sizes and figure arguments. Pixel buffers are exactly width * height
// bytes, so any read past the image is a finding.
#include <climits>
#include <cmath>
#include <vector>

#include "FuzzSupport.h"
#include "enhance/PadThreshold.h"
#include "pixmill/pixmill.h"

using pixmill::fuzz::AnyDouble;
using pixmill::fuzz::AnyInt;

namespace {

std::vector<uint8_t> Pixels(FuzzedDataProvider& in, int width, int height) {
    std::vector<uint8_t> px(static_cast<size_t>(width) * height);
    const uint8_t base = in.ConsumeIntegral<uint8_t>();
    const int spread = in.ConsumeIntegralInRange(0, 255);
    for (size_t i = 0; i < px.size(); ++i)
        px[i] = static_cast<uint8_t>(base + (spread ? (i * 37 + i / 7) % (spread + 1) : 0));
    std::vector<uint8_t> given = in.ConsumeBytes<uint8_t>(px.size());
    std::copy(given.begin(), given.end(), px.begin());
    return px;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    FuzzedDataProvider in(data, size);
    const bool exported = in.ConsumeBool();
    // Sizes the buffer can hold, or refused ones with a small buffer.
    int width = in.ConsumeIntegralInRange(0, exported ? 480 : 96);
    int height = in.ConsumeIntegralInRange(0, exported ? 480 : 96);
    std::vector<uint8_t> px = Pixels(in, width, height);
    const uint8_t* buffer = px.data();
    if (in.ConsumeIntegralInRange(0, 7) == 0) {
        width = AnyInt(in, -4, 600);
        height = AnyInt(in, -4, 600);
        if (width > 0 && height > 0 && width <= 480 && height <= 480)
            buffer = nullptr;  // a missing buffer for an image with pixels
    } else if (in.ConsumeIntegralInRange(0, 15) == 0) {
        buffer = nullptr;
    }

    if (exported) {
        const int level = VBcvGetThreshold_Oval_Auto_Pad_Reg(buffer, width, height);
        if (level < -1 || level > 255) __builtin_trap();
        return 0;
    }
    const int x = AnyInt(in, -10, 200), y = AnyInt(in, -10, 200);
    const int shape = AnyInt(in, -1, 6), blackPad = AnyInt(in, -1, 2);
    const int angle = AnyInt(in, -10, 400), offset = AnyInt(in, -10, 100);
    const double level =
        in.ConsumeBool()
            ? pixmill::VBcvGetThreshold(buffer, width, height, x, y, shape, blackPad, angle, 0)
            : pixmill::VBcvGetThresholdEx(buffer, width, height, x, y, shape, blackPad, angle,
                                          offset, 0);
    if (!(level >= -2.0 && level <= 255.0 && level == std::floor(level))) __builtin_trap();
    return 0;
}
