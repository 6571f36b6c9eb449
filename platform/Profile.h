// Private profile (ini) files, as the prober keeps its settings: sections in
// brackets, one "key=value" per line, ';' comments.
//
// Paths are prober paths ("C:\PROBERFILES\Parameter\Temporary.ini") and are
// mapped to native ones here. Sections and keys match without regard to
// case. Reads never fail: a missing or unreadable file, section or key
// gives the caller's default. A write creates the file (and its folders),
// the section or the key as needed and leaves every other line of the file
// byte for byte as it was.
#pragma once

#include <string>

namespace pixmill::platform {

// The leading decimal number of the key's value (white space, an optional
// sign, digits; values beyond the int range saturate), or `defaultValue`
// when the file, section or key is absent or the value does not start with
// a number.
int ProfileInt(const std::wstring& file, const std::wstring& section, const std::wstring& key,
               int defaultValue);

// The key's value with surrounding white space removed, or `defaultValue`.
std::wstring ProfileString(const std::wstring& file, const std::wstring& section,
                           const std::wstring& key, const std::wstring& defaultValue);

// Sets the key's value. The file is replaced as a whole (written beside it,
// then renamed), so a reader never sees half a file. Returns false if the
// file could not be written; the old file is then untouched.
bool WriteProfileString(const std::wstring& file, const std::wstring& section,
                        const std::wstring& key, const std::wstring& value);

}  // namespace pixmill::platform
