// Helpers for the tests of the elementary filters: parameters set as a
// recipe document sets them, filters run through their pins, and small
// recipes behind SourceFilter.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "framework/Json.h"
#include "recipe/Recipe.h"

namespace pixmill::test {

using ParamList = std::vector<std::pair<std::wstring, std::wstring>>;

inline std::wstring Num(int v) {
    return std::to_wstring(v);
}

// A JSON string's content for `text`.
inline std::wstring Quoted(const std::wstring& text) {
    std::wstring q;
    for (wchar_t c : text) {
        if (c == L'"' || c == L'\\') q += L'\\';
        q += c;
    }
    return q;
}

inline std::wstring ParamsJson(const ParamList& params) {
    std::wstring text;
    for (const auto& [key, value] : params)
        text += (text.empty() ? L"{\"Key\":\"" : L",{\"Key\":\"") + Quoted(key) +
                L"\",\"Value\":\"" + Quoted(value) + L"\"}";
    return L"[" + text + L"]";
}

// Applies the parameters through Init, as a recipe's Params array does.
inline void SetParams(IFilter& filter, const ParamList& params) {
    JsonDocument doc;
    ParseJson(doc, (L"{\"Params\":" + ParamsJson(params) + L"}").c_str());
    filter.Init(doc);
}

// Fills the input pins by key, pulls output pin -1 and copies its images.
inline std::vector<cv::Mat> RunPins(IFilter& filter, std::map<int, std::vector<cv::Mat>> in) {
    for (auto& [key, images] : in) {
        std::vector<cv::Mat*> list;
        for (cv::Mat& m : images) list.push_back(&m);
        filter.GetPin(key)->SetImage(list);
    }
    std::vector<cv::Mat> out;
    for (cv::Mat* m : filter.GetPin(-1)->GetImage()) out.push_back(m->clone());
    return out;
}

inline bool SameImage(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() &&
           (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0);
}

// A recipe node of `type`; `links` join its input pins (by key) to output
// -1 of the nodes named by key.
inline std::wstring Node(const std::wstring& key, const std::wstring& type, bool endPoint,
                         const ParamList& params,
                         const std::vector<std::pair<int, std::wstring>>& links = {}) {
    std::wstring pins;
    for (const auto& [pin, from] : links)
        pins += L"{\"Key\":" + Num(pin) + L",\"Link\":{\"FilterKey\":\"" + from +
                L"\",\"PinKey\":-1}},";
    return L"{\"Name\":\"" + type + L"\",\"Key\":\"" + key + L"\",\"Type\":\"" + type +
           L"\",\"IsEndPoint\":" + (endPoint ? L"true" : L"false") + L",\"Params\":" +
           ParamsJson(params) + L",\"Pins\":[" + pins + L"{\"Key\":-1}]}";
}

inline std::wstring Source(const std::wstring& key, int imageId) {
    return Node(key, L"SourceFilter", false, {{L"ImageID", Num(imageId)}});
}

// Runs a recipe through RecipeProcess; returns the result document.
inline std::wstring RunRecipe(const std::vector<std::wstring>& nodes,
                              const std::vector<MasterImage>& masters,
                              std::vector<cv::Mat>& images) {
    std::wstring result;
    std::vector<cv::Mat*> raw;
    std::wstring text;
    for (const std::wstring& n : nodes) text += (text.empty() ? L"" : L",") + n;
    {
        CRecipe recipe((L"{\"Name\":\"test\",\"Filters\":[" + text + L"]}").c_str());
        RecipeProcess(recipe, result, masters, raw, nullptr);
    }
    for (cv::Mat* m : raw) images.push_back(*m), delete m;
    return result;
}

// A registered filter, owned by the caller.
inline std::unique_ptr<IFilter> Make(const wchar_t* type) {
    return std::unique_ptr<IFilter>(
        dynamic_cast<IFilter*>(FilterRegistry::Instance().Create(type)));
}

}  // namespace pixmill::test
