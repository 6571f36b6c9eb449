#include "api/FocusMeasures.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cwchar>
#include <cwctype>
#include <vector>

#include "api/ImageBuffer.h"
#include "api/ImageRecords.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "recipe/Recipe.h"

namespace pixmill::api {

using logging::LogW;

const wchar_t* const kMultiPeakFocusRecipe =
    L"{\"Name\":\"recipe XX\",\"Comment\":\"2023-10-31 오전 11:38:50\",\"Filters\":[{\"Name\":"
    L"\"MultiPeakFocusMeasureFilter\",\"Key\":\"c892439f7e6ccf1a\",\"Type\":"
    L"\"MultiPeakFocusMeasureFilter\",\"Enable\":true,\"IsEndPoint\":true,\"Params\":[{\"Key\":"
    L"\"Thresh Mode\",\"Value\":\"0\"},{\"Key\":\"Image Result\",\"Value\":\"false\"}],\"Pins\":[{"
    L"\"Type\":\"IN\",\"Name\":\"In\",\"Link\":{\"FilterKey\":\"11c7add8e4da15db\",\"PinKey\":-1},"
    L"\"Key\":1},{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]},{\"Name\":\"SourceFilter\","
    L"\"Key\":\"11c7add8e4da15db\",\"Type\":\"SourceFilter\",\"Enable\":true,\"IsEndPoint\":false,"
    L"\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"1\"},{\"Key\":\"Path\",\"Value\":\"\"}],\"Pins\":"
    L"[{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]}]}";

namespace {

// Size of the result buffer that TenengradFocusF reads, in characters.
constexpr int kTenengradResultChars = 4096;

// The characters right after the first `key`, as long as `accept` holds.
template <typename Accept>
std::wstring RunAfter(const std::wstring& text, const wchar_t* key, Accept accept) {
    const size_t at = text.find(key);
    if (at == std::wstring::npos) return {};
    size_t end = at + std::wcslen(key);
    const size_t begin = end;
    while (end < text.size() && accept(text[end])) ++end;
    return text.substr(begin, end - begin);
}

}  // namespace

int TenengradMaxTimes100(const std::wstring& result) {
    const std::wstring number = RunAfter(
        result, L"\"max\":\"", [](wchar_t c) { return std::iswdigit(c) != 0 || c == L'.'; });
    if (number.empty()) return 0;
    const double scaled = platform::ParseDouble(number.c_str(), nullptr) * 100.0;
    // "." alone reads as 0; a run of digits too long for an int saturates.
    if (!(scaled > 0.0)) return 0;
    if (scaled >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(scaled);
}

int FocusIndexOf(const std::wstring& result) {
    const std::wstring digits = RunAfter(result, L"\"FocusIndex\":\"",
                                         [](wchar_t c) { return std::iswdigit(c) != 0; });
    long long value = 0;
    for (wchar_t c : digits) {
        value = value * 10 + (c - L'0');
        if (value > INT_MAX) return INT_MAX;
    }
    return static_cast<int>(value);
}

void CopyTerminated(const std::wstring& text, wchar_t* destination, int bytes) {
    if (!destination || bytes < static_cast<int>(sizeof(wchar_t))) return;
    const size_t capacity = static_cast<size_t>(bytes) / sizeof(wchar_t);
    const size_t n = std::min(text.size(), capacity - 1);
    std::copy_n(text.begin(), n, destination);
    destination[n] = L'\0';
}

int TenengradFocus(const uint8_t* source, uint8_t* destination, int width, int height,
                   int kernel) {
    LogW(2, L"<TenengradFocusF>");
    const std::wstring param = L"{\"Params\":[  {\"Key\":\"Kernel\", \"Value\":\"" +
                               std::to_wstring(kernel) + L"\"}]}";
    LogW(1, L"<Param>%ls</Param>", param.c_str());
    std::vector<wchar_t> result(kTenengradResultChars, L'\0');
    FilterExecuteByBuffer(source, destination, width, height, L"TenengradFocusFilter",
                          param.c_str(), result.data(), kTenengradResultChars);
    const int measure = TenengradMaxTimes100(result.data());
    LogW(2, L"</TenengradFocusF>");
    return measure;
}

int MultiPeakFocusMeasure(void* buffer, wchar_t* resultText, int resultBytes) {
    // Held for the whole call: a concurrent release frees the buffer only
    // when this call is done with it.
    BufferUse images = UseImageBuffer(buffer);
    if (!images) return -1;
    LogW(2, L"<MultiPeakFocusMeasureF>  <BufferID>%ld</BufferID>",
         static_cast<long>(reinterpret_cast<intptr_t>(buffer)));
    // The buffer keeps owning its images; the recipe reads them in place.
    LogW(1, L"<CreateData />");
    const std::vector<MasterImage> masters = images->entries;
    OwnedMats outputs;
    std::wstring result;
    {
        LogW(1, L"<CreateRecipe />");
        CRecipe recipe(kMultiPeakFocusRecipe);
        LogW(1, L"<CreateExecute />");
        RecipeProcess(recipe, result, masters, outputs.mats, nullptr);
    }
    const int focusIndex = FocusIndexOf(result);
    LogW(1, L"<CopyResult />");
    CopyTerminated(result, resultText, resultBytes);
    LogW(1, L"<ReleaseResult/>");
    LogW(2, L"</MultiPeakFocusMeasureF>");
    return focusIndex;
}

}  // namespace pixmill::api
