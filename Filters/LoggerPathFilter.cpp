#include "Filters/LoggerPathFilter.h"

#include <opencv2/imgcodecs.hpp>

#include "framework/FilterRegistry.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

namespace {

// Longest file name, in characters, that the result can report; the name is
// cut to it rather than overflowing.
constexpr size_t kMaxFileNameChars = 255;

// Removes every leading and trailing backslash, so the parts join with
// exactly one separator where one is added.
std::wstring TrimBackslashes(const std::wstring& text) {
    const size_t first = text.find_first_not_of(L'\\');
    if (first == std::wstring::npos) return std::wstring();
    const size_t last = text.find_last_not_of(L'\\');
    return text.substr(first, last - first + 1);
}

}  // namespace

CLoggerPathFilter::CLoggerPathFilter() {
    AddPin(L"ByPass", 1, false);
    AddPin(L"Log", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<std::wstring>(L"Root"));
    AddParam(new sorvik::Param<std::wstring>(L"Path"));
    AddParam(new sorvik::Param<std::wstring>(L"Prefix"));
    AddParam(new sorvik::Param<bool>(L"Active", false));
}

void CLoggerPathFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const std::wstring root =
        TrimBackslashes(pixmill::ParamValue<std::wstring>(params, L"Root", L""));
    const std::wstring path =
        TrimBackslashes(pixmill::ParamValue<std::wstring>(params, L"Path", L""));
    const std::wstring prefix =
        TrimBackslashes(pixmill::ParamValue<std::wstring>(params, L"Prefix", L""));
    const bool active = pixmill::ParamValue<bool>(params, L"Active", false);

    std::vector<cv::Mat*> pass;
    std::vector<cv::Mat*> log;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        if (pin->GetKey() == 1) {
            for (cv::Mat* m : pin->GetImage()) pass.push_back(m);
        } else if (pin->GetKey() == 2) {
            for (cv::Mat* m : pin->GetImage()) log.push_back(m);
        }
    }

    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImage(pass);

    if (!active || log.empty()) return;

    // Path and Prefix join without a separator: Root "D:\logs", Path "run"
    // and Prefix "a" name D:\logs\runa.png.
    std::wstring fileName = root + L"\\" + path + prefix + L".png";
    if (fileName.size() > kMaxFileNameChars) fileName.resize(kMaxFileNameChars);

    const std::string native = pixmill::platform::NativePath(fileName);
    pixmill::platform::CreateParentDirectories(native);
    // An image the encoder rejects (an empty one, or a name cut before its
    // extension) throws here; Process contains it and the result stays.
    const cv::Mat first = log.front() ? *log.front() : cv::Mat();
    cv::imwrite(native, first);

    m_result = L"{\"directory\":" + fileName + L"}";
}

void CLoggerPathFilter::Trace() {
    LogW(1, L"LoggerPathFilter");
}

PIXMILL_REGISTER_FILTER(L"LoggerPathFilter", CLoggerPathFilter);
