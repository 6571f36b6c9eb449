// The result fragment of the filters that report one object per image: a
// JSON list built piece by piece, numbers in the C locale.
#pragma once

#include <cstdarg>
#include <string>

#include "platform/Platform.h"

namespace pixmill::filters {

// Appends a printf-formatted piece with its numbers in the C locale.
inline void AppendFormat(std::wstring& text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring part;
    if (platform::FormatWide(format, args, part)) text += part;
    va_end(args);
}

// Builds "[{...},{...}]": Next opens each object, after a comma but the first.
class ResultList {
public:
    // The text to append the next object to, its separating comma in place.
    std::wstring& Next() {
        m_text += m_text.size() > 1 ? L"," : L"";
        return m_text;
    }
    std::wstring Close() const { return m_text + L"]"; }

private:
    std::wstring m_text = L"[";
};

}  // namespace pixmill::filters
