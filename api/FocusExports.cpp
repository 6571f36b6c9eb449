// The canned focus exports: C shims over api/FocusMeasures.cpp that stop
// every exception at the C boundary. A failure inside (out of memory) is
// logged and reads as "no measure": 0.
#include "api/FocusMeasures.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"

namespace {

template <typename Work>
int Guarded(const wchar_t* function, Work work) {
    try {
        return work();
    } catch (...) {
        pixmill::logging::LogW(4, L"<ERROR func=\"%ls\"/>", function);
        return 0;
    }
}

}  // namespace

extern "C" int TenengradFocusF(const uint8_t* source, uint8_t* destination, int width, int height,
                               int kernel) {
    return Guarded(L"TenengradFocusF", [&] {
        pixmill::api::EnsureStartup();
        return pixmill::api::TenengradFocus(source, destination, width, height, kernel);
    });
}

extern "C" int MultiPeakFocusMeasureF(void* buffer, wchar_t* resultText, int resultBytes) {
    return Guarded(L"MultiPeakFocusMeasureF", [&] {
        pixmill::api::EnsureStartup();
        return pixmill::api::MultiPeakFocusMeasure(buffer, resultText, resultBytes);
    });
}
