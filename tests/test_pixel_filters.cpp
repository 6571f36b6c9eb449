// The elementary filters against per-pixel references and drawn scenes:
// the pixel filters, the filters that combine two streams and the histogram
// chart; their failures, and all of them inside recipes.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

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
        Case(L"InvertFilter", {}, Ramp(), Ramp([](int v) { return 255 - v; }), L"{}"),
        // .299 * 200 + .587 * 40 + .114 * 10: the first channel is red.
        Case(L"GrayScaleFilter", {{L"Threshold", L"33"}},
             cv::Mat(4, 5, CV_8UC3, cv::Scalar(200, 40, 10)),
             cv::Mat(4, 5, CV_8UC1, cv::Scalar(84)), L"{\"threshold\":33}"),
        Case(L"BlurFilter", {}, Window(1, 255), Window(3, 28)),
        Case(L"GaussianBlurFilter", {}, Window(1, 255), Window(3, 0, 3), L"\"\"", 1),
        Case(L"GaussianBlurFilter", {{L"Kernel", L"5"}, {L"Sigma", L"1"}}, Window(1, 255),
             Window(5, 0, 1), L"\"\"", 1),
        Case(L"MorphologyFilter", {}, Shapes(true), Shapes(true), L"{\"threshold\":0}"),
        Case(L"MorphologyFilter", {{L"KernelSize", L"3"}}, Shapes(true), Shapes(false),
             L"{\"threshold\":0}"),
        Case(L"CannyEdgeFilter", {}, Faint(), cv::Mat::zeros(40, 40, CV_8UC1))));

struct CropCase {
    cv::Rect request;
    const wchar_t* result;
};
class CropFilterTest : public PixmillTest, public ::testing::WithParamInterface<CropCase> {};

// The request's pixels where it covers the image and black elsewhere; the
// input unchanged when it covers none of it.
TEST_P(CropFilterTest, MatchesTheRequestOrPassesTheImage) {
    const cv::Rect k = GetParam().request, covered = k & cv::Rect(0, 0, 640, 480);
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
    EXPECT_STREQ(f->GetResult(), GetParam().result);
    const auto saved =
        platform::NativePath(L"C:/PROBERPARAM/ParaImg/PinImage/CropFilter_image.png");
    EXPECT_TRUE(SameImage(cv::imread(saved, cv::IMREAD_UNCHANGED), out[0]));
}

// Defaults, a black band of 10 columns, wholly outside, inside, past the
// right and bottom, a negative width.
INSTANTIATE_TEST_SUITE_P(
    Pixel, CropFilterTest,
    ::testing::Values(
        CropCase{{0, 0, 0, 0}, LR"({"x":"0", "y":"0", "width":"0", "height":"0"})"},
        CropCase{{-10, 0, 100, 100}, LR"({"x":"-10", "y":"0", "width":"100", "height":"100"})"},
        CropCase{{700, 10, 50, 50}, LR"({"x":"700", "y":"10", "width":"50", "height":"50"})"},
        CropCase{{20, 30, 100, 50}, LR"({"x":"20", "y":"30", "width":"100", "height":"50"})"},
        CropCase{{600, 450, 100, 100}, LR"({"x":"600", "y":"450", "width":"100", "height":"100"})"},
        CropCase{{5, 5, -3, 10}, LR"({"x":"5", "y":"5", "width":"-3", "height":"10"})"}));

TEST_F(PixelFilterTest, RefusedInputIsLoggedAndLeavesNoOutput) {
    EnableFileLog(1);
    const cv::Mat colour(8, 8, CV_8UC3, cv::Scalar(1, 2, 3)), gray(8, 8, CV_8UC1, cv::Scalar(9));
    const std::tuple<const wchar_t*, ParamList, cv::Mat> cases[] = {
        {L"ThresholdFilter", {}, colour},
        {L"GaussianBlurFilter", {{L"Kernel", L"4"}}, gray},
        {L"MorphologyFilter", {{L"KernelSize", L"100001"}}, gray},  // would exhaust memory
        {L"CropFilter", {{L"x", L"-1"}, {L"width", L"100000"}, {L"height", L"100000"}}, gray},
        {L"EnhanceFilter", {}, colour},
        {L"EnhanceFilter_AutoScale", {}, colour},
        {L"EnhanceOtsuFilter", {}, colour},
        {L"HistogramFilter", {{L"Display", L"4"}}, colour},
        {L"HistogramFilter", {}, cv::Mat()},
        {L"DrawCircleFilter", {{L"width", L"4"}}, colour},
        {L"DrawCircleFilter", {{L"width", L"4"}}, cv::Mat()},
        {L"DrawCircleFilter", {{L"width", L"-4"}}, gray}};
    for (const auto& [type, params, image] : cases) {
        auto f = Make(type);
        SetParams(*f, params);
        EXPECT_TRUE(RunPins(*f, {{1, {image}}}).empty()) << platform::ToUtf8(type);
        EXPECT_STREQ(f->GetResult(), L"\"\"");
    }
    const std::string log = ReadLog();
    EXPECT_EQ(CountOf(log, "[4] <Exception>\n"), 12);
    EXPECT_EQ(CountOf(log, "needs 8-bit one-channel images"), 3);
    EXPECT_NE(log.find("'scn' is 3"), std::string::npos) << log;  // the colour image refused
    EXPECT_FALSE(platform::FileExists(
        platform::NativePath(std::wstring(L"C:/PROBERPARAM/ParaImg/DrawCircleFilter_image.png"))));
}

// All pixel filters chained behind SourceFilter: a light square on black
// ends as its outline, cropped. HistogramFilter charts the source on a
// second end point; GrayScaleFilter, a third, fails on the gray source.
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
                   Node(L"h", L"HistogramFilter", true, {}, {{1, L"s"}}),
                   Node(L"gs", L"GrayScaleFilter", true, {}, {{1, L"s"}})},
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
    EXPECT_EQ(CountOf(ReadLog(), "[4] <Exception>\n"), 1);  // GrayScaleFilter
}

// ---------------------------------------------------------------------------
// Composition: two image streams combined
// ---------------------------------------------------------------------------

// A gray texture whose samples differ from pixel to pixel.
cv::Mat Texture(int rows, int cols, int seed) {
    cv::Mat m(rows, cols, CV_8UC1);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.at<uint8_t>(r, c) = static_cast<uint8_t>(seed + 13 * c + 29 * r);
    return m;
}

cv::Mat Bgr(const cv::Mat& gray) {
    cv::Mat out;
    cv::cvtColor(gray, out, cv::COLOR_GRAY2BGR);
    return out;
}

class CompositionFilterTest : public PixmillTest,
                              public ::testing::WithParamInterface<cv::Vec<int, 5>> {};

TEST_F(CompositionFilterTest, MaskIsPerSampleAndCutToTheCommonSize) {
    const std::vector<cv::Mat> origins{Texture(30, 40, 1), Texture(30, 40, 2), Texture(30, 40, 3)};
    const std::vector<cv::Mat> masks{Texture(30, 40, 90), Texture(20, 50, 7)};
    auto f = Make(L"ImageMaskFilter");
    const auto out = RunPins(*f, {{1, origins}, {2, masks}});
    ASSERT_EQ(out.size(), 2u);  // the shorter list decides
    for (int i = 0; i < 2; ++i) {
        const cv::Rect common(0, 0, 40, i ? 20 : 30);
        EXPECT_TRUE(SameImage(out[i], origins[i](common) & masks[i](common))) << i;
    }
    EXPECT_STREQ(f->GetResult(), L"\"\"");
}

// Alpha, x, y, width, height: the base in colour, with the over image from
// its top-left corner added to green in the region at (x, y).
TEST_P(CompositionFilterTest, OverlapAddsTheOverImageToTheGreenOfTheBase) {
    const cv::Vec<int, 5> k = GetParam();
    const std::vector<cv::Mat> bases{Texture(30, 40, 5), Texture(30, 40, 6), Texture(30, 40, 8)};
    const std::vector<cv::Mat> overs{Texture(12, 16, 50), Texture(40, 50, 60)};
    auto f = Make(L"ImageOverlapFilter");
    ParamList params;
    for (const wchar_t* name : {L"Alpha", L"x", L"y", L"width", L"height"})
        params.push_back({name, Num(k[static_cast<int>(params.size())])});
    SetParams(*f, params);
    const auto out = RunPins(*f, {{1, bases}, {2, overs}});
    ASSERT_EQ(out.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        cv::Mat expected = Bgr(bases[i]);
        const int w = std::min(k[3] > 0 ? k[3] : 99, overs[i].cols),
                  h = std::min(k[4] > 0 ? k[4] : 99, overs[i].rows);
        for (int r = std::max(0, k[2]); r < std::min(30, k[2] + h); ++r)
            for (int c = std::max(0, k[1]); c < std::min(40, k[1] + w); ++c)
                expected.at<cv::Vec3b>(r, c)[1] = cv::saturate_cast<uint8_t>(
                    bases[i].at<uint8_t>(r, c) +
                    overs[i].at<uint8_t>(r - k[2], c - k[1]) * k[0] / 100.0);
        EXPECT_LE(cv::norm(out[i], expected, cv::NORM_INF), 0) << i;  // same size and type too
    }
}

INSTANTIATE_TEST_SUITE_P(
    Composition, CompositionFilterTest,
    ::testing::Values(cv::Vec<int, 5>(0, 3, 2, 0, 0), cv::Vec<int, 5>(50, 5, 4, 0, 0),
                      cv::Vec<int, 5>(30, 30, 25, 0, 0),    // past the corner
                      cv::Vec<int, 5>(100, -3, -2, 10, 8),  // from outside, bounded
                      cv::Vec<int, 5>(50, 100, 0, 5, 5)));  // misses the base

TEST_F(CompositionFilterTest, SideBySideGivesEachPairACanvasForTheLargest) {
    const cv::Mat gray = Texture(10, 20, 3), small = Texture(4, 6, 9);
    cv::Mat colour(12, 15, CV_8UC3, cv::Scalar(10, 100, 200));
    cv::circle(colour, {7, 6}, 4, cv::Scalar(250, 0, 30), -1);
    for (bool topBottom : {false, true}) {
        auto f = Make(L"SideBySideFilter");
        SetParams(*f, {{L"T/B", topBottom ? L"true" : L"false"}});
        const auto out = RunPins(*f, {{1, {gray, small, gray}}, {2, {colour, colour}}});
        ASSERT_EQ(out.size(), 3u);  // the longer list decides; the last has no right image
        const cv::Point second = topBottom ? cv::Point(0, 10) : cv::Point(20, 0);
        for (int i = 0; i < 3; ++i) {
            cv::Mat expected =
                cv::Mat::zeros(topBottom ? cv::Size(20, 22) : cv::Size(35, 12), CV_8UC3);
            const cv::Mat& left = i == 1 ? small : gray;
            Bgr(left).copyTo(expected(cv::Rect({0, 0}, left.size())));
            if (i < 2) colour.copyTo(expected(cv::Rect(second, colour.size())));
            EXPECT_TRUE(SameImage(out[i], expected)) << i << " " << topBottom;
        }
    }
}

// A pair that cannot be combined ends the pairing without a log line; the
// outputs made before it are delivered.
TEST_F(CompositionFilterTest, FailedPairsStopSilentlyAndKeepEarlierOutputs) {
    EnableFileLog(1);
    const cv::Mat gray = Texture(8, 8, 1), colour(8, 8, CV_8UC3, cv::Scalar::all(1)),
                  deep(8, 8, CV_16UC1, cv::Scalar(1));
    const std::tuple<const wchar_t*, std::vector<cv::Mat>, std::vector<cv::Mat>, size_t> cases[] = {
        {L"ImageOverlapFilter", {gray}, {colour}, 0},
        {L"ImageMaskFilter", {gray, colour, gray}, {gray, gray, gray}, 1},
        {L"ImageOverlapFilter", {gray, gray}, {gray, deep}, 1},
        {L"SideBySideFilter", {gray, deep}, {gray}, 1}};
    for (const auto& [type, first, second, outputs] : cases) {
        auto f = Make(type);
        EXPECT_EQ(RunPins(*f, {{1, first}, {2, second}}).size(), outputs) << platform::ToUtf8(type);
        EXPECT_STREQ(f->GetResult(), L"\"\"");
    }
    EXPECT_EQ(ReadLog().find("Exception"), std::string::npos);
}

// Two sources into all three filters: the first image beside its overlay,
// at full strength, with the mask of both.
TEST_F(CompositionFilterTest, AllThreeInsideARecipe) {
    cv::Mat a = Texture(6, 8, 11), b = Texture(6, 8, 77), overlay = Bgr(a), green, expected;
    std::vector<cv::Mat> out;
    const std::wstring result = RunRecipe(
        {Source(L"a", 1), Source(L"b", 2),
         Node(L"m", L"ImageMaskFilter", false, {}, {{1, L"a"}, {2, L"b"}}),
         Node(L"o", L"ImageOverlapFilter", false, {{L"Alpha", L"100"}}, {{1, L"a"}, {2, L"m"}}),
         Node(L"s", L"SideBySideFilter", true, {}, {{1, L"a"}, {2, L"o"}})},
        {{&a, 1}, {&b, 2}}, out);
    ASSERT_EQ(out.size(), 1u);
    cv::add(a, a & b, green);  // saturating
    cv::insertChannel(green, overlay, 1);
    cv::hconcat(Bgr(a), overlay, expected);
    EXPECT_TRUE(SameImage(out[0], expected));
    EXPECT_NE(result.find(L"\"Key\":\"s\",\"Result\":\"\"}"), std::wstring::npos);
}

// ---------------------------------------------------------------------------
// HistogramFilter: the measures read back from the bars of its chart
// ---------------------------------------------------------------------------

// 20 by 10 images: all 255 (nothing in the histogram), all 100, half 10 and
// half 30 (mean 20, variance 200 * 100 / 199); then 30, 10 in two pixels.
std::vector<cv::Mat> Scenes() {
    cv::Mat half(10, 20, CV_8UC1, cv::Scalar(10));
    half(cv::Rect(0, 0, 10, 10)).setTo(30);
    return {cv::Mat(10, 20, CV_8UC1, cv::Scalar(255)), cv::Mat(10, 20, CV_8UC1, cv::Scalar(100)),
            half, half(cv::Rect(9, 0, 2, 1))};
}

// The chart for two lists of values: a band of 4 rows per value, white bars
// for the first list and gray 100 bars over them for the second. Each list
// is scaled so that its largest magnitude spans `ratio`; bars of 0 or less
// are not drawn.
cv::Mat Chart(int ratio, const std::vector<double>& first, const std::vector<double>& second) {
    cv::Mat chart = cv::Mat::zeros(static_cast<int>(4 * first.size() + 8), ratio, CV_8UC1);
    for (const auto& [values, gray] : {std::pair{&first, 255}, std::pair{&second, 100}}) {
        double span = 0;
        for (double v : *values) span = std::max(span, std::fabs(v));
        for (size_t i = 0; i < values->size(); ++i) {
            const int length = static_cast<int>(std::lround((*values)[i] * ratio / span));
            if (length > 0) chart(cv::Rect(0, static_cast<int>(4 * i + 1), length, 2)).setTo(gray);
        }
    }
    return chart;
}

struct MeasureCase {
    int display, ratio;
    std::vector<double> first, second;
};
class HistogramFilterTest : public PixmillTest,
                            public ::testing::WithParamInterface<MeasureCase> {};

TEST_P(HistogramFilterTest, BarsShowTheMeasureOfEachImage) {
    const MeasureCase& k = GetParam();
    auto f = Make(L"HistogramFilter");
    SetParams(*f, {{L"Display", Num(k.display)}, {L"Ratio", Num(k.ratio)}});
    const auto out = RunPins(*f, {{1, Scenes()}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(out[0], Chart(k.ratio, k.first, k.second)));
    EXPECT_STREQ(f->GetResult(), L"{}");
}

// Mean and variance (also for an unknown Display), lowest and highest level
// (255 and 0 for the all-white image), range.
INSTANTIATE_TEST_SUITE_P(
    Histogram, HistogramFilterTest,
    ::testing::Values(MeasureCase{1, 100, {0, 100, 20, 20}, {0, 0, 20000.0 / 199, 200}},
                      MeasureCase{7, 10, {0, 100, 20, 20}, {0, 0, 20000.0 / 199, 200}},
                      MeasureCase{2, 100, {255, 100, 10, 10}, {0, 100, 30, 30}},
                      MeasureCase{3, 256, {-255, 0, 20, 20}, {}}));

// Checkerboards: the same detail on two mean levels measures the same, half
// the contrast measures less.
TEST_F(HistogramFilterTest, SpectralMeasureIgnoresTheMeanLevelAndFollowsDetail) {
    auto checker = [](int low, int high) {
        cv::Mat m(16, 16, CV_8UC1);
        for (int r = 0; r < 16; ++r)
            for (int c = 0; c < 16; ++c)
                m.at<uint8_t>(r, c) = static_cast<uint8_t>((r + c) % 2 ? high : low);
        return m;
    };
    auto f = Make(L"HistogramFilter");
    SetParams(*f, {{L"Display", L"4"}});
    const auto out = RunPins(*f, {{1, {checker(0, 200), checker(50, 250), checker(0, 100)}}});
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].size(), cv::Size(100, 20));
    EXPECT_EQ(cv::countNonZero(out[0].row(1)), 100);
    EXPECT_EQ(cv::countNonZero(out[0].row(5)), 100);
    EXPECT_GT(cv::countNonZero(out[0].row(9)), 50);
    EXPECT_LT(cv::countNonZero(out[0].row(9)), 100);
}

TEST_F(HistogramFilterTest, OnePixelImageFirstCostsOnlyItsOwnVarianceBar) {
    // A one-pixel image has no variance (0 / 0); standing first in the list
    // it must not blank the variance bars of the images after it.
    const std::vector<cv::Mat> scenes = Scenes();
    auto f = Make(L"HistogramFilter");
    SetParams(*f, {{L"Display", L"1"}});
    const auto out = RunPins(*f, {{1, {cv::Mat(1, 1, CV_8UC1, cv::Scalar(50)), scenes[2], scenes[3]}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(out[0], Chart(100, {50, 20, 20}, {0, 20000.0 / 199, 200})));
}

TEST_F(HistogramFilterTest, NoImagesNoChart) {
    auto f = Make(L"HistogramFilter");
    EXPECT_TRUE(RunPins(*f, {{1, {}}}).empty());
    EXPECT_STREQ(f->GetResult(), L"{}");
}

}  // namespace
}  // namespace pixmill::test
