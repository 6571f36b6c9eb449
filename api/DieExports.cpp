// The die corner exports: flat C shims over inspect/die/. The framed die
// functions never let an exception out; CornerDetectF stops one at the C
// boundary (out of memory), logs it and reports no die.
#include "api/Startup.h"
#include "inspect/die/DieCornerDetectF.h"
#include "inspect/die/DieCornerFramed.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"

using namespace pixmill::inspect::die;

extern "C" FDPoint VBcvFDEdgeFind(const char* path, int cpos, int count) {
    return FDEdgeFind(path, cpos, count);
}

extern "C" FDPoint VBcvFDThetaFind(const char* path, int cpos, int count) {
    return FDThetaFind(path, cpos, count);
}

extern "C" FDPoint VBcvFDCornerFind(const char* path, int cpos, int count) {
    return FDCornerFind(path, cpos, count);
}

extern "C" FDPoint VBcvFDCornerFind_Ex(const char* path, int cpos, int count) {
    return FDCornerFindEx(path, cpos, count);
}

extern "C" int CornerDetectF(const uint8_t* image, int size, int width, int height, int x, int y,
                             int cropWidth, int cropHeight, int dieWidth, int dieHeight, int toleranceWidth,
                             int toleranceHeight, int whiteOnBlack, int* corners) {
    try {
        pixmill::api::EnsureStartup();
        return CornerDetect(image, size, width, height, x, y, cropWidth, cropHeight, dieWidth, dieHeight,
                            toleranceWidth, toleranceHeight, whiteOnBlack, corners);
    } catch (...) {
        pixmill::logging::LogW(4, L"<ERROR func=\"CornerDetectF\"/>");
        return kCornerNoDie;
    }
}
