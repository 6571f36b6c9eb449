// Loading a recipe: the filters of the document are created and initialised
// in one pass and joined in a second, so a link may name a filter that comes
// later in the document. Reading a recipe file and choosing its encoding
// lives here too.
#include "recipe/Recipe.h"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "framework/FilterRegistry.h"
#include "framework/Json.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::JsonDocument;
using pixmill::JsonValue;
using pixmill::logging::LogW;

namespace {

// The first filter for each key text, as FindPin would find it. Built once
// after all filters exist, so joining a recipe with thousands of nodes does
// not walk the filter list for every link.
using FirstByKey = std::unordered_map<std::wstring, IFilter*>;

FirstByKey IndexByKey(const std::vector<IFilter*>& filters) {
    FirstByKey index;
    index.reserve(filters.size());
    for (IFilter* filter : filters) {
        const wchar_t* key = filter->GetKey();
        index.emplace(key ? key : L"", filter);  // emplace keeps the first
    }
    return index;
}

IPin* FindIndexedPin(const FirstByKey& index, const std::wstring* filterKey, int pinKey) {
    if (!filterKey) return nullptr;
    // A key is compared as a NUL-terminated text, the way GetKey reports it.
    auto it = index.find(std::wstring(filterKey->c_str()));
    return it == index.end() ? nullptr : it->second->GetPin(pinKey);
}

// Creates, initialises and appends the filter of one node. A node without a
// string Type is no filter node; an unknown type is dropped with its two log
// lines.
void CreateNode(const JsonValue& node, std::vector<IFilter*>& filters) {
    bool hasType = false;
    std::wstring type = pixmill::StringMember(node, L"Type", &hasType);
    if (!hasType) return;

    LogW(1, L"<Init type=\"%ls\">", type.c_str());
    std::unique_ptr<IBaseObject> object(pixmill::FilterRegistry::Instance().Create(type.c_str()));
    if (auto* filter = dynamic_cast<IFilter*>(object.get())) {
        // Still owned by `object` while Init runs, so a bad number in the
        // node's Params does not leak the filter.
        filter->Init(node);
        filters.push_back(filter);
        object.release();
    }
    LogW(1, L"</Init>");
}

// Joins the pins of one node to their upstream pins. Pins with key 0, links
// with PinKey 0 and links whose ends cannot be found are dropped silently.
void LinkNode(const JsonValue& node, const FirstByKey& index) {
    bool hasKey = false;
    std::wstring key = pixmill::StringMember(node, L"Key", &hasKey);
    const JsonValue* pins = pixmill::FindMember(node, L"Pins");
    if (!pins || !pins->IsArray()) return;

    for (const JsonValue& pinNode : pins->GetArray()) {
        int pinKey = pixmill::IntMember(pinNode, L"Key");
        const JsonValue* link = pixmill::FindMember(pinNode, L"Link");
        if (!link) continue;
        bool hasFilterKey = false;
        std::wstring filterKey = pixmill::StringMember(*link, L"FilterKey", &hasFilterKey);
        int upstreamKey = pixmill::IntMember(*link, L"PinKey");
        if (pinKey == 0 || upstreamKey == 0) continue;

        IPin* pin = FindIndexedPin(index, hasKey ? &key : nullptr, pinKey);
        if (!pin) continue;
        IPin* upstream = FindIndexedPin(index, hasFilterKey ? &filterKey : nullptr, upstreamKey);
        if (upstream) pin->SetLink(upstream);
    }
}

}  // namespace

CRecipe::CRecipe(const wchar_t* text) {
    // A text that does not parse leaves a null document, in which every
    // lookup below finds nothing: the recipe simply has no filters.
    JsonDocument doc;
    pixmill::ParseJson(doc, text);

    bool found = false;
    std::wstring value = pixmill::StringMember(doc, L"Name", &found);
    if (found) m_name = value;
    value = pixmill::StringMember(doc, L"Comment", &found);
    if (found) m_comment = value;

    const JsonValue* nodes = pixmill::FindMember(doc, L"Filters");
    if (!nodes || !nodes->IsArray()) return;

    try {
        for (const JsonValue& node : nodes->GetArray()) CreateNode(node, m_filters);
        FirstByKey index = IndexByKey(m_filters);
        for (const JsonValue& node : nodes->GetArray()) LinkNode(node, index);
    } catch (...) {
        // The destructor does not run for a constructor that throws.
        for (IFilter* filter : m_filters) delete filter;
        m_filters.clear();
        throw;
    }
}

CRecipe::~CRecipe() {
    for (IFilter* filter : m_filters) delete filter;
}

void CRecipe::AddFilter(IFilter* filter) {
    if (!filter) return;
    try {
        m_filters.push_back(filter);
    } catch (...) {
        delete filter;
        throw;
    }
}

IPin* CRecipe::FindPin(const wchar_t* filterKey, int pinKey) {
    if (!filterKey) return nullptr;
    for (IFilter* filter : m_filters) {
        const wchar_t* key = filter->GetKey();
        if (key && std::wstring_view(key) == filterKey) return filter->GetPin(pinKey);
    }
    return nullptr;
}

namespace pixmill {

namespace {

// Anything longer is cut here, and the cut text then fails to parse.
constexpr size_t kMaxRecipeBytes = 1048576;
// A smaller file cannot hold a recipe and counts as absent.
constexpr uint64_t kMinRecipeBytes = 10;

std::wstring DecodeUtf16(const std::string& bytes, size_t start, bool bigEndian) {
    // Units are whole byte pairs; an odd trailing byte is no unit.
    std::u16string units;
    units.reserve((bytes.size() - start) / 2);
    for (size_t i = start; i + 1 < bytes.size(); i += 2) {
        auto first = static_cast<unsigned char>(bytes[i]);
        auto second = static_cast<unsigned char>(bytes[i + 1]);
        units.push_back(
            static_cast<char16_t>(bigEndian ? (first << 8) | second : (second << 8) | first));
    }
    return platform::FromUtf16(units.data(), units.size());
}

}  // namespace

std::wstring ReadRecipeFile(const wchar_t* path) {
    if (!path || !*path) return std::wstring();

    // Read as bytes: CR LF line ends need no translation, because the JSON
    // parser takes CR as white space.
    std::string bytes;
    uint64_t fileSize = 0;
    if (!platform::ReadFilePrefix(platform::NativePath(std::wstring(path)), kMaxRecipeBytes, bytes,
                                  fileSize))
        return std::wstring();
    if (fileSize < kMinRecipeBytes) return std::wstring();

    auto byteAt = [&bytes](size_t i) -> int {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : -1;
    };
    std::wstring text;
    if (byteAt(0) == 0xEF && byteAt(1) == 0xBB && byteAt(2) == 0xBF) {
        text = platform::FromUtf8(bytes.substr(3));
    } else if (byteAt(0) == 0xFE && byteAt(1) == 0xFF) {
        text = DecodeUtf16(bytes, 2, true);
    } else if (byteAt(0) == 0xFF && byteAt(1) == 0xFE) {
        text = DecodeUtf16(bytes, 2, false);
    } else {
        text = platform::FromUtf8(bytes);
    }
    // The document is a NUL-terminated text: whatever follows a NUL in the
    // file is not part of it.
    size_t nul = text.find(L'\0');
    if (nul != std::wstring::npos) text.resize(nul);
    return text;
}

}  // namespace pixmill
