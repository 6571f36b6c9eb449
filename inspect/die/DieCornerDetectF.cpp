#include "inspect/die/DieCornerDetectF.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <opencv2/core.hpp>
#include <vector>

#include "api/ImageRecords.h"
#include "framework/DebugImages.h"
#include "framework/Json.h"
#include "inspect/Inspection.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"
#include "recipe/Recipe.h"

namespace pixmill::inspect::die {

using logging::LogW;

#define PIXMILL_CORNER_RECIPE(WB)                                                                         \
    L"{\"Name\":\"recipe XX\",\"Comment\":\"2023-11-24 오전 9:27:00\",\"Filters\":["                   \
    L"{\"Name\":\"SourceFilter\",\"Key\":\"fcb8e0e927badc54\",\"Type\":\"SourceFilter\",\"Enable\":true,"  \
    L"\"IsEndPoint\":false,\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"0\"},{\"Key\":\"Path\",\"Value\":"  \
    L"\"\"}],\"Pins\":[{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]},"                                 \
    L"{\"Name\":\"CropFilter\",\"Key\":\"28c33b08c758a5b8\",\"Type\":\"CropFilter\",\"Enable\":true,"     \
    L"\"IsEndPoint\":false,\"Params\":[{\"Key\":\"x\",\"Value\":\"56\"},{\"Key\":\"y\",\"Value\":\"76\"},"  \
    L"{\"Key\":\"width\",\"Value\":\"123\"},{\"Key\":\"height\",\"Value\":\"115\"}],\"Pins\":[{\"Type\":"  \
    L"\"IN\",\"Name\":\"In\",\"Link\":{\"FilterKey\":\"fcb8e0e927badc54\",\"PinKey\":-1},\"Key\":1},"    \
    L"{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]},"                                                   \
    L"{\"Name\":\"BlackBackgroundCornerDetectFilter\",\"Key\":\"b4596a05916e83fe\",\"Type\":"             \
    L"\"BlackBackgroundCornerDetectFilter\",\"Enable\":true,\"IsEndPoint\":true,\"Params\":[{\"Key\":"     \
    L"\"DieWidth\",\"Value\":\"88\"},{\"Key\":\"DieHeight\",\"Value\":\"92\"},{\"Key\":\"ToleranceWidth\"," \
    L"\"Value\":\"44\"},{\"Key\":\"ToleranceHeight\",\"Value\":\"40\"},{\"Key\":\"SearchMode\",\"Value\":" \
    L"\"0\"}],\"Pins\":[{\"Type\":\"IN\",\"Name\":\"In\",\"Link\":{\"FilterKey\":\"6c089dd6b87fcded\","   \
    L"\"PinKey\":-1},\"Key\":1},{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]},"                        \
    L"{\"Name\":\"EnhanceOtsuFilter\",\"Key\":\"6c089dd6b87fcded\",\"Type\":\"EnhanceOtsuFilter\","        \
    L"\"Enable\":true,\"IsEndPoint\":false,\"Params\":[{\"Key\":\"W/B\",\"Value\":\"" WB "\"},{\"Key\":" \
    L"\"ABSolute\",\"Value\":\"128\"}],\"Pins\":[{\"Type\":\"IN\",\"Name\":\"In\",\"Link\":{\"FilterKey\":" \
    L"\"28c33b08c758a5b8\",\"PinKey\":-1},\"Key\":1},{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]}]}"

const wchar_t* const kCornerRecipeBright = PIXMILL_CORNER_RECIPE(L"true");
const wchar_t* const kCornerRecipeDark = PIXMILL_CORNER_RECIPE(L"false");

#undef PIXMILL_CORNER_RECIPE

namespace {

constexpr const wchar_t* kResultImage = L"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinResult_Corner.bmp";

// a + b held in the int range.
int AddSaturated(int a, int b) {
    const long long s = static_cast<long long>(a) + b;
    return static_cast<int>(std::clamp<long long>(s, INT_MIN, INT_MAX));
}

}  // namespace

double ReadStrictNumber(const std::wstring& text) {
    bool negative = false, point = false, digit = false;
    double value = 0.0, scale = 1.0;
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        if (c == L'-' && i == 0) {
            negative = true;
        } else if (c == L'.' && !point) {
            point = true;
        } else if (c >= L'0' && c <= L'9') {
            digit = true;
            if (point) {
                scale /= 10.0;
                value += (c - L'0') * scale;
            } else {
                value = value * 10.0 + (c - L'0');
            }
        } else {
            return 0.0;
        }
    }
    if (!digit) return 0.0;
    return negative ? -value : value;
}

int ReadCornerResult(const std::wstring& result, int x, int y, int* corners) {
    int code = kCornerNoDie;
    // Result documents may keep a comma before a closing bracket.
    JsonDocument doc;
    doc.Parse<rapidjson::kParseTrailingCommasFlag>(result.c_str());
    if (doc.HasParseError() || !doc.IsObject()) return code;
    const JsonValue* filters = FindMember(doc, L"Filter");
    if (!filters || !filters->IsArray()) return code;
    static const wchar_t* const kKeys[8] = {L"LT_X", L"LT_Y", L"RT_X", L"RT_Y",
                                            L"RB_X", L"RB_Y", L"LB_X", L"LB_Y"};
    for (const JsonValue& entry : filters->GetArray()) {
        if (StringMember(entry, L"Name") != L"BlackBackgroundCornerDetectFilter") continue;
        const JsonValue* r = FindMember(entry, L"Result");
        if (!r) continue;
        const JsonValue* dies = FindMember(*r, L"Dies");
        if (!dies || !dies->IsArray()) continue;
        for (const JsonValue& die : dies->GetArray()) {
            double v[8];
            bool complete = true;
            for (int k = 0; k < 8; ++k) {
                v[k] = ReadStrictNumber(StringMember(die, kKeys[k]));
                complete = complete && v[k] > 0;
            }
            auto fill = [&](bool offsetAll) {
                if (!corners) return;
                for (int k = 0; k < 8; ++k) {
                    const int value = CutToInt(v[k]);
                    const bool offset = offsetAll || v[k] > 0;
                    corners[2 + k] = offset ? AddSaturated(value, k % 2 == 0 ? x : y) : value;
                }
            };
            if (complete) {
                if (code == kCornerOneDie) return kCornerSeveralDies;
                fill(true);
                if (corners) {
                    corners[0] = AddSaturated(CutToInt((v[0] + v[2] + v[4] + v[6]) / 4.0 + 0.5), x);
                    corners[1] = AddSaturated(CutToInt((v[1] + v[3] + v[5] + v[7]) / 4.0 + 0.5), y);
                }
                code = kCornerOneDie;
            } else if (code != kCornerOneDie) {
                fill(false);
                code = kCornerIncomplete;
            }
        }
    }
    return code;
}

int CornerDetect(const uint8_t* image, int size, int width, int height, int x, int y, int cropWidth,
                 int cropHeight, int dieWidth, int dieHeight, int toleranceWidth, int toleranceHeight,
                 int whiteOnBlack, int* corners) {
    std::wstring overrides;
    AppendWide(overrides,
               L"{\"CropFilter\":{\"Params\": [{ \"Key\": \"x\", \"Value\": \"%d\" },{ \"Key\": \"y\", "
               L"\"Value\": \"%d\" },{ \"Key\": \"width\", \"Value\": \"%d\" },{ \"Key\": \"height\", "
               L"\"Value\": \"%d\" }]},\"BlackBackgroundCornerDetectFilter\":{\"Params\": [{ \"Key\": "
               L"\"DieWidth\", \"Value\": \"%d\" },{ \"Key\": \"DieHeight\", \"Value\": \"%d\" },{ \"Key\": "
               L"\"ToleranceWidth\", \"Value\": \"%d\" },{ \"Key\": \"ToleranceHeight\", \"Value\": \"%d\" },"
               L"{ \"Key\": \"SearchMode\", \"Value\": \"0\" }]}}",
               x, y, cropWidth, cropHeight, dieWidth, dieHeight, toleranceWidth, toleranceHeight);
    const wchar_t* recipeText = whiteOnBlack != 0 ? kCornerRecipeDark : kCornerRecipeBright;

    api::InputImages inputs;
    // The caller's pixels are read only when they cover the stated size.
    if (size > 0 && image && width > 0 && height > 0 &&
        static_cast<long long>(size) >= static_cast<long long>(width) * height)
        inputs.Add(cv::Mat(height, width, CV_8UC1, const_cast<uint8_t*>(image)).clone(), 0);

    api::OwnedMats outputs;
    std::wstring result;
    {
        CRecipe recipe(recipeText);
        RecipeProcess(recipe, result, inputs.masters, outputs.mats, overrides.c_str());
    }
    const int code = ReadCornerResult(result, x, y, corners);
    // The result picture is for a person to look at: a debug image.
    if (DebugImagesEnabled() && !outputs.mats.empty() && outputs.mats.front() && !outputs.mats.front()->empty())
        Files().Write(kResultImage, *outputs.mats.front());
    LogW(1, L"<CornerDetectF result=\"%d\"/>", code);
    return code;
}

}  // namespace pixmill::inspect::die
