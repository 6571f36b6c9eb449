// Parameters: the attributes text a recipe editor reads, and the conversion
// of document text into typed values.
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

#include "framework/Param.h"

using sorvik::Param;

namespace {

// The two-argument form exists for flags only: an int or float built that way
// would keep the value 0 and no attributes, so it must not compile.
static_assert(std::is_constructible_v<Param<bool>, const wchar_t*, bool>);
static_assert(!std::is_constructible_v<Param<int>, const wchar_t*, int>);
static_assert(!std::is_constructible_v<Param<float>, const wchar_t*, float>);
static_assert(!std::is_constructible_v<Param<std::wstring>, const wchar_t*, std::wstring>);

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

// One row: the text given to an int, float or bool parameter and what must
// come of it.
struct ConversionCase {
    const wchar_t* text;
    enum Kind { Int, Float, Bool } kind;
    double expected;  // value when no exception is expected
    enum Outcome { Set, Invalid, OutOfRange } outcome = Set;
};

class ParamConversion : public ::testing::TestWithParam<ConversionCase> {};

TEST_P(ParamConversion, SetsValueOrRaisesTheRightException) {
    const ConversionCase& c = GetParam();
    Param<int> i(L"k", 5, 0, 10, 1);
    Param<float> f(L"k", 5.0f, 0.0f, 10.0f, 1.0f);
    Param<bool> b(L"k");
    b.value = !static_cast<bool>(c.expected);  // so a no-op would show
    IParam* targets[] = {&i, &f, &b};
    std::vector<IParam*> list{targets[c.kind]};
    const auto set = [&] { return pixmill::SetParamFromText(list, L"k", c.text); };
    if (c.outcome == ConversionCase::Invalid) {
        EXPECT_THROW(set(), std::invalid_argument);
    } else if (c.outcome == ConversionCase::OutOfRange) {
        EXPECT_THROW(set(), std::out_of_range);
    } else {
        EXPECT_TRUE(set());
    }
    // Unchanged on failure, and only the target changes.
    const bool wasSet = c.outcome == ConversionCase::Set;
    EXPECT_EQ(i.value, wasSet && c.kind == ConversionCase::Int ? static_cast<int>(c.expected) : 5);
    EXPECT_FLOAT_EQ(f.value, wasSet && c.kind == ConversionCase::Float ? c.expected : 5.0);
    EXPECT_EQ(b.value, c.kind == ConversionCase::Bool && wasSet ? c.expected != 0
                                                                : !static_cast<bool>(c.expected));
}

using C = ConversionCase;
INSTANTIATE_TEST_SUITE_P(
    Cases, ParamConversion,
    ::testing::Values(C{L"12abc", C::Int, 12}, C{L"  -7", C::Int, -7},
                      C{L"300", C::Int, 300},  // beyond max: kept
                      C{L"abc", C::Int, 0, C::Invalid}, C{L"", C::Int, 0, C::Invalid},
                      C{L"99999999999", C::Int, 0, C::OutOfRange},
                      C{L"2147483648", C::Int, 0, C::OutOfRange}, C{L"1.5x", C::Float, 1.5},
                      C{L"x1.5", C::Float, 0, C::Invalid}, C{L"", C::Float, 0, C::Invalid},
                      C{L"1e99", C::Float, 0, C::OutOfRange}, C{L"TRUE", C::Bool, 1},
                      C{L"True", C::Bool, 1}, C{L"true", C::Bool, 1}, C{L"Truest", C::Bool, 1},
                      C{L"tRUE", C::Bool, 0}, C{L"tru", C::Bool, 0}, C{L"1", C::Bool, 0},
                      C{L"", C::Bool, 0}));

TEST(ParamLookup, FirstMatchWinsDoubleIsSkippedAndUnknownKeysChangeNothing) {
    Param<int> first(L"Size", 1, 0, 9, 1), second(L"Size", 2, 0, 9, 1);
    Param<double> ratio(L"Ratio", 0.5, 0.0, 1.0, 0.1);
    Param<int> ratioInt(L"Ratio", 3, 0, 9, 1);
    Param<std::wstring> path(L"Path");
    std::vector<IParam*> list{&first, &second, &ratio, &path};

    EXPECT_FALSE(pixmill::SetParamFromText(list, L"size", L"7"));     // case-sensitive
    EXPECT_FALSE(pixmill::SetParamFromText(list, L"Siz", L"7"));      // whole name
    EXPECT_FALSE(pixmill::SetParamFromText(list, L"Ratio", L"0.9"));  // never assigned
    EXPECT_DOUBLE_EQ(ratio.value, 0.5);
    EXPECT_TRUE(pixmill::SetParamFromText(list, L"Size", L"7"));
    EXPECT_EQ(first.value, 7);
    EXPECT_EQ(second.value, 2);
    EXPECT_TRUE(pixmill::SetParamFromText(list, L"Path", L"C:\\a b\\c.bmp 12"));
    EXPECT_EQ(path.value, L"C:\\a b\\c.bmp 12");
    // The walk goes on past the double to the next parameter of that name.
    std::vector<IParam*> both{&ratio, &ratioInt};
    EXPECT_TRUE(pixmill::SetParamFromText(both, L"Ratio", L"8"));
    EXPECT_EQ(ratioInt.value, 8);
    EXPECT_EQ(pixmill::ParamValue<int>(list, L"Ratio", -1), -1);  // other type: the fallback
}

}  // namespace
