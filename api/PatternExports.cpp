// The pattern matching exports: flat C shims over inspect/pattern/, which
// never let an exception out.
#include "logging/Logger.h"
#include "api/Startup.h"
#include "inspect/pattern/PatternMatch.h"
#include "inspect/pattern/ProbeMark.h"
#include "pixmill/pixmill.h"

namespace {

// The first file-pattern call of the process sets up logging, as every
// logging export does. A failure there must not stop the inspection.
void StartLogging() noexcept {
    try {
        pixmill::api::EnsureStartup();
    } catch (...) {
    }
}

}  // namespace

extern "C" double VBcv1032Pattern_Matching(const char* markPath, const char* referencePath,
                                           const char* resultFolder) {
    return pixmill::inspect::pattern::PatternMatching1032(markPath, referencePath, resultFolder);
}

extern "C" float VBcvPadMeanGain(void) {
    pixmill::logging::BeginCall();
    return pixmill::inspect::pattern::LastPadMeanGain();
}

extern "C" void VBcv1032Pattern_MatchingECC(const char* markPath, const char* referencePath) {
    pixmill::inspect::pattern::PatternMatchingECC(markPath, referencePath);
}

extern "C" PatternMatchResult VBcvPatternMatching(const char* targetPath, const char* patternPath,
                                                  int scoreThreshold) {
    StartLogging();
    return pixmill::inspect::pattern::FindPattern(targetPath, patternPath, scoreThreshold);
}

extern "C" int VBcvMakePatternMask(const char* path, const char* name, int imageCount,
                                   int pixelTolerance, int changeLimit) {
    StartLogging();
    return pixmill::inspect::pattern::MakePatternMask(path, name, imageCount, pixelTolerance,
                                                      changeLimit);
}
