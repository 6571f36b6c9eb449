#include "Filters/SourceFilter.h"

#include <cwchar>

#include "framework/FilterRegistry.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CSourceFilter::CSourceFilter() {
    // No input pin: a master image or a parameter change is the only trigger.
    AddPin(L"Out", -1, true, true);
    AddParam(new sorvik::Param<int>(L"ImageID"));
    AddParam(new sorvik::Param<std::wstring>(L"Path"));
}

void CSourceFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    const std::wstring path = pixmill::ParamValue<std::wstring>(params, L"Path", L"");
    const int imageId = pixmill::ParamValue<int>(params, L"ImageID", 0);

    // The master images are shared, not copied: nothing downstream writes
    // into what it reads, and they outlive the run.
    std::vector<cv::Mat> found;
    for (const MasterImage& master : m_masterImages) {
        if (master.ImageID == imageId) found.push_back(master.image ? *master.image : cv::Mat());
    }
    if (!found.empty()) {
        for (IPin* pin : pins)
            if (pin->IsOutput()) pin->SetImages(found);
        SetResult(L"{\"Count\":\"%d\" , \"Type\":\"Master\"}",
                      static_cast<int>(found.size()));
        return;
    }

    // No master image for this ID: the file lets a recipe run on its own.
    // A path that cannot be read still yields one (empty) image.
    std::vector<cv::Mat> images{pixmill::ReadImageFile(path, 1)};
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImages(images);
    SetResult(L"{\"Count\":\"%d\" , \"Type\":\"Path\"}", 1);
}

void CSourceFilter::Trace() {
    LogW(1, L"SourceFilter");
}

PIXMILL_REGISTER_FILTER(L"SourceFilter", CSourceFilter);
