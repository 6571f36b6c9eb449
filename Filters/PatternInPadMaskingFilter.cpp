#include "Filters/PatternInPadMaskingFilter.h"

#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "framework/FilterRegistry.h"
#include "inspect/pattern/ProbeMark.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

CPatternInPadMaskingFilter::CPatternInPadMaskingFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Reference", 2, false);
    AddPin(L"Out", -1, true);
}

void CPatternInPadMaskingFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    Trace();
    const pixmill::filters::PairedInputs inputs(pins);
    // The comparison's lines reach the log at level 1.
    const pixmill::inspect::pattern::LineSink log = [](const std::string& line) {
        LogW(1, L"%ls", pixmill::platform::FromUtf8(line).c_str());
    };

    std::vector<cv::Mat> results;
    for (size_t i = 0; i < inputs.first.size(); ++i) {
        const cv::Mat& mark = inputs.first[i];
        if (inputs.second.empty()) {
            results.push_back(mark.clone());
            continue;
        }
        const cv::Mat& reference =
            i < inputs.second.size() ? inputs.second[i] : inputs.second.back();
        cv::Mat destination;
        const int failed = pixmill::inspect::pattern::CompareInPad(mark.clone(), reference.clone(),
                                                                   destination, log);
        results.push_back(failed ? mark.clone() : destination);
    }
    pixmill::filters::SetOutputImages(pins, results);
    SetResult(L"\"\"");
}

void CPatternInPadMaskingFilter::Trace() {
    LogW(1, L"PatternInPadMaskingFilter");
}

PIXMILL_REGISTER_FILTER(L"PatternInPadMaskingFilter", CPatternInPadMaskingFilter);
