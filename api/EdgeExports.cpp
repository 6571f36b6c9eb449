// The wafer edge exports: flat C shims over the functions in inspect/edge/,
// which never let an exception out.
#include "logging/Logger.h"
#include "inspect/edge/EdgeFind.h"
#include "inspect/edge/EdgeFindFEX.h"
#include "inspect/edge/EdgeFindIA.h"
#include "inspect/edge/EdgePattern.h"
#include "pixmill/pixmill.h"

using namespace pixmill::inspect::edge;

extern "C" EdgePoint VBcvEdgeFind(const char* path, int cpos, int sx, int sy) {
    return EdgeFind(path, cpos, sx, sy);
}

extern "C" EdgePointPair VBcvEdgeFindEX(const char* path, int cpos, int sx, int sy) {
    return EdgeFindEX(path, cpos, sx, sy);
}

extern "C" double VBcvEdgeFind_GetScore(void) {
    pixmill::logging::BeginCall();
    return TakeEdgeFindScore();
}

extern "C" int VBcvEdgePattern(const char* path, int x, int y) {
    return EdgePattern(path, x, y);
}

extern "C" int VBcvDestroyWindow(const char* name) {
    pixmill::logging::BeginCall();
    return DestroyPatternWindow(name);
}

extern "C" FEXCounts VBcvEdgeFindFEX_Process(const char* path, int sx, int sy) {
    return EdgeFindFEXProcess(path, sx, sy, false);
}

extern "C" FEXCounts VBcvEdgeFindFEX_Process_Thin_Chuck(const char* path, int sx, int sy) {
    return EdgeFindFEXProcess(path, sx, sy, true);
}

extern "C" void VBcvEdgeFindFEX_Release(void) {
    pixmill::logging::BeginCall();
    EdgeFindFEXRelease();
}

extern "C" FEXCoordinate VBcvEdgeFindFEX_GetCoordinate(int index, int mode) {
    pixmill::logging::BeginCall();
    return EdgeFindFEXCoordinate(index, mode);
}

extern "C" int VBcvEdgeFindIA(const char* path, int cpos, int width, int tolerance) {
    return EdgeFindIA(path, cpos, width, tolerance);
}
