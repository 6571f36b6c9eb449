#include "framework/Json.h"

#include <climits>
#include <cmath>

namespace pixmill {

bool ParseJson(JsonDocument& doc, const wchar_t* text) {
    doc.SetNull();
    if (!text) return false;
    doc.Parse<rapidjson::kParseIterativeFlag>(text);
    if (doc.HasParseError()) {
        doc.SetNull();
        return false;
    }
    return true;
}

const JsonValue* FindMember(const JsonValue& object, const wchar_t* name) {
    if (!object.IsObject() || !name) return nullptr;
    auto it = object.FindMember(name);
    return it == object.MemberEnd() ? nullptr : &it->value;
}

std::wstring StringMember(const JsonValue& object, const wchar_t* name, bool* found) {
    const JsonValue* v = FindMember(object, name);
    bool ok = v && v->IsString();
    if (found) *found = ok;
    return ok ? std::wstring(v->GetString(), v->GetStringLength()) : std::wstring();
}

int IntMember(const JsonValue& object, const wchar_t* name) {
    const JsonValue* v = FindMember(object, name);
    if (!v || !v->IsNumber()) return 0;
    if (v->IsInt()) return v->GetInt();
    double d = v->GetDouble();
    if (!std::isfinite(d)) return 0;
    d = std::trunc(d);
    if (d > INT_MAX || d < INT_MIN) return 0;
    return static_cast<int>(d);
}

}  // namespace pixmill
