#include "Filters/PinBlobModeSelector.h"

#include "Filters/ImageLoop.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CPinBlobModeSelector::CPinBlobModeSelector() {
    AddPin(L"Auto", 1, false);
    AddPin(L"Manual", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"AutoMode"));
}

void CPinBlobModeSelector::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    // The declared parameter is bare, so a recipe that leaves it out selects
    // Manual; the fallback only serves a list without the parameter.
    const bool autoMode = pixmill::ParamValue<bool>(params, L"AutoMode", true);
    const int selected = autoMode ? 1 : 2;
    LogW(1, L"<Proc %ls=\"%ls\" input=\"%d\"/>", L"AutoMode", autoMode ? L"true" : L"false", selected);

    // Only the selected pin is asked for images: asking is what runs the
    // filters upstream of it.
    std::vector<cv::Mat> images;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != selected) continue;
        for (cv::Mat* image : pin->GetImage()) images.push_back(image ? *image : cv::Mat());
    }
    pixmill::filters::SetOutputImages(pins, images);
}

void CPinBlobModeSelector::Trace() {
    LogW(1, L"PinBlobModeSelector");
}

PIXMILL_REGISTER_FILTER(L"PinBlobModeSelector", CPinBlobModeSelector);
