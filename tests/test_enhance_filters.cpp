// The enhancement filters inside real recipes: a SourceFilter feeds two
// images to each, and both outputs and the result text (which reports the
// last image) are checked against the core run directly.
#include <gtest/gtest.h>

#include <functional>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"
#include "enhance/Enhance.h"
#include "platform/Platform.h"
#include "recipe/Recipe.h"

namespace pixmill::test {
namespace {

std::wstring P(const std::wstring& key, const std::wstring& value) {
    return L"{\"Key\":\"" + key + L"\",\"Value\":\"" + value + L"\"}";
}

// A pad-like scene: a gradient with a wide bright rectangle and a dark disc,
// so that the two directions and both sides of mid-grey differ.
cv::Mat Scene(int shift) {
    cv::Mat1b m(48, 64);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.cols; ++c) m(r, c) = static_cast<uint8_t>(110 + c + r / 2 + shift);
    cv::rectangle(m, cv::Rect(6, 8, 30, 12), cv::Scalar(230), -1);
    cv::circle(m, cv::Point(46, 32), 9, cv::Scalar(30 + shift), -1);
    return m;
}

cv::Mat Enhanced(const cv::Mat& src, int direction, float sigma, float scale) {
    cv::Mat dst(src.size(), CV_8UC1);
    EnhanceImage(src.data, dst.data, src.cols, src.rows, direction, sigma, scale);
    return dst;
}

// The expected output of one image (empty: not checked) and the result text
// that image leaves.
using Oracle = std::function<cv::Mat(const cv::Mat& in, std::wstring& text)>;

Oracle Enhance(int direction, float sigma, float scale) {
    return [=](const cv::Mat& in, std::wstring& text) {
        text = L"\"\"";  // writes no result text of its own
        return Enhanced(in, direction, sigma, scale);
    };
}

Oracle AutoScale(const wchar_t* reported, int direction = 0, float sigma = 0) {
    return [=](const cv::Mat& in, std::wstring& text) {
        text = std::wstring(L"{\"fScale\":") + reported + L"}";
        // Only on the floor is the gain known exactly: 0.15.
        return sigma > 0 ? Enhanced(in, direction, sigma, 0.15f) : cv::Mat();
    };
}

Oracle Otsu(bool bright, int absolute) {
    return [=](const cv::Mat& in, std::wstring& text) {
        cv::Mat dst(in.size(), CV_8UC1);
        const int t = Enhance_Threshold_Otsu(in.data, dst.data, in.cols, in.rows, bright, absolute);
        text = L"{\"threshold\":" + std::to_wstring(t) + L"}";
        return dst;
    };
}

struct FilterCase {
    const char* name;
    const wchar_t* type;
    std::wstring params;
    Oracle oracle;
};

class EnhanceFilters : public PixmillTest, public ::testing::WithParamInterface<FilterCase> {};

TEST_P(EnhanceFilters, RunInARecipe) {
    const FilterCase& c = GetParam();
    const std::wstring text =
        L"{\"Name\":\"enhance\",\"Filters\":[{\"Name\":\"Src\",\"Key\":\"s\",\"Type\":"
        L"\"SourceFilter\",\"Params\":[" +
        P(L"ImageID", L"1") +
        L"],\"Pins\":[{\"Key\":-1}]},"
        L"{\"Name\":\"E\",\"Key\":\"e\",\"Type\":\"" +
        c.type +
        L"\",\"IsEndPoint\":true,"
        L"\"Params\":[" +
        c.params +
        L"],\"Pins\":[{\"Type\":\"IN\",\"Name\":\"In\",\"Key\":1,"
        L"\"Link\":{\"FilterKey\":\"s\",\"PinKey\":-1}},{\"Key\":-1,\"Type\":\"OUT\"}]}]}";
    cv::Mat first = Scene(0), second = Scene(12);
    std::vector<cv::Mat*> out;
    std::wstring result;
    {
        CRecipe recipe(text.c_str());
        RecipeProcess(recipe, result, {{&first, 1}, {&second, 1}}, out, nullptr);
    }
    ASSERT_EQ(out.size(), 2u);
    std::wstring reported;
    for (int i = 0; i < 2; ++i) {
        const cv::Mat expected = c.oracle(i == 0 ? first : second, reported);
        EXPECT_EQ(out[i]->size(), first.size());
        EXPECT_TRUE(expected.empty() || cv::norm(*out[i], expected, cv::NORM_INF) == 0) << i;
        delete out[i];
    }
    EXPECT_NE(result.find(L"\"Key\":\"e\",\"Result\":" + reported + L"}"), std::wstring::npos)
        << platform::ToUtf8(result);
}

INSTANTIATE_TEST_SUITE_P(
    Recipes, EnhanceFilters,
    ::testing::Values(
        FilterCase{"EnhanceDefaults", L"EnhanceFilter", L"", Enhance(0, 4.0f, 1.0f)},
        FilterCase{"EnhanceRows", L"EnhanceFilter",
                   P(L"Diretion", L"1") + L"," + P(L"Sigma", L"2.5") + L"," + P(L"Scale", L"1.5"),
                   Enhance(1, 2.5f, 1.5f)},
        FilterCase{"EnhanceColumns", L"EnhanceFilter",
                   P(L"Diretion", L"2") + L"," + P(L"Sigma", L"1.3"), Enhance(2, 1.3f, 1.0f)},
        FilterCase{"AutoScaleDefaults", L"EnhanceFilter_AutoScale", L"", AutoScale(L"1.34")},
        FilterCase{"AutoScaleSigma1", L"EnhanceFilter_AutoScale", P(L"Sigma", L"1"),
                   AutoScale(L"1.69")},
        FilterCase{"AutoScaleSigma14_4", L"EnhanceFilter_AutoScale", P(L"Sigma", L"14.4"),
                   AutoScale(L"0.15")},
        FilterCase{"AutoScaleFloor", L"EnhanceFilter_AutoScale",
                   P(L"Sigma", L"20") + L"," + P(L"Diretion", L"2"), AutoScale(L"0.15", 2, 20)},
        FilterCase{"AutoScaleNotANumber", L"EnhanceFilter_AutoScale", P(L"Sigma", L"nan"),
                   AutoScale(L"0.15")},
        FilterCase{"OtsuDefaults", L"EnhanceOtsuFilter", L"", Otsu(false, 128)},
        FilterCase{"OtsuBright", L"EnhanceOtsuFilter",
                   P(L"W/B", L"true") + L"," + P(L"ABSolute", L"0"), Otsu(true, 0)},
        FilterCase{"OtsuDarkCeiling", L"EnhanceOtsuFilter",
                   P(L"W/B", L"false") + L"," + P(L"ABSolute", L"40"), Otsu(false, 40)}),
    [](const ::testing::TestParamInfo<FilterCase>& info) { return info.param.name; });

// Through the single-filter path, which hands images over unconverted: a
// colour image stops the filter (logged, no output), an empty one passes.
class EnhanceFilterInput : public PixmillTest {};

TEST_F(EnhanceFilterInput, ColourIsRefusedAndEmptyImagesPass) {
    EnableFileLog(4);
    for (const wchar_t* type :
         {L"EnhanceFilter", L"EnhanceFilter_AutoScale", L"EnhanceOtsuFilter"}) {
        cv::Mat colour(8, 8, CV_8UC3, cv::Scalar(1, 2, 3)), empty;
        for (cv::Mat* input : {&colour, &empty}) {
            std::vector<cv::Mat*> outputs;
            std::wstring result;
            CRecipe recipe;
            FilterProcess(recipe, result, {{input, 1}}, outputs, type, nullptr);
            EXPECT_EQ(outputs.size(), input == &empty ? 1u : 0u);
            for (cv::Mat* m : outputs) {
                EXPECT_TRUE(m->empty());
                delete m;
            }
        }
    }
    EXPECT_EQ(CountOf(ReadLog(), "needs 8-bit one-channel images"), 3);
}

}  // namespace
}  // namespace pixmill::test
