// The focus and brightness filters and the canned focus exports, on drawn
// wafer scenes with a known truth: the frame in focus, the sharp quadrant,
// the background level under the marks.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <regex>

#include "FilterHarness.h"
#include "Filters/LCTGetBrightFilter.h"
#include "Filters/MultiPeakFocusMeasureFilter.h"
#include "Filters/TenengradFocusFilter.h"
#include "TestSupport.h"
#include "api/FocusMeasures.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

using filters::GradientHistogram;

// Streets, pads with text-like marks and a fine texture.
cv::Mat Scene(int width, int height, uint64_t seed) {
    cv::Mat m(height, width, CV_8UC1, cv::Scalar(110));
    for (int x = 0; x < width; x += 80) cv::rectangle(m, cv::Rect(x, 0, 8, height), 40, cv::FILLED);
    for (int y = 0; y < height; y += 80) cv::rectangle(m, cv::Rect(0, y, width, 8), 40, cv::FILLED);
    for (int y = 0; y < height; y += 80)
        for (int x = 0; x < width; x += 80) {
            cv::rectangle(m, cv::Rect(x + 16, y + 16, 24, 18), 200, cv::FILLED);
            cv::putText(m, "A7", cv::Point(x + 14, y + 66), cv::FONT_HERSHEY_PLAIN, 1.0, 230);
        }
    cv::Mat texture(height, width, CV_8UC1);
    cv::RNG(seed).fill(texture, cv::RNG::UNIFORM, 0, 20);
    return m + texture;
}

cv::Mat Blurred(const cv::Mat& m, double sigma) {
    if (sigma <= 0) return m.clone();
    cv::Mat out;
    cv::GaussianBlur(m, out, cv::Size(0, 0), sigma);
    return out;
}

cv::Mat WithNoise(const cv::Mat& m, double sd, uint64_t seed) {
    cv::Mat noise(m.size(), CV_16SC1);
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0, sd);
    cv::Mat out;
    cv::Mat wide;
    m.convertTo(wide, CV_16SC1);
    cv::Mat(wide + noise).convertTo(out, CV_8UC1);
    return out;
}

// n frames of the scene, sharp at frame k0 and blurred by `step` more per
// frame of distance from it, with camera noise.
std::vector<cv::Mat> FocusSeries(const cv::Mat& scene, int n, int k0, double step, double noise) {
    std::vector<cv::Mat> frames;
    for (int k = 0; k < n; ++k)
        frames.push_back(WithNoise(Blurred(scene, step * std::abs(k - k0)), noise, 100 + k));
    return frames;
}

std::vector<cv::Mat> Gradients(const std::vector<cv::Mat>& frames) {
    std::vector<cv::Mat> g;
    for (const cv::Mat& f : frames) g.push_back(filters::FocusGradient(f));
    return g;
}

int RunExport(const std::vector<cv::Mat>& frames, std::wstring& text) {
    void* buffer = ImageBufferCreate();
    for (const cv::Mat& f : frames)
        ImageBufferAdd(buffer, 1, f.data, static_cast<int>(f.total() * f.channels()), f.cols, f.rows);
    std::vector<wchar_t> result(8192, L'#');
    const int index = MultiPeakFocusMeasureF(buffer, result.data(), 8192 * sizeof(wchar_t));
    text = result.data();
    EXPECT_EQ(ImageBufferRelease(buffer), 0);
    return index;
}

class FocusTest : public PixmillTest {};

// ---- MultiPeakFocusMeasureF and its filter --------------------------------

struct SeriesCase {
    int n, k0;
    double step, noise;
};

class FocusSeriesTest : public FocusTest, public ::testing::WithParamInterface<SeriesCase> {};

TEST_P(FocusSeriesTest, ExportFindsTheFrameInFocusThroughAnImageBuffer) {
    const SeriesCase c = GetParam();
    const std::vector<cv::Mat> frames = FocusSeries(Scene(320, 240, 7), c.n, c.k0, c.step, c.noise);
    std::wstring text;
    EXPECT_EQ(RunExport(frames, text), c.k0);
    EXPECT_NE(text.find(L"\"FocusIndex\":\"" + std::to_wstring(c.k0) + L"\""), std::wstring::npos);
    EXPECT_NE(text.find(L"{\"Num\":\"" + std::to_wstring(c.n) + L"\", \"FocusValue\":\""),
              std::wstring::npos);
}

INSTANTIATE_TEST_SUITE_P(Series, FocusSeriesTest,
                         ::testing::Values(SeriesCase{9, 4, 0.8, 3.0}, SeriesCase{7, 0, 0.6, 4.0},
                                           SeriesCase{10, 9, 0.5, 2.0}, SeriesCase{5, 2, 0.4, 6.0}));

TEST_F(FocusTest, TwoPlanesInFocusAtDifferentFramesEachRateAboveTheirNeighbours) {
    const cv::Mat scene = Scene(320, 240, 3);
    const int a = 2, b = 6;
    // Blur growing by 1.5 per frame: below about 1 per frame, a mildly
    // blurred edge keeps its gradient sum inside the union mask, and the
    // neighbours of a plane's frame rate as high as the frame itself.
    const double kStep = 1.5;
    std::vector<cv::Mat> frames;
    for (int k = 0; k < 9; ++k) {
        cv::Mat f = Blurred(scene, kStep * std::abs(k - a));
        Blurred(scene, kStep * std::abs(k - b)).colRange(160, 320).copyTo(f.colRange(160, 320));
        frames.push_back(WithNoise(f, 3.0, 40 + k));
    }
    const filters::MultiPeakFocus focus = filters::RateFocusSeries(Gradients(frames), 0);
    ASSERT_EQ(focus.values.size(), 9u);
    for (int k : {a, b}) {
        EXPECT_GT(focus.values[k], focus.values[k - 1]) << "frame " << k;
        EXPECT_GT(focus.values[k], focus.values[k + 1]) << "frame " << k;
    }
}

TEST_F(FocusTest, GradientLevelFollowsTheDescentFromThePeak) {
    // A peak at 20, a steep fall to a floor of 100 at 60: the six steep
    // steps are made, and the walk ends where the floor flattens the slope.
    GradientHistogram h{};
    for (int i = 0; i < 256; ++i)
        h[i] = i <= 20 ? 1000.0 + i : i <= 60 ? 100.0 + 920.0 * (60 - i) / 40.0 : 100.0;
    EXPECT_EQ(filters::GradientLevel(h, 1), 20);
    EXPECT_EQ(filters::GradientLevel(h, 0), (20 + 60) / 2);
    // No steep descent: the tail is 0 and the midpoint is half the peak.
    GradientHistogram gentle{};
    for (int i = 0; i < 256; ++i) gentle[i] = 300.0 - i;
    gentle[31] = 400.0;
    EXPECT_EQ(filters::GradientLevel(gentle, 0), 15);
    EXPECT_EQ(filters::GradientLevel(gentle, 7), 31);
}

TEST_F(FocusTest, FlatSeriesHasNoFocusIndexAndOutputsNothing) {
    auto filter = Make(L"MultiPeakFocusMeasureFilter");
    std::vector<cv::Mat> flat(3, cv::Mat(20, 30, CV_8UC1, cv::Scalar(90)));
    EXPECT_TRUE(RunPins(*filter, {{1, flat}}).empty());
    EXPECT_EQ(std::wstring(filter->GetResult()),
              L"{ \"FocusIndex\":\"-1\",\"Values\":[{\"Num\":\"1\", \"FocusValue\":\"0.0\"},"
              L"{\"Num\":\"2\", \"FocusValue\":\"0.0\"},{\"Num\":\"3\", \"FocusValue\":\"0.0\"}]}");
    std::wstring text;
    EXPECT_EQ(RunExport(flat, text), 0);  // -1 has no digit to read
    EXPECT_NE(text.find(L"\"FocusIndex\":\"-1\""), std::wstring::npos);
}

TEST_F(FocusTest, OutputIsTheFrameInFocusOrAChartWithOneBarPerValue) {
    const std::vector<cv::Mat> frames = FocusSeries(Scene(160, 120, 1), 4, 1, 1.0, 2.0);
    auto filter = Make(L"MultiPeakFocusMeasureFilter");
    std::vector<cv::Mat> out = RunPins(*filter, {{1, frames}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(out[0], frames[1]));

    SetParams(*filter, {{L"Image Result", L"true"}});
    out = RunPins(*filter, {{1, frames}});
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].size(), cv::Size(100, 4 * 4 + 8));
    for (int i = 0; i < 4; ++i) {
        const int length = cv::countNonZero(out[0].row(4 + 4 * i + 1));
        EXPECT_GT(length, 0) << "bar " << i;
        EXPECT_EQ(length == 100, i == 1) << "the frame in focus has the full bar";
        EXPECT_EQ(cv::countNonZero(out[0].row(4 + 4 * i + 3)), 0);
    }
}

TEST_F(FocusTest, SmallOddAndMixedSeriesHaveDefinedResults) {
    auto filter = Make(L"MultiPeakFocusMeasureFilter");
    // One frame with edges is its own focus.
    const std::vector<cv::Mat> one = FocusSeries(Scene(64, 48, 2), 1, 0, 0, 2.0);
    EXPECT_EQ(RunPins(*filter, {{1, one}}).size(), 1u);
    EXPECT_EQ(std::wstring(filter->GetResult()).rfind(L"{ \"FocusIndex\":\"0\"", 0), 0u);
    // One-pixel frames have no gradient.
    auto tiny = Make(L"MultiPeakFocusMeasureFilter");
    EXPECT_TRUE(RunPins(*tiny, {{1, {cv::Mat(1, 1, CV_8UC1, cv::Scalar(9)), cv::Mat(1, 1, CV_8UC1, cv::Scalar(250))}}}).empty());
    EXPECT_EQ(std::wstring(tiny->GetResult()).rfind(L"{ \"FocusIndex\":\"-1\"", 0), 0u);
    // A series of mixed sizes is refused: no result, no output.
    auto mixed = Make(L"MultiPeakFocusMeasureFilter");
    EXPECT_TRUE(RunPins(*mixed, {{1, {Scene(64, 48, 1), Scene(48, 64, 1)}}}).empty());
    EXPECT_EQ(std::wstring(mixed->GetResult()), L"\"\"");
    std::wstring text;
    EXPECT_EQ(RunExport({Scene(64, 48, 1), Scene(48, 64, 1)}, text), 0);
    EXPECT_NE(text.find(L"\"Result\":\"\""), std::wstring::npos);
}

TEST_F(FocusTest, ExportRefusesDeadHandlesAndBoundsTheResultCopy) {
    wchar_t text[8] = L"keep";
    EXPECT_EQ(MultiPeakFocusMeasureF(nullptr, text, sizeof text), -1);
    void* buffer = ImageBufferCreate();
    ASSERT_EQ(ImageBufferRelease(buffer), 0);
    EXPECT_EQ(MultiPeakFocusMeasureF(buffer, text, sizeof text), -1);
    EXPECT_EQ(std::wstring(text), L"keep");

    // An empty buffer runs the recipe to a result without the index.
    buffer = ImageBufferCreate();
    EXPECT_EQ(MultiPeakFocusMeasureF(buffer, text, sizeof text), 0);
    EXPECT_EQ(std::wstring(text), L"{ \"Coun");
    EXPECT_EQ(ImageBufferRelease(buffer), 0);

    struct CopyCase {
        int bytes;
        std::wstring expected;
    };
    for (const CopyCase& c : {CopyCase{0, L"####"}, CopyCase{3, L"####"},
                              CopyCase{static_cast<int>(sizeof(wchar_t)), L""},
                              CopyCase{3 * static_cast<int>(sizeof(wchar_t)) + 1, L"ab"},
                              CopyCase{100, L"abc"}}) {
        wchar_t out[5] = L"####";
        api::CopyTerminated(L"abc", out, c.bytes);
        EXPECT_EQ(std::wstring(out), c.expected) << c.bytes;
    }
}

TEST_F(FocusTest, BuiltInRecipeIsTheFocusRecipeOf633Characters) {
    EXPECT_EQ(std::wcslen(api::kMultiPeakFocusRecipe), 633u);
    CRecipe recipe(api::kMultiPeakFocusRecipe);
    ASSERT_EQ(recipe.Filters().size(), 2u);
    EXPECT_EQ(recipe.Comment(), L"2023-10-31 오전 11:38:50");
    EXPECT_TRUE(recipe.Filters()[0]->IsEndPoint());
}

TEST_F(FocusTest, NumbersAreReadFromTheResultAsTheExportsDo) {
    const std::pair<const wchar_t*, int> maxCases[] = {
        {L"{\"max\":\"12.345\"}", 1234}, {L"\"max\":\"0.009\"", 0},   {L"\"max\":\"\"", 0},
        {L"\"max\":\".\"", 0},           {L"\"max\":\"-3.0\"", 0},     {L"\"max\":\"7e5\"", 700},
        {L"\"mean\":\"1.0\"", 0},        {L"\"max\":\"99999999999\"", INT_MAX}};
    for (const auto& [text, expected] : maxCases)
        EXPECT_EQ(api::TenengradMaxTimes100(text), expected) << platform::ToUtf8(text);
    const std::pair<const wchar_t*, int> indexCases[] = {
        {L"{ \"FocusIndex\":\"12\",", 12}, {L"\"FocusIndex\":\"-1\"", 0}, {L"none", 0},
        {L"\"FocusIndex\":\"123456789012\"", INT_MAX}};
    for (const auto& [text, expected] : indexCases)
        EXPECT_EQ(api::FocusIndexOf(text), expected) << platform::ToUtf8(text);
}

// ---- TenengradFocusFilter and TenengradFocusF -----------------------------

TEST_F(FocusTest, TenengradOnAFlatImageIsZeroWithABlackPicture) {
    auto filter = Make(L"TenengradFocusFilter");
    const std::vector<cv::Mat> out = RunPins(*filter, {{1, {cv::Mat(40, 50, CV_8UC1, cv::Scalar(77))}}});
    EXPECT_EQ(std::wstring(filter->GetResult()),
              L"[{\"tenengrad\":\"0.000000\", \"mean\":\"0.000000\", \"max\":\"0.000000\" }]");
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].type(), CV_8UC3);
    std::vector<cv::Mat> planes;
    cv::split(out[0], planes);
    EXPECT_EQ(cv::countNonZero(planes[0]), 0);  // only the red mark is drawn
    EXPECT_EQ(cv::countNonZero(planes[1]), 0);
    std::vector<uint8_t> picture(40 * 50, 1);
    const cv::Mat flat(40, 50, CV_8UC1, cv::Scalar(77));
    EXPECT_EQ(TenengradFocusF(flat.data, picture.data(), 50, 40, 10), 0);
}

class TenengradQuadrant : public FocusTest, public ::testing::WithParamInterface<int> {};

TEST_P(TenengradQuadrant, SharpestNeighbourhoodLiesInTheSharpQuadrant) {
    const cv::Mat sharp = WithNoise(Scene(240, 200, 5), 2.0, 9);
    cv::Mat image = Blurred(sharp, 2.5);
    const cv::Rect quadrant((GetParam() % 2) * 120, (GetParam() / 2) * 100, 120, 100);
    sharp(quadrant).copyTo(image(quadrant));
    for (int kernel : {1, 10, 30}) {
        const filters::TenengradMeasure m = filters::MeasureTenengrad(image, kernel);
        EXPECT_TRUE(quadrant.contains(m.maxAt)) << "kernel " << kernel << " at " << m.maxAt;
    }
}

INSTANTIATE_TEST_SUITE_P(Quadrants, TenengradQuadrant, ::testing::Range(0, 4));

TEST_F(FocusTest, TenengradKernelOneMeansTheGradientItselfAndTheExportReadsMax) {
    const cv::Mat image = WithNoise(Scene(96, 80, 4), 3.0, 1);
    const filters::TenengradMeasure one = filters::MeasureTenengrad(image, 1);
    EXPECT_NEAR(one.mean, one.tenengrad / static_cast<double>(image.total()), 1e-9 * one.mean);
    const filters::TenengradMeasure box = filters::MeasureTenengrad(image, 10);
    EXPECT_NEAR(box.tenengrad, one.tenengrad, 1e-9 * one.tenengrad);
    EXPECT_LT(box.max, one.max);  // averaging lowers the peak

    // Two images give a list of two objects; no image gives an empty list.
    auto filter = Make(L"TenengradFocusFilter");
    SetParams(*filter, {{L"Kernel", L"1"}});
    EXPECT_EQ(RunPins(*filter, {{1, {image, image}}}).size(), 2u);
    const std::wstring text = filter->GetResult();
    const std::wregex object(LR"re(\{"tenengrad":"[0-9.]+", "mean":"[0-9.]+", "max":"([0-9.]+)" \})re");
    const std::wstring both = LR"(\[(\{[^}]*\}),(\{[^}]*\})\])";
    std::wsmatch match;
    ASSERT_TRUE(std::regex_match(text, match, std::wregex(both))) << platform::ToUtf8(text);
    EXPECT_EQ(match[1].str(), match[2].str());
    const std::wstring first = match[1].str();
    ASSERT_TRUE(std::regex_match(first, match, object));
    EXPECT_EQ(TenengradFocusF(image.data, nullptr, 96, 80, 1),
              static_cast<int>(std::stod(match[1].str()) * 100.0));
    EXPECT_EQ(RunPins(*filter, {{1, {}}}).size(), 0u);
    EXPECT_EQ(std::wstring(filter->GetResult()), L"[]");
}

TEST_F(FocusTest, TenengradHandlesTinyImagesAndOutOfRangeKernels) {
    struct Case {
        int width, height;
        const wchar_t* kernel;
    };
    for (const Case& c : {Case{1, 1, L"1"}, Case{1, 1, L"30"}, Case{2, 3, L"30"}, Case{16, 16, L"0"},
                          Case{16, 16, L"1000"}}) {
        auto filter = Make(L"TenengradFocusFilter");
        SetParams(*filter, {{L"Kernel", c.kernel}});
        const std::vector<cv::Mat> out =
            RunPins(*filter, {{1, {WithNoise(cv::Mat(c.height, c.width, CV_8UC1, cv::Scalar(100)), 20, 3)}}});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].size(), cv::Size(c.width, c.height));
        EXPECT_EQ(std::wstring(filter->GetResult()).find(L"nan"), std::wstring::npos);
    }
    EXPECT_EQ(TenengradFocusF(nullptr, nullptr, 10, 10, 5), 0);
    EXPECT_EQ(TenengradFocusF(nullptr, nullptr, -1, 10, 5), 0);
}

// ---- LCTGetBrightFilter -------------------------------------------------

struct BrightCase {
    int level;
    bool highCamera;
};

class LctBright : public FocusTest, public ::testing::WithParamInterface<BrightCase> {};

// Marks darker than the area by 70 to 100 levels, of the sizes each camera
// sees: the high camera's image is drawn at twice the low camera's scale.
TEST_P(LctBright, BackgroundLevelUnderDarkerMarksWithinOneGrayLevel) {
    const BrightCase c = GetParam();
    const double u = c.highCamera ? 3.0 : 1.5;
    const auto at = [u](double x, double y) { return cv::Point(cvRound(x * u), cvRound(y * u)); };
    cv::Mat m(cvRound(240 * u), cvRound(320 * u), CV_8UC1, cv::Scalar(20));
    const cv::Rect drawn(at(30, 20), at(290, 220));
    cv::rectangle(m, drawn, c.level, cv::FILLED);
    cv::RNG rng(11);
    for (int i = 0; i < 8; ++i)
        cv::circle(m, at(rng.uniform(70, 250), rng.uniform(60, 180)), cvRound(rng.uniform(5, 14) * u),
                   c.level - 90, cv::FILLED);
    cv::rectangle(m, cv::Rect(at(120, 100), at(156, 124)), c.level - 70, cv::FILLED);
    cv::putText(m, "LCT", at(180, 150), cv::FONT_HERSHEY_SIMPLEX, u, c.level - 100, cvRound(3 * u));
    const cv::Mat image = WithNoise(m, 2.0, 5);

    const filters::LctBrightness b = filters::MeasureLctBrightness(image, c.highCamera);
    EXPECT_NEAR(b.bright, c.level, 1.0);
    // The blur widens the area by a few pixels; the measured part is 50
    // pixels smaller and inside what was drawn.
    EXPECT_EQ(b.measured.size(), b.area.size() - cv::Size(50, 50));
    EXPECT_EQ(b.measured & drawn, b.measured);

    auto filter = Make(L"LCTGetBrightFilter");
    if (!c.highCamera) SetParams(*filter, {{L"HighCamera", L"false"}});
    const std::vector<cv::Mat> out = RunPins(*filter, {{1, {image}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].type(), CV_8UC3);
    EXPECT_EQ(filter->GetResult(), platform::FromUtf8(cv::format("{\"Bright\":%.1f}", b.bright)));
}

INSTANTIATE_TEST_SUITE_P(Levels, LctBright,
                         ::testing::Values(BrightCase{180, true}, BrightCase{180, false},
                                           BrightCase{140, true}, BrightCase{230, false}));

TEST_F(FocusTest, LctAcceptsAnAreaOfHalfTheImageAndNothingSmaller) {
    // At level 100 the blurred area's rim crosses 50 exactly at its drawn
    // edge, so the component is the drawn rectangle.
    for (int width : {100, 99}) {
        cv::Mat m = cv::Mat::zeros(160, 200, CV_8UC1);
        cv::rectangle(m, cv::Rect(40, 30, width, 80), 100, cv::FILLED);
        const filters::LctBrightness b = filters::MeasureLctBrightness(m, true);
        EXPECT_EQ(!b.area.empty(), width == 100);
        if (width < 100) {
            EXPECT_EQ(b.bright, 0.0);
        }
    }
    // Nothing above 50 after the blur, a one-pixel image, an area too thin to
    // shrink: all 0.0. A small uniform area has nothing standing on it and
    // is measured whole, through the reduced enhancement of a 64 x 64 image.
    const std::pair<cv::Mat, const wchar_t*> cases[] = {
        {cv::Mat(100, 100, CV_8UC1, cv::Scalar(45)), L"{\"Bright\":0.0}"},
        {cv::Mat(1, 1, CV_8UC1, cv::Scalar(200)), L"{\"Bright\":0.0}"},
        {cv::Mat(40, 300, CV_8UC1, cv::Scalar(200)), L"{\"Bright\":0.0}"},
        {cv::Mat(64, 64, CV_8UC1, cv::Scalar(200)), L"{\"Bright\":200.0}"}};
    for (const auto& [image, expected] : cases) {
        auto filter = Make(L"LCTGetBrightFilter");
        EXPECT_EQ(RunPins(*filter, {{1, {image}}}).size(), 1u);
        EXPECT_EQ(std::wstring(filter->GetResult()), expected) << image.size();
    }
}

TEST_F(FocusTest, EnhancementReductionPerSigmaRange) {
    const std::pair<double, double> cases[] = {{1, 1.0},   {10, 1.0},  {10.5, 0.5}, {15, 0.5},
                                               {17, 0.4}, {20, 0.4}, {20.1, 0.25}, {99, 0.25}};
    for (const auto& [sigma, factor] : cases) EXPECT_EQ(filters::EnhanceReduction(sigma), factor);
    // A flat image stays at 128 through the reduced path.
    const cv::Mat flat = filters::MultiScaleEnhance(cv::Mat(50, 70, CV_8UC1, cv::Scalar(30)), 17.0);
    EXPECT_EQ(flat.size(), cv::Size(70, 50));
    EXPECT_EQ(cv::countNonZero(flat != 128), 0);
}

}  // namespace
}  // namespace pixmill::test
