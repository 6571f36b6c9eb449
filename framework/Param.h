// Typed filter parameters.
//
// A filter declares its settings in its constructor as Param<T> objects and
// reads them in Proc through the public member `value`. min, max and step
// describe the parameter to a recipe editor and are never enforced: a value
// outside the range is stored as given.
#pragma once

#include <cwchar>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/Platform.h"

class IParam {
public:
    virtual const wchar_t* GetName() = 0;
    // "bool", "int", "float", "double" or "std::wstring"; null for a bare CParam.
    virtual const char* GetTypeName() = 0;
    // The attributes text (see sorvik::Param), "" when the parameter has none.
    virtual const wchar_t* GetAttributes() = 0;
    virtual ~IParam() = default;
    virtual void SetName(const wchar_t* name) = 0;
};

namespace sorvik {

class CParam : public IParam {
public:
    explicit CParam(const wchar_t* name) : m_name(name ? name : L"") {}

    const wchar_t* GetName() override { return m_name.c_str(); }
    const char* GetTypeName() override { return nullptr; }
    const wchar_t* GetAttributes() override { return m_attributes.c_str(); }
    void SetName(const wchar_t* name) override { m_name = name ? name : L""; }

protected:
    std::wstring m_name;
    // Built once by the typed constructor; keeps showing the construction
    // values however `value` changes later.
    std::wstring m_attributes;
};

// Formats a number for the attributes text: "%d" for int, "%f" for float,
// "%lf" for double, and "" for any other type.
template <typename T>
std::wstring FormatAttributeNumber(const T& number) {
    wchar_t buf[64] = {};
    int n = -1;
    pixmill::platform::ClassicNumbers classic;
    if constexpr (std::is_same_v<T, int>) {
        n = std::swprintf(buf, 64, L"%d", number);
    } else if constexpr (std::is_same_v<T, float>) {
        n = std::swprintf(buf, 64, L"%f", static_cast<double>(number));
    } else if constexpr (std::is_same_v<T, double>) {
        n = std::swprintf(buf, 64, L"%lf", number);
    }
    return n < 0 ? std::wstring() : std::wstring(buf);
}

// The five pairs value, default, min, max, step, each followed by a comma,
// the last one too: [{"Name":"value","Value":"127"},...,]
std::wstring BuildAttributes(const std::wstring& value, const std::wstring& def,
                             const std::wstring& min, const std::wstring& max,
                             const std::wstring& step);

template <typename T>
class Param : public CParam {
public:
    // Bare form: name only, every member at its zero value, no attributes.
    explicit Param(const wchar_t* name) : CParam(name) {}

    // Numeric form: value and default take the default; attributes built.
    Param(const wchar_t* name, T def, T minimum, T maximum, T stepSize)
        : CParam(name), value(def), min(minimum), max(maximum), step(stepSize), defaultValue(def) {
        std::wstring v = FormatAttributeNumber(value);
        if (!v.empty()) {
            m_attributes =
                BuildAttributes(v, FormatAttributeNumber(defaultValue), FormatAttributeNumber(min),
                                FormatAttributeNumber(max), FormatAttributeNumber(step));
        }
    }

    // Flag form, for bool only: the argument goes to the default only, and
    // `value` stays false until a document sets it, so a flag is off unless
    // a recipe turns it on. Any other type must use the numeric form (or the
    // bare one): a two-argument int or float would leave `value` at 0 with
    // no attributes, which is never what its author meant.
    Param(const wchar_t* name, T def)
        requires std::is_same_v<T, bool>
        : CParam(name), defaultValue(def) {}

    const char* GetTypeName() override {
        if constexpr (std::is_same_v<T, bool>) return "bool";
        if constexpr (std::is_same_v<T, int>) return "int";
        if constexpr (std::is_same_v<T, float>) return "float";
        if constexpr (std::is_same_v<T, double>) return "double";
        if constexpr (std::is_same_v<T, std::wstring>) return "std::wstring";
        return "unknown";
    }

    T value{};
    T min{};
    T max{};
    T step{};
    T defaultValue{};
};

}  // namespace sorvik

namespace pixmill {

// Sets the first parameter named `key` from text. Returns false, changing
// nothing, if no parameter has that name. Conversion rules by type:
//   text  - the whole text;
//   float - leading number (wcstof); std::invalid_argument "invalid stof
//           argument" if none, std::out_of_range "stof argument out of
//           range" on overflow;
//   int   - leading base-10 number; "invalid stoi argument" / "stoi argument
//           out of range" (also for values beyond 32 bits);
//   double - never assigned: the walk goes on as if the name had not matched;
//   bool  - true if the text starts with "TRUE", "True" or "true".
// Trailing characters after a number are ignored.
bool SetParamFromText(const std::vector<IParam*>& params, const std::wstring& key,
                      const std::wstring& value);

// The value of the first parameter named `name` that has type T, or
// `fallback` if the list has none. Proc starts from its own defaults.
template <typename T>
T ParamValue(const std::vector<IParam*>& params, const wchar_t* name, T fallback) {
    for (IParam* p : params) {
        if (p && std::wcscmp(p->GetName(), name) == 0) {
            if (auto* typed = dynamic_cast<sorvik::Param<T>*>(p)) return typed->value;
            return fallback;
        }
    }
    return fallback;
}

}  // namespace pixmill
