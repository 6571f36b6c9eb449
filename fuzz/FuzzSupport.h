// Shared set-up of the fuzz targets.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

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

}  // namespace pixmill::fuzz
