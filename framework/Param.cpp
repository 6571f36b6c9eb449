#include "framework/Param.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "platform/Platform.h"

namespace sorvik {

std::wstring BuildAttributes(const std::wstring& value, const std::wstring& def,
                             const std::wstring& min, const std::wstring& max,
                             const std::wstring& step) {
    std::wstring text = L"[";
    auto pair = [&text](const wchar_t* key, const std::wstring& number) {
        text += L"{\"Name\":\"";
        text += key;
        text += L"\",";
        text += L"\"Value\":\"";
        text += number;
        text += L"\"}";
        text += L",";
    };
    pair(L"value", value);
    pair(L"default", def);
    pair(L"min", min);
    pair(L"max", max);
    pair(L"step", step);
    text += L"]";
    return text;
}

}  // namespace sorvik

namespace pixmill {

namespace {

float ConvertFloat(const std::wstring& text) {
    const wchar_t* begin = text.c_str();
    wchar_t* end = nullptr;
    errno = 0;
    float v = pixmill::platform::ParseFloat(begin, &end);
    if (end == begin) throw std::invalid_argument("invalid stof argument");
    if (errno == ERANGE) throw std::out_of_range("stof argument out of range");
    return v;
}

int ConvertInt(const std::wstring& text) {
    const wchar_t* begin = text.c_str();
    wchar_t* end = nullptr;
    errno = 0;
    long v = pixmill::platform::ParseLong(begin, &end);
    if (end == begin) throw std::invalid_argument("invalid stoi argument");
    // long is 64 bits here: a number beyond 32 bits is out of range as well.
    if (errno == ERANGE || v > INT_MAX || v < INT_MIN)
        throw std::out_of_range("stoi argument out of range");
    return static_cast<int>(v);
}

bool StartsWithTrue(const std::wstring& text) {
    const wchar_t* s = text.c_str();
    return std::wcsncmp(s, L"TRUE", 4) == 0 || std::wcsncmp(s, L"True", 4) == 0 ||
           std::wcsncmp(s, L"true", 4) == 0;
}

}  // namespace

bool SetParamFromText(const std::vector<IParam*>& params, const std::wstring& key,
                      const std::wstring& value) {
    for (IParam* p : params) {
        if (!p || key != p->GetName()) continue;
        if (auto* text = dynamic_cast<sorvik::Param<std::wstring>*>(p)) {
            text->value = value;
            return true;
        }
        if (auto* f = dynamic_cast<sorvik::Param<float>*>(p)) {
            f->value = ConvertFloat(value);
            return true;
        }
        if (auto* i = dynamic_cast<sorvik::Param<int>*>(p)) {
            i->value = ConvertInt(value);
            return true;
        }
        if (dynamic_cast<sorvik::Param<double>*>(p)) {
            continue;  // a double is matched but never assigned
        }
        if (auto* b = dynamic_cast<sorvik::Param<bool>*>(p)) {
            b->value = StartsWithTrue(value);
            return true;
        }
        // A parameter of another type is matched but cannot be set.
        return false;
    }
    return false;
}

}  // namespace pixmill
