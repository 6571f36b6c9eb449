// The further inspection exports: fiducial marks, region intensity and
// flat pad binarisation. Flat C shims over inspect/misc/, which never let
// an exception out.
#include "inspect/misc/FiducialMark.h"
#include "inspect/misc/FlatPad.h"
#include "inspect/misc/IntensityData.h"
#include "pixmill/pixmill.h"

namespace misc = pixmill::inspect::misc;

extern "C" FiducialMarkResult VBcvFiducialMarkFind(const char* path, int markType, int tx, int ty,
                                                   int lineWidth, int polarity, int sx, int sy,
                                                   double minScore) {
    try {
        misc::FiducialArgs a;
        a.path = path ? path : "";
        a.markType = markType;
        a.tx = tx;
        a.ty = ty;
        a.lineWidth = lineWidth;
        a.polarity = polarity;
        a.sx = sx;
        a.sy = sy;
        a.minScore = minScore;
        return misc::FindFiducialMark(a);
    } catch (...) {  // the path could not be copied
        return FiducialMarkResult{-1.0, -1.0, -1.0};
    }
}

extern "C" IntensityData VBcvGetIntesityData(const char* path, int x, int y, int width,
                                             int height, int* histogram, int histogramSize) {
    return misc::GetIntensityData(path, x, y, width, height, histogram, histogramSize);
}

extern "C" FlatPadResult VBcvBinarization_for_Flat_Pad(const char* padPath,
                                                       const char* resultPath, int x, int y,
                                                       int shape, int blackPad, int angle,
                                                       int offset) {
    try {
        misc::FlatPadArgs a;
        a.padPath = padPath ? padPath : "";
        a.resultPath = resultPath ? resultPath : "";
        a.x = x;
        a.y = y;
        a.shape = shape;
        a.blackPad = blackPad;
        a.angle = angle;
        a.offset = offset;
        return misc::BinarizeFlatPad(a);
    } catch (...) {  // a path could not be copied
        return FlatPadResult{-1, -1, -1, -1, -1, -1, -1};
    }
}
