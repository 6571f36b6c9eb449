// Shared set-up of the fuzz targets.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <exception>
#include <stdexcept>
#include <string>

namespace pixmill::fuzz {

// Points the library's root at a fresh temporary folder (every file the
// library writes lands there) and keeps logging to errors only.
void SetUpOnce();

// Fuzz bytes as wide text: each byte one character, so any byte sequence is
// a text and ASCII JSON stays readable.
std::wstring WideText(const std::string& bytes);

// A string escaped for use inside a JSON string literal.
std::string JsonEscape(const std::string& text);

// The documented outcome for a bad number in parameter text: these two leave
// through the exported calls. Anything else that escapes is a finding and
// is allowed to crash the target.
template <typename F>
void ExpectingParameterErrors(F&& call) {
    try {
        call();
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    }
}

}  // namespace pixmill::fuzz
