// GetFilterList and GetFilterInfo: the filter description document for a
// recipe editor.
#include <algorithm>
#include <climits>
#include <cstring>

#include "api/Startup.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"

using pixmill::logging::LogW;

namespace {

int ClampToInt(size_t n) { return n > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n); }

// Copies at most `limit` bytes of the document and never more than it holds.
void CopyBytes(wchar_t* text, int textBytes, const std::wstring& doc, size_t limit) {
    if (!text || textBytes <= 0) return;
    size_t n = std::min({static_cast<size_t>(textBytes), limit, doc.size() * sizeof(wchar_t)});
    std::memcpy(text, doc.data(), n);
}

}  // namespace

extern "C" int GetFilterList(wchar_t* text, int textBytes) {
    pixmill::api::EnsureStartup();
    LogW(2, L"<GetFilterList>");
    std::wstring doc = pixmill::FilterRegistry::Instance().Describe();
    size_t bytes = doc.size() * sizeof(wchar_t);
    CopyBytes(text, textBytes, doc, bytes);
    LogW(2, L"</GetFilterList>");
    return ClampToInt(bytes);
}

extern "C" int GetFilterInfo(const wchar_t* filter, wchar_t* text, int textBytes) {
    pixmill::api::EnsureStartup();
    LogW(2, L"<GetFilterInfo Filter=\"%ls\">", filter ? filter : L"");
    std::wstring doc = pixmill::FilterRegistry::Instance().Describe();
    // Counted in characters, copied as that many bytes: the first part of the
    // document, as callers of this function have always received.
    CopyBytes(text, textBytes, doc, doc.size());
    LogW(2, L"</GetFilterInfo>");
    return ClampToInt(doc.size());
}
