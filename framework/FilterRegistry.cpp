#include "framework/FilterRegistry.h"

#include <cstdio>
#include <memory>

#include "framework/Filter.h"
#include "framework/TestHooks.h"

namespace pixmill {

FilterRegistry& FilterRegistry::Instance() {
    // Never destroyed: a host may run recipes from its own static
    // destructors, which can run after this library's.
    static FilterRegistry* registry = new FilterRegistry();
    return *registry;
}

bool FilterRegistry::Register(const wchar_t* name, Factory factory) {
    if (!name) return true;
    m_factories[name] = std::move(factory);
    return true;
}

IBaseObject* FilterRegistry::Create(const wchar_t* name) const {
    if (!name) return nullptr;
    auto it = m_factories.find(name);
    if (it == m_factories.end() || !it->second) return nullptr;
    IBaseObject* object = it->second();
    // A filter knows the type it was made as, for its error lines.
    if (auto* filter = dynamic_cast<CFilter*>(object)) filter->SetTypeName(it->first);
    return object;
}

std::vector<std::wstring> FilterRegistry::List() const {
    std::vector<std::wstring> names;
    names.reserve(m_factories.size());
    for (const auto& entry : m_factories) names.push_back(entry.first);
    return names;
}

void UnregisterFilterForTesting(const std::wstring& name) {
    FilterRegistry::Instance().m_factories.erase(name);
}

namespace {

std::wstring Widen(const char* ascii) {
    std::wstring out;
    for (const char* p = ascii; p && *p; ++p) out += static_cast<wchar_t>(*p);
    return out;
}

void DescribeFilter(IFilter& filter, const std::wstring& name, std::wstring& doc) {
    doc += L"\"Name\":\"";
    doc += name;
    doc += L"\",\"Pin\":[";
    for (IPin* pin : filter.GetPins()) {
        wchar_t key[32];
        std::swprintf(key, 32, L"%d", pin->GetKey());
        doc += L"{ \"Name\":\"";
        doc += pin->IsOutput() ? L"OUT_" : L"IN_";
        doc += pin->GetName();
        doc += L"\", \"Key\":";
        doc += key;
        doc += L"},";
    }
    doc += L"], \"Param\":[";
    for (IParam* param : filter.GetParams()) {
        doc += L"{ \"Name\":\"";
        doc += param->GetName();
        doc += L"\",\"Type\":\"";
        doc += Widen(param->GetTypeName());
        const wchar_t* attributes = param->GetAttributes();
        if (attributes && *attributes) {
            doc += L"\",\"Attributes\":";
            doc += attributes;
            doc += L"}, ";
        } else {
            doc += L"\"}, ";
        }
    }
    doc += L"]";
}

}  // namespace

std::wstring FilterRegistry::Describe() const {
    std::wstring doc = L"{\"filters\":[";
    for (const auto& entry : m_factories) {
        doc += L"{";
        // The instance exists only to be described; it is destroyed here.
        std::unique_ptr<IBaseObject> object(entry.second ? entry.second() : nullptr);
        if (auto* filter = dynamic_cast<IFilter*>(object.get()))
            DescribeFilter(*filter, entry.first, doc);
        doc += L"},";
    }
    doc += L"]}";
    return doc;
}

}  // namespace pixmill
