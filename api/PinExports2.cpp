// The second family of pin exports: form-factor plates, rotated tips, focus
// and light. Flat C shims over the inspections in inspect/pin/, which never
// let an exception out.
#include "inspect/pin/PinFocus.h"
#include "inspect/pin/PinFormfactor.h"
#include "inspect/pin/RotatePinFind.h"
#include "pixmill/pixmill.h"

namespace pin = pixmill::inspect::pin;

extern "C" PinFindResult VBcvPinFind_Formfactor_EX2(int sx, int sy, int plateWidth,
                                                    int plateHeight, int baseWidth, int baseHeight,
                                                    double distanceX, double distanceY, double th1,
                                                    double th2, int skipDifference) {
    pin::FormfactorArgs a;
    a.sx = sx;
    a.sy = sy;
    a.plateWidth = plateWidth;
    a.plateHeight = plateHeight;
    a.baseWidth = baseWidth;
    a.baseHeight = baseHeight;
    a.distanceX = distanceX;
    a.distanceY = distanceY;
    a.th1 = th1;
    a.th2 = th2;
    a.skipDifference = skipDifference;
    return pin::PinFormfactorEX2(a);
}

extern "C" PinFindResult VBcvPinFind_Formfactor_EX(int sx, int sy, int tx, int ty,
                                                   double distanceX, double distanceY,
                                                   double th1) {
    pin::FormfactorArgs a;
    a.sx = sx;
    a.sy = sy;
    a.baseWidth = tx;
    a.baseHeight = ty;
    a.distanceX = distanceX;
    a.distanceY = distanceY;
    a.th1 = th1;
    return pin::PinFormfactorEX(a);
}

extern "C" PinFindResult VBcvPinFind_Formfactor(int sx, int sy, int tx, int ty) {
    return pin::PinFormfactor(sx, sy, tx, ty);
}

extern "C" PinFindResult VBcvRotatePinFind(const char* path, int FNum, int MaxFnum, int sx, int sy,
                                           int tx, int ty, double SearchAngle,
                                           double AngleResolution) {
    try {
        pin::RotateArgs a;
        a.path = path ? path : "";
        a.frameCount = FNum;
        a.maxFrames = MaxFnum;
        a.sx = sx;
        a.sy = sy;
        a.tx = tx;
        a.ty = ty;
        a.searchAngle = SearchAngle;
        a.angleResolution = AngleResolution;
        return pin::RotatePinFind(a);
    } catch (...) {  // the path could not be copied
        return PinFindResult{-1.0, -1.0, -1.0};
    }
}

extern "C" PinFocusCheckResult VBcvPinFocusCheck(int sx, int sy, int tx, int ty) {
    return pin::PinFocusCheck(sx, sy, tx, ty);
}

extern "C" PinFocusingResult VBcvPinFocusing(const char* path, int FNum, int sx, int sy, int tx,
                                             int ty, int Diff) {
    try {
        pin::FocusingArgs a;
        a.path = path ? path : "";
        a.frameCount = FNum;
        a.sx = sx;
        a.sy = sy;
        a.tx = tx;
        a.ty = ty;
        a.diff = Diff;
        return pin::PinFocusing(a);
    } catch (...) {  // the path could not be copied
        return PinFocusingResult{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    }
}

extern "C" double VBcvPinLightFind(int sx, int sy, int cx, int cy, int aType, int mode, int tx,
                                   int ty) {
    return pin::PinLightFind(sx, sy, cx, cy, aType, mode, tx, ty);
}
