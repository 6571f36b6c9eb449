// The filter registry: turns a recipe's "Type" text into a filter object,
// and describes every registered filter to a recipe editor.
//
// Filter classes register themselves at load time with one line in their
// source unit:
//
//     PIXMILL_REGISTER_FILTER(L"ThresholdFilter", CBinaryFilter);
//
// The registry is filled before any export runs and only read afterwards.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

class IBaseObject;

namespace pixmill {

class FilterRegistry {
public:
    using Factory = std::function<IBaseObject*()>;

    static FilterRegistry& Instance();

    // Adds the name, or replaces the factory of a name already present. A
    // null name is ignored. Returns true so that it can seed a static.
    bool Register(const wchar_t* name, Factory factory);

    // A new object for the name, owned by the caller; null for a null or
    // unknown name.
    IBaseObject* Create(const wchar_t* name) const;

    // The registered names, in no promised order.
    std::vector<std::wstring> List() const;


    // The filter description document:
    //   {"filters":[{"Name":"...","Pin":[{ "Name":"IN_In", "Key":1},...,],
    //    "Param":[{ "Name":"...","Type":"int","Attributes":[...]}, ...,]},...]}
    // The commas before closing brackets are part of the format that recipe
    // editors read, so the text is not strict JSON.
    std::wstring Describe() const;

private:
    friend void UnregisterFilterForTesting(const std::wstring& name);
    FilterRegistry() = default;
    std::unordered_map<std::wstring, Factory> m_factories;
};

}  // namespace pixmill

#define PIXMILL_REGISTER_CONCAT2(a, b) a##b
#define PIXMILL_REGISTER_CONCAT(a, b) PIXMILL_REGISTER_CONCAT2(a, b)
#define PIXMILL_REGISTER_FILTER(NAME, CLASS)                                    \
    static const bool PIXMILL_REGISTER_CONCAT(s_pixmillRegistered_, __LINE__) = \
        ::pixmill::FilterRegistry::Instance().Register(                         \
            NAME, []() -> ::IBaseObject* { return static_cast<::IBaseObject*>(new CLASS()); })
