// The pixel filters against per-pixel references and drawn scenes, their
// failures and declarations, and all of them chained in a recipe.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// "IN_In:1 OUT_Out:-1 | Threshold=127,0,255,1 Invert:bool": pins, then int
// parameters of the numeric form with value, min, max and step, the others
// with their type.
std::wstring Signature(IFilter& filter) {
    std::wostringstream s;
    for (IPin* p : filter.GetPins())
        s << (p->IsOutput() ? L"OUT_" : L"IN_") << p->GetName() << L':' << p->GetKey() << L' ';
    s << L'|';
    for (IParam* p : filter.GetParams()) {
        s << L' ' << p->GetName();
        auto* n = dynamic_cast<sorvik::Param<int>*>(p);
        if (n && *p->GetAttributes())
            s << L'=' << n->value << L',' << n->min << L',' << n->max << L',' << n->step;
        if (!n || !*p->GetAttributes()) s << L':' << p->GetTypeName();
    }
    return s.str();
}

// Every level along a row, shifted from row to row; each level replaced by
// `level(v)` when given.
cv::Mat Ramp(int (*level)(int) = nullptr) {
    cv::Mat m(3, 256, CV_8UC1);
    for (int i = 0; i < 3 * 256; ++i) m.data[i] = static_cast<uint8_t>(i % 256 + 7 * (i / 256));
    if (level)
        for (int i = 0; i < 3 * 256; ++i) m.data[i] = static_cast<uint8_t>(level(m.data[i]));
    return m;
}

// A k by k square around (10, 10) in a black 21 by 21 image, filled with
// `value`, or with the product of two sampled Gaussians of `sigma` totalling
// 255: the spread of a single white dot.
cv::Mat Window(int k, int value, double sigma = 0) {
    cv::Mat m = cv::Mat::zeros(21, 21, CV_8UC1), g(k, 1, CV_64F);
    m(cv::Rect(10 - k / 2, 10 - k / 2, k, k)).setTo(value);
    if (sigma == 0) return m;
    for (int i = 0; i < k; ++i)
        g.at<double>(i) = std::exp(-(i - k / 2) * (i - k / 2) / (2 * sigma * sigma));
    g /= cv::sum(g)[0];
    cv::Mat(255 * g * g.t()).convertTo(m(cv::Rect(10 - k / 2, 10 - k / 2, k, k)), CV_8U);
    return m;
}

// A rectangle touching the border; with a one-pixel hole and a 2 by 2 speck
// when `noisy`.
cv::Mat Shapes(bool noisy) {
    cv::Mat m = cv::Mat::zeros(40, 50, CV_8UC1);
    cv::rectangle(m, cv::Rect(0, 5, 30, 20), cv::Scalar(255), -1);
    if (noisy) m.at<uint8_t>(10, 10) = 0, m(cv::Rect(40, 30, 2, 2)).setTo(255);
    return m;
}

// A faint rectangle: gradients up to 96, below MaxThreshold's default.
cv::Mat Faint() {
    cv::Mat m = cv::Mat::zeros(40, 40, CV_8UC1);
    cv::rectangle(m, cv::Rect(10, 12, 20, 16), cv::Scalar(12), -1);
    return m;
}

struct ImageCase {
    const wchar_t* type;
    ParamList params;
    cv::Mat in, expected;
    double tolerance;
    const wchar_t* result;
};
class PixelFilterTest : public PixmillTest, public ::testing::WithParamInterface<ImageCase> {};

TEST_P(PixelFilterTest, EachImageGivesTheExpectedImage) {
    const ImageCase& k = GetParam();
    auto f = Make(k.type);
    SetParams(*f, k.params);
    const auto out = RunPins(*f, {{1, {k.in, k.in}}});
    ASSERT_EQ(out.size(), 2u);
    for (const cv::Mat& m : out) {
        ASSERT_EQ(m.size(), k.expected.size());
        ASSERT_EQ(m.type(), k.expected.type());
        EXPECT_LE(cv::norm(m, k.expected, cv::NORM_INF), k.tolerance);
    }
    EXPECT_STREQ(f->GetResult(), k.result);
}

ImageCase Case(const wchar_t* type, ParamList params, cv::Mat in, cv::Mat expected,
               const wchar_t* result = L"\"\"", double tolerance = 0) {
    return {type, std::move(params), in, expected, tolerance, result};
}

INSTANTIATE_TEST_SUITE_P(
    Pixel, PixelFilterTest,
    ::testing::Values(
        Case(L"ThresholdFilter", {}, Ramp(), Ramp([](int v) { return v > 127 ? 255 : 0; }),
             L"{\"threshold\":127}"),
        Case(L"ThresholdFilter", {{L"Threshold", L"200"}, {L"Invert", L"true"}}, Ramp(),
             Ramp([](int v) { return v <= 200 ? 255 : 0; }), L"{\"threshold\":200}"),
        Case(L"ThresholdFilter", {{L"Threshold", L"0"}}, Ramp(),
             Ramp([](int v) { return v > 0 ? 255 : 0; }), L"{\"threshold\":0}"),
        Case(L"InvertFilter", {}, Ramp(), Ramp([](int v) { return 255 - v; }), L"{}"),
        // .299 * 200 + .587 * 40 + .114 * 10: the first channel is red.
        Case(L"GrayScaleFilter", {{L"Threshold", L"33"}},
             cv::Mat(4, 5, CV_8UC3, cv::Scalar(200, 40, 10)),
             cv::Mat(4, 5, CV_8UC1, cv::Scalar(84)), L"{\"threshold\":33}"),
        Case(L"BlurFilter", {}, Window(1, 255), Window(3, 28)),
        Case(L"BlurFilter", {{L"Kernel", L"5"}}, Window(1, 255), Window(5, 10)),
        Case(L"GaussianBlurFilter", {}, Window(1, 255), Window(3, 0, 3), L"\"\"", 1),
        Case(L"GaussianBlurFilter", {{L"Kernel", L"5"}, {L"Sigma", L"1"}}, Window(1, 255),
             Window(5, 0, 1), L"\"\"", 1),
        Case(L"MorphologyFilter", {}, Shapes(true), Shapes(true), L"{\"threshold\":0}"),
        Case(L"MorphologyFilter", {{L"KernelSize", L"3"}}, Shapes(true), Shapes(false),
             L"{\"threshold\":0}"),
        Case(L"CannyEdgeFilter", {}, Faint(), cv::Mat::zeros(40, 40, CV_8UC1))));

TEST_F(PixelFilterTest, CannyTracesTheOutlineAboveLowerThresholds) {
    auto f = Make(L"CannyEdgeFilter");
    SetParams(*f, {{L"MinThreshold", L"10"}, {L"MaxThreshold", L"30"}});
    const auto out = RunPins(*f, {{1, {Faint()}}});
    ASSERT_EQ(out.size(), 1u);
    cv::Mat ring = cv::Mat::zeros(40, 40, CV_8UC1);
    cv::rectangle(ring, cv::Rect(9, 11, 22, 18), cv::Scalar(255), 3);
    EXPECT_GT(cv::countNonZero(out[0]), 60);
    EXPECT_EQ(cv::countNonZero(out[0] & ~ring), 0);
}

class CropFilterTest : public PixmillTest, public ::testing::WithParamInterface<cv::Rect> {};

// The request's pixels where it covers the image and black elsewhere; the
// input unchanged when it covers none of it.
TEST_P(CropFilterTest, MatchesTheRequestOrPassesTheImage) {
    const cv::Rect k = GetParam(), covered = k & cv::Rect(0, 0, 640, 480);
    cv::Mat in(480, 640, CV_8UC1), expected = in;
    cv::randu(in, 1, 256);
    auto f = Make(L"CropFilter");
    SetParams(
        *f,
        {{L"x", Num(k.x)}, {L"y", Num(k.y)}, {L"width", Num(k.width)}, {L"height", Num(k.height)}});
    const auto out = RunPins(*f, {{1, {in}}});
    ASSERT_EQ(out.size(), 1u);
    if (!covered.empty()) {
        expected = cv::Mat::zeros(k.size(), CV_8UC1);
        in(covered).copyTo(expected(covered - k.tl()));
    }
    EXPECT_TRUE(SameImage(out[0], expected));
    wchar_t text[160];
    std::swprintf(text, 160, L"{\"x\":\"%d\", \"y\":\"%d\", \"width\":\"%d\", \"height\":\"%d\"}",
                  k.x, k.y, k.width, k.height);
    EXPECT_STREQ(f->GetResult(), text);
    const auto saved =
        platform::NativePath(L"C:/PROBERPARAM/ParaImg/PinImage/CropFilter_image.png");
    EXPECT_TRUE(SameImage(cv::imread(saved, cv::IMREAD_UNCHANGED), out[0]));
}

// Defaults, a black band of 10 columns, wholly outside, inside, past the
// right and bottom, a negative width.
INSTANTIATE_TEST_SUITE_P(Pixel, CropFilterTest,
                         ::testing::Values(cv::Rect(0, 0, 0, 0), cv::Rect(-10, 0, 100, 100),
                                           cv::Rect(700, 10, 50, 50), cv::Rect(20, 30, 100, 50),
                                           cv::Rect(600, 450, 100, 100), cv::Rect(5, 5, -3, 10)));

TEST_F(PixelFilterTest, RefusedInputIsLoggedAndLeavesNoOutput) {
    EnableFileLog(1);
    const cv::Mat colour(8, 8, CV_8UC3, cv::Scalar(1, 2, 3)), gray(8, 8, CV_8UC1, cv::Scalar(9));
    const std::tuple<const wchar_t*, ParamList, cv::Mat> cases[] = {
        {L"ThresholdFilter", {}, colour},
        {L"GaussianBlurFilter", {{L"Kernel", L"4"}}, gray},
        {L"MorphologyFilter", {{L"KernelSize", L"100001"}}, gray},  // would exhaust memory
        {L"CropFilter", {{L"x", L"-1"}, {L"width", L"100000"}, {L"height", L"100000"}}, gray}};
    for (const auto& [type, params, image] : cases) {
        auto f = Make(type);
        SetParams(*f, params);
        EXPECT_TRUE(RunPins(*f, {{1, {image}}}).empty()) << platform::ToUtf8(type);
        EXPECT_STREQ(f->GetResult(), L"\"\"");
    }
    const std::string log = ReadLog();
    EXPECT_EQ(CountOf(log, "[4] <Exception>\n"), 4);
    EXPECT_NE(log.find("] BinaryFilter\n"), std::string::npos);
    EXPECT_NE(log.find("'scn' is 3"), std::string::npos) << log;  // the colour image refused
}

TEST_F(PixelFilterTest, DeclaredPinsAndParameters) {
    EXPECT_NE(
        FilterRegistry::Instance().Describe().find(
            LR"({"Name":"ThresholdFilter","Pin":[{ "Name":"IN_In", "Key":1},{ "Name":"OUT_Out", "Key":-1},], "Param":[{ "Name":"Threshold","Type":"int","Attributes":[{"Name":"value","Value":"127"},{"Name":"default","Value":"127"},{"Name":"min","Value":"0"},{"Name":"max","Value":"255"},{"Name":"step","Value":"1"},]}, { "Name":"Invert","Type":"bool"}, ]},)"),
        std::wstring::npos);
    const std::wstring io = L"IN_In:1 OUT_Out:-1 |";
    const std::pair<const wchar_t*, std::wstring> expected[] = {
        {L"GrayScaleFilter", io + L" Threshold=127,0,255,1 Invert:bool"},
        {L"BlurFilter", io + L" Kernel=3,3,9,2"},
        {L"GaussianBlurFilter", io + L" Kernel=3,3,9,2 Sigma=3,0,9,1"},
        {L"CannyEdgeFilter", io + L" MinThreshold=50,0,255,1 MaxThreshold=100,0,255,1"},
        {L"MorphologyFilter", io + L" KernelSize=1,1,9,2"},
        {L"InvertFilter", io},
        {L"CropFilter", io + L" x=0,0,960,1 y=0,0,960,1 width=0,0,960,1 height=0,0,960,1"},
        {L"ImageMaskFilter", L"IN_origin:1 IN_mask:2 OUT_Out:-1 |"},
        {L"ImageOverlapFilter",
         L"IN_base:1 IN_over:2 OUT_Out:-1 | Alpha=50,0,100,1 x:int y:int width:int height:int"},
        {L"SideBySideFilter", L"IN_left:1 IN_right:2 OUT_Out:-1 | T/B:bool"},
        {L"HistogramFilter", io + L" ID=1,1,1,1 Display=1,1,4,1 Ratio=100,10,256,1"}};
    for (const auto& [type, signature] : expected) EXPECT_EQ(Signature(*Make(type)), signature);
}

// All pixel filters chained behind SourceFilter: a light square on black
// ends as its outline, cropped. HistogramFilter charts the source on a
// second end point. GrayScaleFilter fails on the gray source.
TEST_F(PixelFilterTest, ChainInsideARecipe) {
    EnableFileLog(1);
    cv::Mat scene = cv::Mat::zeros(60, 80, CV_8UC1);
    cv::rectangle(scene, cv::Rect(20, 10, 30, 30), cv::Scalar(200), -1);
    std::vector<cv::Mat> out;
    const std::string result = platform::ToUtf8(
        RunRecipe({Source(L"s", 1), Node(L"b", L"BlurFilter", false, {}, {{1, L"s"}}),
                   Node(L"g", L"GaussianBlurFilter", false, {}, {{1, L"b"}}),
                   Node(L"t", L"ThresholdFilter", false, {}, {{1, L"g"}}),
                   Node(L"m", L"MorphologyFilter", false, {{L"KernelSize", L"3"}}, {{1, L"t"}}),
                   Node(L"i", L"InvertFilter", false, {}, {{1, L"m"}}),
                   Node(L"c", L"CannyEdgeFilter", false, {}, {{1, L"i"}}),
                   Node(L"k", L"CropFilter", true,
                        {{L"x", L"10"}, {L"width", L"60"}, {L"height", L"60"}}, {{1, L"c"}}),
                   Node(L"h", L"HistogramFilter", true, {}, {{1, L"s"}})},
                  {{&scene, 1}}, out));
    ASSERT_EQ(out.size(), 2u);
    ASSERT_EQ(out[0].size(), cv::Size(60, 60));
    cv::Mat chart = cv::Mat::zeros(12, 100, CV_8UC1);  // one mean bar under one variance bar
    chart.rowRange(1, 3).setTo(100);
    EXPECT_TRUE(SameImage(out[1], chart));
    cv::Mat ring = cv::Mat::zeros(60, 60, CV_8UC1);
    cv::rectangle(ring, cv::Rect(8, 8, 34, 34), cv::Scalar(255), 5);  // the outline, moved by x
    EXPECT_GT(cv::countNonZero(out[0]), 100);
    EXPECT_EQ(cv::countNonZero(out[0] & ~ring), 0);
    for (const char* entry :
         {R"("k","Result":{"x":"10", "y":"0", "width":"60", "height":"60"}})",
          R"("t","Result":{"threshold":127}})", R"("i","Result":{}})", R"("b","Result":""})"})
        EXPECT_NE(result.find(entry), std::string::npos) << entry << "\n" << result;

    out.clear();
    const std::wstring failed =
        RunRecipe({Source(L"s", 1), Node(L"gs", L"GrayScaleFilter", true, {}, {{1, L"s"}})},
                  {{&scene, 1}}, out);
    EXPECT_TRUE(out.empty());
    EXPECT_NE(failed.find(L"\"gs\",\"Result\":\"\"}"), std::wstring::npos);
    EXPECT_EQ(CountOf(ReadLog(), "[4] <Exception>\n"), 1);
}

}  // namespace
}  // namespace pixmill::test
