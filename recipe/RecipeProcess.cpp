// Running a recipe, or a single filter, and composing the result document.
//
// Nothing here schedules work: asking an end point's output pins for their
// images pulls the graph behind them. What this unit adds is the set-up of
// each run (master images, parameter overrides, directly filled input pins
// on the single-filter path), the deep copies handed to the caller, and the
// result text that the prober parses.
#include <cwchar>
#include <memory>
#include <string>

#include "framework/FilterRegistry.h"
#include "framework/Json.h"
#include "logging/Logger.h"
#include "recipe/Recipe.h"

using pixmill::logging::LogW;

namespace pixmill {

namespace {

const wchar_t* OrEmpty(const wchar_t* text) {
    return text ? text : L"";
}

// Appends every image of an output pin to the caller's list, as a header
// that shares the pixels and keeps them alive after the recipe is gone. The
// caller copies them where they leave the library. Each header belongs to
// the list as soon as it is in it, so an exception later in the run leaves
// nothing without an owner.
void AppendCopies(IPin& pin, std::vector<cv::Mat*>& outputs) {
    for (cv::Mat& image : pin.ReadImages()) {
        auto header = std::make_unique<cv::Mat>(std::move(image));
        outputs.push_back(header.get());
        header.release();
    }
}

// One filter's entry of the result document. The result fragment goes in
// unquoted; a fragment too short to be a JSON value of its own stands as
// "none". Nothing is escaped: the prober reads the document as written.
std::wstring Entry(IFilter& filter) {
    const wchar_t* result = filter.GetResult();
    std::wstring entry = L"{\"Name\":\"";
    entry += OrEmpty(filter.GetName());
    entry += L"\",\"Key\":\"";
    entry += OrEmpty(filter.GetKey());
    entry += L"\",\"Result\":";
    entry += (result && std::wcslen(result) >= 2) ? result : L"\"none\"";
    entry += L"}";
    return entry;
}

// The override object of a filter: the member named by its key, else the
// member named by its name. Null when the document has neither.
const JsonValue* OverrideFor(const JsonValue& overrides, IFilter& filter) {
    if (const JsonValue* byKey = FindMember(overrides, filter.GetKey())) return byKey;
    return FindMember(overrides, filter.GetName());
}

// The result document of a recipe that has filters. The end point's entry
// leads, the other processed filters follow from the last to the first.
// With several end points only the one nearest the start is listed, and when
// the first filter is not a listed non-end point the list keeps a trailing
// comma. Callers on the prober read exactly this shape, so it stays.
std::wstring ComposeResult(const std::vector<IFilter*>& filters) {
    wchar_t head[64];
    std::swprintf(head, 64, L"{ \"Count\":\"%d\", \"Filter\":[", static_cast<int>(filters.size()));

    std::wstring endText;
    std::wstring otherText;
    for (size_t i = filters.size(); i-- > 0;) {
        IFilter& filter = *filters[i];
        if (!filter.IsProcessed()) continue;
        if (filter.IsEndPoint()) {
            endText = Entry(filter);
        } else {
            otherText += Entry(filter);
            if (i != 0) otherText += L",";
        }
    }

    std::wstring result = head;
    result += endText;
    if (!endText.empty() && !otherText.empty()) result += L",";
    result += otherText;
    result += L"]}";
    return result;
}

}  // namespace

void RecipeProcess(CRecipe& recipe, std::wstring& result, const std::vector<MasterImage>& inputs,
                   std::vector<cv::Mat*>& outputs, const wchar_t* overrideText) {
    result.clear();
    LogW(1, L"<CRecipeProcess recipe=\"%ls\">", recipe.Name().c_str());

    // A text that does not parse leaves a null document in which no filter
    // finds a member: the recipe then runs on its own settings.
    JsonDocument overrides;
    if (overrideText && *overrideText) ParseJson(overrides, overrideText);

    std::vector<IFilter*>& filters = recipe.Filters();
    for (IFilter* filter : filters) {
        filter->SetMasterImage(inputs);
        if (const JsonValue* own = OverrideFor(overrides, *filter)) filter->Init(*own);
    }

    // End points run in document order. One that an earlier end point
    // already pulled is not run again: its images are simply taken.
    for (IFilter* filter : filters) {
        if (!filter->IsEndPoint()) continue;
        LogW(1, L"<CRecipeProcess seq=\"EndPoint\" filter=\"%ls\"/>", OrEmpty(filter->GetName()));
        for (IPin* pin : filter->GetOutputPins()) {
            LogW(1, L"<CRecipeProcess seq=\"EndPoint\" filter=\"%d\"/>", pin->GetKey());
            AppendCopies(*pin, outputs);
        }
    }

    if (!filters.empty()) result = ComposeResult(filters);
    LogW(1, L"</CRecipeProcess>");
}

void FilterProcess(CRecipe& recipe, std::wstring& result, const std::vector<MasterImage>& inputs,
                   std::vector<cv::Mat*>& outputs, const wchar_t* filterType,
                   const wchar_t* paramText) {
    result.clear();
    LogW(1, L"<CRecipeProcess filter=\"%ls\">", OrEmpty(filterType));

    std::unique_ptr<IBaseObject> object(FilterRegistry::Instance().Create(filterType));
    auto* filter = dynamic_cast<IFilter*>(object.get());
    if (!filter) {
        LogW(1, L"</CRecipeProcess>");
        return;
    }
    object.release();
    recipe.AddFilter(filter);  // the recipe owns it from here on

    if (paramText && *paramText) {
        // The text is the filter's own object, without a level naming it.
        JsonDocument params;
        ParseJson(params, paramText);
        filter->Init(params);
    }
    filter->SetMasterImage(inputs);

    // With no links to pull from, the inputs are routed by ID: an image goes
    // to the input pin whose key equals its ImageID. A pin that no image
    // names is still set, to an empty list.
    for (IPin* pin : filter->GetPins()) {
        if (pin->IsOutput()) continue;
        std::vector<cv::Mat> images;
        for (const MasterImage& input : inputs)
            if (input.ImageID == pin->GetKey())
                images.push_back(input.image ? *input.image : cv::Mat());
        pin->SetImages(std::move(images));
    }
    for (IPin* pin : filter->GetOutputPins()) AppendCopies(*pin, outputs);

    result = L"[" + Entry(*filter) + L"]";
    LogW(1, L"</CRecipeProcess>");
}

}  // namespace pixmill
