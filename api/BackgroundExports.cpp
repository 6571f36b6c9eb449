// EnhanceImageF: background subtraction behind a flat signature. The
// parameters become the filter's parameter text and BackgroundSubstractFilter
// runs on the caller's pixels through FilterExecuteByBuffer.
#include <cstdarg>
#include <string>

#include "api/Startup.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace {

using pixmill::logging::LogW;

// The parameter text, numbers in the C locale ("0.500000" under any host
// locale): the filter reads it back in the C locale.
std::wstring ParamText(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring text;
    pixmill::platform::FormatWide(format, args, text);
    va_end(args);
    return text;
}

const wchar_t* TrueFalse(bool value) {
    return value ? L"True" : L"False";
}

}  // namespace

extern "C" int EnhanceImageF(const uint8_t* source, uint8_t* destination, int width, int height,
                             int blurSize, float threshWeight, bool curvedThresh, bool blackWhite,
                             int erodeCount, bool edgeDetect) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<EnhanceImageF>");
    const std::wstring param = ParamText(
        L"{\"Params\":[  {\"Key\":\"BlurSize\", \"Value\":\"%d\"},  {\"Key\":\"ThreshWeight\", "
        L"\"Value\":\"%f\"},  {\"Key\":\"CurvedThresh\", \"Value\":\"%ls\"},  {\"Key\":\"B/W\", "
        L"\"Value\":\"%ls\"},  {\"Key\":\"ErodeCount\", \"Value\":\"%d\"},  {\"Key\":\"EdgeDetect\", "
        L"\"Value\":\"%ls\"}]}",
        blurSize, static_cast<double>(threshWeight), TrueFalse(curvedThresh), TrueFalse(blackWhite),
        erodeCount, TrueFalse(edgeDetect));
    LogW(1, L"<Param>%ls</Param>", param.c_str());
    const int bytes = FilterExecuteByBuffer(source, destination, width, height,
                                            L"BackgroundSubstractFilter", param.c_str(), nullptr, 0);
    LogW(2, L"</EnhanceImageF>");
    return bytes;
} catch (...) {
    LogW(4, L"<ERROR func=\"EnhanceImageF\"/>");
    return 0;
}
