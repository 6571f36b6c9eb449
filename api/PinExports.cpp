// The pin tip search exports: flat C shims over the searches in
// inspect/pin/, which never let an exception out.
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFindEX.h"
#include "pixmill/pixmill.h"

namespace {

pixmill::inspect::pin::PinFindArgs Args(int sx, int sy, int sType, int aType, int tx, int ty,
                                        double edgeRatioThreshold, double sizeDivisor,
                                        double maxCircleRadius) {
    pixmill::inspect::pin::PinFindArgs a;
    a.sx = sx;
    a.sy = sy;
    a.sType = sType;
    a.aType = aType;
    a.tx = tx;
    a.ty = ty;
    a.edgeRatioThreshold = edgeRatioThreshold;
    a.sizeDivisor = sizeDivisor;
    a.maxCircleRadius = maxCircleRadius;
    return a;
}

}  // namespace

extern "C" PinFindResult VBcvPinFind(int sx, int sy, int sType, int aType, int tx, int ty,
                                     double edgeRatioThreshold, double sizeDivisor,
                                     double maxCircleRadius, double /*reserved*/) {
    return pixmill::inspect::pin::PinFind(
        Args(sx, sy, sType, aType, tx, ty, edgeRatioThreshold, sizeDivisor, maxCircleRadius));
}

extern "C" PinFindResult VBcvPinFind_WRAP(int sx, int sy, int sType, int aType, int tx, int ty,
                                          double edgeRatioThreshold, double sizeDivisor,
                                          double maxCircleRadius, double /*reserved*/,
                                          int saveMode) {
    return pixmill::inspect::pin::PinFindWrap(
        Args(sx, sy, sType, aType, tx, ty, edgeRatioThreshold, sizeDivisor, maxCircleRadius),
        saveMode);
}

extern "C" PinFindResult VBcvPinFindEX(int sx, int sy, int sType, int aType, int tx, int ty,
                                       double edgeRatioThreshold, double sizeDivisor,
                                       double maxCircleRadius, double /*reserved*/,
                                       double verifyFactor, int saveMode) {
    return pixmill::inspect::pin::PinFindEX(
        Args(sx, sy, sType, aType, tx, ty, edgeRatioThreshold, sizeDivisor, maxCircleRadius),
        verifyFactor, saveMode);
}

extern "C" PinFindResult VBcvCrownPinFind(int sx, int sy, int sType, int aType, int tx, int ty,
                                          double edgeRatioThreshold, double sizeDivisor,
                                          double maxCircleRadius, double /*reserved*/,
                                          double verifyFactor, int saveMode, int Alpha,
                                          double Beta) {
    return pixmill::inspect::pin::CrownPinFind(
        Args(sx, sy, sType, aType, tx, ty, edgeRatioThreshold, sizeDivisor, maxCircleRadius),
        verifyFactor, saveMode, Alpha, Beta);
}
