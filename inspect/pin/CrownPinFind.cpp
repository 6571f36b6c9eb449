// VBcvCrownPinFind: the verified pin tip search for crown tips, whose
// neighbours stand closer. The caller sets the guard band (Alpha pixels on
// each side of the tip) and the level (Beta times the tip's mean profile
// level) above which any single row or column outside the band is a rival.
#include "inspect/pin/PinFindEX.h"

namespace pixmill::inspect::pin {

PinFindResult CrownPinFind(const PinFindArgs& args, double verifyFactor, int saveMode, int alpha,
                           double beta, ImageStore& store) noexcept {
    return RunPinSearch("[VBcvCrownPinFind]", args, store, [&](PinRun& run) {
        TraceVersion();
        SetPinImageSaveMode(saveMode);
        run.Start();
        // Written so that a Beta that is not a number is refused too.
        if (alpha < 1 || alpha > 239 || !(beta > 0.0 && beta < 1.0))
            throw Fail(12).Line("%s Fail : Parameter Error (Alpha or Beta)\n", run.Tag());
        if (args.tx >= args.sx || args.ty >= args.sy)
            throw Fail(12).Line("%s Fail : Parameter Error (Tip size >= Search area)\n", run.Tag());
        run.CheckSizes();
        run.Prepare();
        const CrownRule rule{alpha, beta};
        return VerifiedSearch(run, verifyFactor, &rule);
    });
}

}  // namespace pixmill::inspect::pin
