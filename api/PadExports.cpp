// The pad threshold export: a flat C shim over the level in
// enhance/PadThreshold.cpp, which never lets an exception out.
#include "enhance/PadThreshold.h"
#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

extern "C" int VBcvGetThreshold_Oval_Auto_Pad_Reg(const unsigned char* data, int width,
                                                  int height) {
    try {
        pixmill::inspect::TraceVersion();
    } catch (...) {
        // The version line is informative only; the level does not depend on it.
    }
    return pixmill::GetThresholdOvalAutoPadReg(data, width, height);
}
