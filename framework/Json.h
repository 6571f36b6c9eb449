// JSON documents of the recipe engine: recipes, overrides and filter
// objects, parsed over wchar_t code units (UTF-32 where wchar_t is 32 bits,
// UTF-16 where it is 16).
#pragma once

#include <rapidjson/document.h>

#include <string>
#include <type_traits>

namespace pixmill {

using JsonEncoding =
    std::conditional_t<sizeof(wchar_t) == 4, rapidjson::UTF32<wchar_t>, rapidjson::UTF16<wchar_t>>;
using JsonDocument = rapidjson::GenericDocument<JsonEncoding>;
using JsonValue = rapidjson::GenericValue<JsonEncoding>;

// Parses a NUL-terminated text. Returns false (and leaves a null document)
// for a null pointer or a malformed text. Nesting is parsed without
// recursion, so a deeply nested document cannot exhaust the stack.
bool ParseJson(JsonDocument& doc, const wchar_t* text);

// The member of an object, or null if the value is no object or lacks it.
const JsonValue* FindMember(const JsonValue& object, const wchar_t* name);

// A string member's text; "" when absent or not a string.
std::wstring StringMember(const JsonValue& object, const wchar_t* name, bool* found = nullptr);

// An integer member's value; 0 when absent or not an integer. Only the
// integer part of a number is taken.
int IntMember(const JsonValue& object, const wchar_t* name);

}  // namespace pixmill
