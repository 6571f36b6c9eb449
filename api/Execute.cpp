// The execute entry points: recipes and single filters on image records,
// image files, caller memory and image buffers.
#include <algorithm>
#include <climits>
#include <cwctype>

#include "api/Boundary.h"
#include "api/ImageBuffer.h"
#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"
#include "recipe/Recipe.h"

using pixmill::api::InputImages;
using pixmill::api::OwnedMats;
using pixmill::logging::LogW;

namespace {

const wchar_t* OrEmpty(const wchar_t* text) {
    return text ? text : L"";
}

// Shared core of RecipeExecute and FilterExecute: a recipe when its text is
// given, else the single filter named by `filter`.
int ExecuteRecords(ImageParam* input, ImageParam* output, const wchar_t* recipeText,
                   const wchar_t* filter, const wchar_t* param) {
    LogW(1, L"<RecipeExecute>");
    LogW(1, L"<Input count=\"%d\"/>", input ? input->count : 0);
    pixmill::api::DumpImages(input);
    if (!output) {
        LogW(4, L"<ERROR func=\"RecipeExecute\" output=\"null\"/>");
        LogW(1, L"</RecipeExecute>");
        return 0;
    }

    OwnedMats outputs;
    std::wstring result;
    try {
        InputImages inputs;
        pixmill::api::ImagesFromRecord(input, inputs);
        CRecipe recipe(recipeText);
        if (recipeText) {
            pixmill::RecipeProcess(recipe, result, inputs.masters, outputs.mats, param);
        } else {
            pixmill::FilterProcess(recipe, result, inputs.masters, outputs.mats, filter, param);
        }
    } catch (...) {
        // A recipe or parameter text the library cannot use (a number that
        // does not read): the caller gets an empty result and no images.
        pixmill::api::LogRefusal(recipeText ? L"RecipeExecute" : L"FilterExecute");
        for (cv::Mat* m : outputs.mats) delete m;
        outputs.mats.clear();
        result.clear();
    }
    pixmill::api::ImagesToRecord(outputs.mats, result, output);

    LogW(1, L"<output count=\"%d\"/>", output->count);
    pixmill::api::DumpImages(output);
    LogW(1, L"</RecipeExecute>");
    return 0;
}

// The recipe text of the ByBuffer calls: the text itself when it begins
// with "{", else the content of the file it names.
std::wstring RecipeTextOf(const wchar_t* recipe) {
    if (recipe && recipe[0] == L'{') return recipe;
    return pixmill::ReadRecipeFile(recipe);
}

bool AllDigits(const std::wstring& token) {
    return !token.empty() &&
           std::all_of(token.begin(), token.end(), [](wchar_t c) { return std::iswdigit(c) != 0; });
}

// An ID token's value; digits beyond the int range saturate.
int TokenId(const std::wstring& token) {
    long long v = 0;
    for (wchar_t c : token) {
        v = v * 10 + (c - L'0');
        if (v > INT_MAX) return INT_MAX;
    }
    return static_cast<int>(v);
}

// Copies the first output image into the caller's buffer and reports its
// size; leaves everything alone when there is no output image.
void CopyFirstOutput(const std::vector<cv::Mat*>& outputs, uint8_t* outImage, int outSize,
                     int* outWidth, int* outHeight) {
    if (!outImage || outSize < 1 || outputs.empty()) return;
    const cv::Mat& m = *outputs.front();
    pixmill::api::CopyPixels(m, outImage, static_cast<size_t>(outSize));
    if (outWidth) *outWidth = m.cols;
    if (outHeight) *outHeight = m.rows;
}

}  // namespace

extern "C" int RecipeExecute(ImageParam* input, ImageParam* output, const wchar_t* recipe,
                             const wchar_t* param) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<RecipeExecute> <Recipe>%ls</Recipe> <Param>%ls</Param>", OrEmpty(recipe),
         OrEmpty(param));
    int rc = ExecuteRecords(input, output, recipe, nullptr, param);
    LogW(2, L"</RecipeExecute>");
    return rc;
} catch (...) {
    pixmill::api::LogRefusal(L"RecipeExecute");
    return 0;
}

extern "C" int FilterExecute(ImageParam* input, ImageParam* output, const wchar_t* filter,
                             const wchar_t* param) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<FilterExecute> <Filter>%ls</Filter> <Param>%ls</Param>", OrEmpty(filter),
         OrEmpty(param));
    int rc = ExecuteRecords(input, output, nullptr, filter, param);
    LogW(2, L"</FilterExecute>");
    return rc;
} catch (...) {
    pixmill::api::LogRefusal(L"FilterExecute");
    return 0;
}

extern "C" int RecipeExecuteByPath(const wchar_t* inputs, const wchar_t* outputPath,
                                   const wchar_t* recipePath, const wchar_t* param,
                                   wchar_t* resultText, int resultBytes) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<RecipeExecuteByPath>  <Recipe>%ls</Recipe><Param>%ls</Param>", OrEmpty(recipePath),
         OrEmpty(param));
    std::wstring text = pixmill::ReadRecipeFile(recipePath);
    if (text.empty()) {
        LogW(2, L"</RecipeExecuteByPath>");
        return 0;
    }

    InputImages images;
    int id = 1;
    std::wstring all = OrEmpty(inputs);
    size_t start = 0;
    while (inputs) {
        size_t bar = all.find(L'|', start);
        std::wstring token =
            all.substr(start, bar == std::wstring::npos ? std::wstring::npos : bar - start);
        if (token.empty()) {
            id = 0;
        } else if (AllDigits(token)) {
            id = TokenId(token);
        } else {
            // An unreadable file gives an empty image, which stays in the list.
            images.Add(pixmill::ReadImageFile(token, 1), id);
        }
        if (bar == std::wstring::npos) break;
        start = bar + 1;
    }

    OwnedMats outputs;
    std::wstring result;
    {
        CRecipe recipe(text.c_str());
        pixmill::RecipeProcess(recipe, result, images.masters, outputs.mats, nullptr);
    }
    if (outputPath && *outputPath && !outputs.mats.empty())
        pixmill::WriteImageFile(outputPath, *outputs.mats.front());
    pixmill::api::CopyResultBytes(result, resultText, resultBytes);
    LogW(2, L"</RecipeExecuteByPath>");
    return pixmill::api::ResultBytes(result);
} catch (...) {
    pixmill::api::LogRefusal(L"RecipeExecuteByPath");
    return 0;
}

extern "C" int RecipeExecuteByBuffer(const uint8_t* image1, int size1, int width1, int height1,
                                     const uint8_t* image2, int size2, int width2, int height2,
                                     uint8_t* outImage, int outSize, int* outWidth, int* outHeight,
                                     const wchar_t* recipe, const wchar_t* param,
                                     wchar_t* resultText, int resultBytes) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<RecipeExecuteByBuffer>  <Recipe>%ls</Recipe><Param>%ls</Param>", OrEmpty(recipe),
         OrEmpty(param));
    std::wstring text = RecipeTextOf(recipe);
    if (text.empty()) {
        // The closing line of this call repeats its opening tag, not a
        // closing one; log readers match on it.
        LogW(2, L"<RecipeExecuteByBuffer>");
        return 0;
    }
    InputImages images;
    if (size1 > 0) images.Add(pixmill::api::MatFromPixels(image1, size1, width1, height1), 1);
    if (size2 > 0) images.Add(pixmill::api::MatFromPixels(image2, size2, width2, height2), 2);

    OwnedMats outputs;
    std::wstring result;
    {
        CRecipe loaded(text.c_str());
        pixmill::RecipeProcess(loaded, result, images.masters, outputs.mats, nullptr);
    }
    CopyFirstOutput(outputs.mats, outImage, outSize, outWidth, outHeight);
    pixmill::api::CopyResultBytes(result, resultText, resultBytes);
    LogW(2, L"<RecipeExecuteByBuffer>");
    return pixmill::api::ResultBytes(result);
} catch (...) {
    pixmill::api::LogRefusal(L"RecipeExecuteByBuffer");
    return 0;
}

extern "C" int RecipeExecuteByBufferID(void* buffer, uint8_t* outImage, int outSize, int* outWidth,
                                       int* outHeight, const wchar_t* recipe, const wchar_t* param,
                                       wchar_t* resultText, int resultBytes) try {
    pixmill::api::EnsureStartup();
    pixmill::api::BufferUse images = pixmill::api::UseImageBuffer(buffer);
    if (!images) return -1;
    LogW(2,
         L"<RecipeExecuteByBufferID>  "
         L"<Recipe>%ls</Recipe><Param>%ls</Param><BufferID>%ld</BufferID>",
         OrEmpty(recipe), OrEmpty(param), static_cast<long>(reinterpret_cast<intptr_t>(buffer)));
    std::wstring text = RecipeTextOf(recipe);
    if (text.empty()) {
        LogW(2, L"</RecipeExecuteByBufferID>");
        return 0;
    }
    // The buffer keeps owning its images; the recipe reads them in place.
    LogW(1, L"<CreateData />");
    std::vector<MasterImage> masters = images->entries;
    OwnedMats outputs;
    std::wstring result;
    {
        LogW(1, L"<CreateRecipe />");
        CRecipe loaded(text.c_str());
        LogW(1, L"<CreateExecute />");
        pixmill::RecipeProcess(loaded, result, masters, outputs.mats, param);
    }
    LogW(1, L"<CopyImage />");
    CopyFirstOutput(outputs.mats, outImage, outSize, outWidth, outHeight);
    LogW(1, L"<CopyResult />");
    pixmill::api::CopyResultBytes(result, resultText, resultBytes);
    LogW(1, L"<ReleaseResult/>");
    LogW(2, L"</RecipeExecuteByBufferID>");
    return pixmill::api::ResultBytes(result);
} catch (...) {
    pixmill::api::LogRefusal(L"RecipeExecuteByBufferID");
    return 0;
}

extern "C" int FilterExecuteByBuffer(const uint8_t* source, uint8_t* destination, int width,
                                     int height, const wchar_t* filter, const wchar_t* param,
                                     wchar_t* resultText, int resultChars) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"<FilterExecuteByBuffer>");
    InputImages images;
    const int64_t pixels = static_cast<int64_t>(width) * height;
    images.Add(pixmill::api::MatFromPixels(source, pixels, width, height), 1);
    OwnedMats outputs;
    std::wstring result;
    {
        CRecipe recipe;
        pixmill::FilterProcess(recipe, result, images.masters, outputs.mats, filter, param);
    }
    if (destination && !outputs.mats.empty() && pixels > 0)
        pixmill::api::CopyPixels(*outputs.mats.front(), destination, static_cast<size_t>(pixels));
    if (resultText && resultChars > 0) {
        // A bounded copy: an overlong text is cut and always terminated.
        size_t n = std::min(result.size(), static_cast<size_t>(resultChars) - 1);
        std::copy_n(result.begin(), n, resultText);
        resultText[n] = L'\0';
    }
    LogW(2, L"</FilterExecuteByBuffer>");
    return pixmill::api::ResultBytes(result);
} catch (...) {
    pixmill::api::LogRefusal(L"FilterExecuteByBuffer");
    if (resultText && resultChars > 0) resultText[0] = L'\0';
    return 0;
}

extern "C" int ImageParamRelease(ImageParam* record) try {
    pixmill::api::EnsureStartup();
    if (!record) return 0;
    if (!pixmill::api::ReleaseRecord(record))
        LogW(4, L"<ERROR func=\"ImageParamRelease\" result=\"not allocated by the library\"/>");
    return 1;
} catch (...) {
    pixmill::api::LogRefusal(L"ImageParamRelease");
    return 1;
}
