// Parameters: the attributes text a recipe editor reads, and the conversion
// of document text into typed values.
#include <gtest/gtest.h>

#include <stdexcept>

#include "framework/Param.h"

using sorvik::Param;

namespace {

TEST(ParamAttributes, ThresholdTextIsByteExact) {
    Param<int> threshold(L"Threshold", 127, 0, 255, 1);
    EXPECT_STREQ(
        threshold.GetAttributes(),
        L"[{\"Name\":\"value\",\"Value\":\"127\"},{\"Name\":\"default\",\"Value\":\"127\"},"
        L"{\"Name\":\"min\",\"Value\":\"0\"},{\"Name\":\"max\",\"Value\":\"255\"},"
        L"{\"Name\":\"step\",\"Value\":\"1\"},]");
}

TEST(ParamAttributes, FloatUsesSixDecimalsAndKeepsConstructionValues) {
    Param<float> sigma(L"Sigma", 1.5f, 0.1f, 20.0f, 0.25f);
    const std::wstring before = sigma.GetAttributes();
    EXPECT_EQ(
        before,
        L"[{\"Name\":\"value\",\"Value\":\"1.500000\"},{\"Name\":\"default\",\"Value\":"
        L"\"1.500000\"},{\"Name\":\"min\",\"Value\":\"0.100000\"},{\"Name\":\"max\",\"Value\":"
        L"\"20.000000\"},{\"Name\":\"step\",\"Value\":\"0.250000\"},]");
    std::vector<IParam*> list{&sigma};
    ASSERT_TRUE(pixmill::SetParamFromText(list, L"Sigma", L"7.25"));
    EXPECT_FLOAT_EQ(sigma.value, 7.25f);
    EXPECT_EQ(before, sigma.GetAttributes());
}

TEST(ParamAttributes, FlagTextAndBareFormsHaveNone) {
    Param<bool> invert(L"Invert", true);
    Param<bool> bareFlag(L"Bare");
    Param<int> bareInt(L"x");
    Param<std::wstring> text(L"Path");
    for (IParam* p : std::vector<IParam*>{&invert, &bareFlag, &bareInt, &text}) {
        ASSERT_NE(p->GetAttributes(), nullptr);
        EXPECT_STREQ(p->GetAttributes(), L"") << p->GetTypeName();
    }
    // Bare forms start at false and 0; the flag form stores only its default.
    EXPECT_FALSE(bareFlag.value);
    EXPECT_EQ(bareInt.value, 0);
    EXPECT_EQ(bareInt.min, 0);
    EXPECT_FALSE(invert.value);
    EXPECT_TRUE(invert.defaultValue);
}

TEST(ParamTypeName, ReadableNames) {
    Param<bool> b(L"b");
    Param<int> i(L"i");
    Param<float> f(L"f");
    Param<std::wstring> s(L"s");
    sorvik::CParam plain(L"plain");
    EXPECT_STREQ(b.GetTypeName(), "bool");
    EXPECT_STREQ(i.GetTypeName(), "int");
    EXPECT_STREQ(f.GetTypeName(), "float");
    EXPECT_STREQ(s.GetTypeName(), "std::wstring");
    EXPECT_EQ(plain.GetTypeName(), nullptr);
    plain.SetName(L"renamed");
    EXPECT_STREQ(plain.GetName(), L"renamed");
}

// One row: the text given to an int, float or bool parameter and what must
// come of it.
struct ConversionCase {
    const wchar_t* text;
    enum Kind { Int, Float, Bool } kind;
    double expected;        // value when no exception is expected
    const char* exception;  // what() text, or null
    bool outOfRange;        // std::out_of_range rather than std::invalid_argument
};

class ParamConversion : public ::testing::TestWithParam<ConversionCase> {};

TEST_P(ParamConversion, SetsValueOrRaisesDesignedException) {
    const ConversionCase& c = GetParam();
    Param<int> i(L"k", 5, 0, 10, 1);
    Param<float> f(L"k", 5.0f, 0.0f, 10.0f, 1.0f);
    Param<bool> b(L"k");
    b.value = !static_cast<bool>(c.expected);  // so a no-op would show
    IParam* target = c.kind == ConversionCase::Int     ? static_cast<IParam*>(&i)
                     : c.kind == ConversionCase::Float ? static_cast<IParam*>(&f)
                                                       : static_cast<IParam*>(&b);
    std::vector<IParam*> list{target};
    if (c.exception) {
        try {
            pixmill::SetParamFromText(list, L"k", c.text);
            FAIL() << "no exception for case " << ::testing::PrintToString(std::wstring(c.text));
        } catch (const std::out_of_range& e) {
            EXPECT_TRUE(c.outOfRange);
            EXPECT_STREQ(e.what(), c.exception);
        } catch (const std::invalid_argument& e) {
            EXPECT_FALSE(c.outOfRange);
            EXPECT_STREQ(e.what(), c.exception);
        }
        EXPECT_EQ(i.value, 5);  // unchanged on failure
        EXPECT_EQ(f.value, 5.0f);
        return;
    }
    EXPECT_TRUE(pixmill::SetParamFromText(list, L"k", c.text));
    switch (c.kind) {
        case ConversionCase::Int:
            EXPECT_EQ(i.value, static_cast<int>(c.expected));
            break;
        case ConversionCase::Float:
            EXPECT_FLOAT_EQ(f.value, static_cast<float>(c.expected));
            break;
        case ConversionCase::Bool:
            EXPECT_EQ(b.value, c.expected != 0);
            break;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParamConversion,
    ::testing::Values(
        ConversionCase{L"12abc", ConversionCase::Int, 12, nullptr, false},
        ConversionCase{L"  -7", ConversionCase::Int, -7, nullptr, false},
        ConversionCase{L"300", ConversionCase::Int, 300, nullptr, false},  // beyond max: kept
        ConversionCase{L"2147483647", ConversionCase::Int, 2147483647, nullptr, false},
        ConversionCase{L"abc", ConversionCase::Int, 0, "invalid stoi argument", false},
        ConversionCase{L"", ConversionCase::Int, 0, "invalid stoi argument", false},
        ConversionCase{L"99999999999", ConversionCase::Int, 0, "stoi argument out of range", true},
        ConversionCase{L"2147483648", ConversionCase::Int, 0, "stoi argument out of range", true},
        ConversionCase{L"-99999999999", ConversionCase::Int, 0, "stoi argument out of range", true},
        ConversionCase{L"1.5x", ConversionCase::Float, 1.5, nullptr, false},
        ConversionCase{L"-0.25", ConversionCase::Float, -0.25, nullptr, false},
        ConversionCase{L"x1.5", ConversionCase::Float, 0, "invalid stof argument", false},
        ConversionCase{L"", ConversionCase::Float, 0, "invalid stof argument", false},
        ConversionCase{L"1e99", ConversionCase::Float, 0, "stof argument out of range", true},
        ConversionCase{L"TRUE", ConversionCase::Bool, 1, nullptr, false},
        ConversionCase{L"True", ConversionCase::Bool, 1, nullptr, false},
        ConversionCase{L"true", ConversionCase::Bool, 1, nullptr, false},
        ConversionCase{L"Truest", ConversionCase::Bool, 1, nullptr, false},
        ConversionCase{L"trueish", ConversionCase::Bool, 1, nullptr, false},
        ConversionCase{L"tRUE", ConversionCase::Bool, 0, nullptr, false},
        ConversionCase{L"TrUe", ConversionCase::Bool, 0, nullptr, false},
        ConversionCase{L"tru", ConversionCase::Bool, 0, nullptr, false},
        ConversionCase{L"1", ConversionCase::Bool, 0, nullptr, false},
        ConversionCase{L"yes", ConversionCase::Bool, 0, nullptr, false},
        ConversionCase{L"", ConversionCase::Bool, 0, nullptr, false}));

TEST(ParamLookup, FirstMatchWinsAndUnknownKeysChangeNothing) {
    Param<int> first(L"Size", 1, 0, 9, 1);
    Param<int> second(L"Size", 2, 0, 9, 1);
    Param<std::wstring> path(L"Path");
    std::vector<IParam*> list{&first, &second, &path};

    EXPECT_FALSE(pixmill::SetParamFromText(list, L"size", L"7"));  // case-sensitive
    EXPECT_FALSE(pixmill::SetParamFromText(list, L"Siz", L"7"));   // whole name
    EXPECT_EQ(first.value, 1);

    EXPECT_TRUE(pixmill::SetParamFromText(list, L"Size", L"7"));
    EXPECT_EQ(first.value, 7);
    EXPECT_EQ(second.value, 2);

    EXPECT_TRUE(pixmill::SetParamFromText(list, L"Path", L"C:\\a b\\c.bmp 12"));
    EXPECT_EQ(path.value, L"C:\\a b\\c.bmp 12");
}

TEST(ParamLookup, DoubleIsMatchedButNeverAssigned) {
    Param<double> ratio(L"Ratio", 0.5, 0.0, 1.0, 0.1);
    Param<int> fallback(L"Ratio", 3, 0, 9, 1);
    std::vector<IParam*> onlyDouble{&ratio};
    EXPECT_FALSE(pixmill::SetParamFromText(onlyDouble, L"Ratio", L"0.9"));
    EXPECT_DOUBLE_EQ(ratio.value, 0.5);
    // The walk goes on past the double to the next parameter of that name.
    std::vector<IParam*> both{&ratio, &fallback};
    EXPECT_TRUE(pixmill::SetParamFromText(both, L"Ratio", L"8"));
    EXPECT_EQ(fallback.value, 8);
    EXPECT_DOUBLE_EQ(ratio.value, 0.5);
}

TEST(ParamLookup, ParamValueFallsBackOnMissingNameOrOtherType) {
    Param<int> size(L"Size", 4, 0, 9, 1);
    Param<float> gain(L"Gain", 2.0f, 0.0f, 9.0f, 1.0f);
    std::vector<IParam*> list{&size, &gain};
    EXPECT_EQ(pixmill::ParamValue<int>(list, L"Size", -1), 4);
    EXPECT_EQ(pixmill::ParamValue<int>(list, L"Gain", -1), -1);
    EXPECT_EQ(pixmill::ParamValue<int>(list, L"Nope", -1), -1);
}

}  // namespace
