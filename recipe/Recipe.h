// Recipes: a JSON document that lists filters, gives each its parameters and
// joins their pins. CRecipe holds the filters of one execution; the two
// procedures below run it and compose the result document.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "framework/Filter.h"

class CRecipe {
public:
    // Loads a recipe from its text. Null, empty or malformed text gives a
    // recipe with no filters and no error. An unknown filter type drops that
    // node. A bad number in a node's Params leaves as the exception of the
    // parameter conversion, and the filters made so far are destroyed.
    explicit CRecipe(const wchar_t* text = nullptr);
    ~CRecipe();

    CRecipe(const CRecipe&) = delete;
    CRecipe& operator=(const CRecipe&) = delete;

    // The filters in document order; owned by the recipe.
    std::vector<IFilter*>& Filters() { return m_filters; }
    const std::wstring& Name() const { return m_name; }
    const std::wstring& Comment() const { return m_comment; }

    // Takes ownership of a filter (the single-filter path).
    void AddFilter(IFilter* filter);

    // The pin `pinKey` of the first filter whose key is `filterKey`; null if
    // that filter or pin does not exist.
    IPin* FindPin(const wchar_t* filterKey, int pinKey);

private:
    std::vector<IFilter*> m_filters;
    std::wstring m_name;
    std::wstring m_comment;
};

namespace pixmill {

// Reads a recipe file (prober path form, mapped to the native path). Under
// 10 bytes or unreadable gives "", at most 1048576 bytes are read, and the
// first bytes choose the encoding: EF BB BF UTF-8, FE FF UTF-16 big-endian,
// FF FE UTF-16 little-endian, anything else UTF-8.
std::wstring ReadRecipeFile(const wchar_t* path);

// Runs a loaded recipe. `outputs` receives new headers owned by the caller
// that share the end points' pixels, for reading only, `result` the result document ("" for a recipe without filters).
// `overrideText` is a JSON object whose members, named by a filter's Key or
// else its Name, are passed to that filter's Init.
void RecipeProcess(CRecipe& recipe, std::wstring& result, const std::vector<MasterImage>& inputs,
                   std::vector<cv::Mat*>& outputs, const wchar_t* overrideText);

// Runs one filter created by type name, its input pins filled from the
// inputs whose ImageID equals the pin's key. `paramText` is the filter's own
// JSON object. `recipe` must be empty; it owns the filter afterwards.
void FilterProcess(CRecipe& recipe, std::wstring& result, const std::vector<MasterImage>& inputs,
                   std::vector<cv::Mat*>& outputs, const wchar_t* filterType,
                   const wchar_t* paramText);

}  // namespace pixmill
