// The enhancement exports: C shims over the enhancement core. The work is in
// enhance/Enhance.cpp; here only exceptions are stopped, so that nothing
// unwinds into a C caller. A failure inside (out of memory) returns -1.
#include "enhance/Enhance.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"

namespace {

template <typename Work>
int Guarded(Work work) {
    try {
        pixmill::logging::BeginCall();
        return work();
    } catch (...) {
        return -1;
    }
}

}  // namespace

extern "C" int EnhanceImage(const uint8_t* src, uint8_t* dst, int width, int height, int direction,
                            float sigma, float scale) {
    return Guarded(
        [&] { return pixmill::EnhanceImage(src, dst, width, height, direction, sigma, scale); });
}

extern "C" int Enhance_Threshold_Otsu(const uint8_t* src, uint8_t* dst, int width, int height,
                                      int bright, int threshold) {
    return Guarded([&] {
        return pixmill::Enhance_Threshold_Otsu(src, dst, width, height, bright != 0, threshold);
    });
}

extern "C" int Threshold_Triangle(const uint8_t* src, uint8_t* dst, int width, int height) {
    return Guarded([&] { return pixmill::Threshold_Triangle(src, dst, width, height); });
}

extern "C" int FuncTest(const uint8_t* src, uint8_t* dst, int width, int height) {
    return Guarded([&] { return pixmill::FuncTest(src, dst, width, height); });
}
