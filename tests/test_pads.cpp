// The pad threshold estimators, their filters, the oval pad export and the
// pad find filter, on drawn pads with known outline and grey levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cwchar>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "enhance/OtsuLevel.h"
#include "enhance/PadThreshold.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"

namespace pixmill::test {
namespace {

void Collect(const char* line, void* user) {
    static_cast<std::string*>(user)->append(line);
}

class PadTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        logging::SetTraceSink(Collect, &m_trace);
    }
    std::string m_trace;
};

double IoU(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat i, u;
    cv::bitwise_and(a, b, i);
    cv::bitwise_or(a, b, u);
    return static_cast<double>(cv::countNonZero(i)) / std::max(1, cv::countNonZero(u));
}

// Texture and mild blur on a drawn scene: Gaussian noise of sigma 6, then a
// 3 x 3 blur.
cv::Mat Roughen(cv::Mat scene, int seed) {
    cv::Mat noise(scene.size(), CV_16S);
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0, 6);
    cv::Mat wide;
    scene.convertTo(wide, CV_16S);
    wide += noise;
    wide.convertTo(scene, CV_8U);
    cv::GaussianBlur(scene, scene, cv::Size(3, 3), 0);
    return scene;
}

// ---------------------------------------------------------------------------
// Triangle routines on hand-made histograms
// ---------------------------------------------------------------------------

struct Histogram {
    double hist[256] = {};
    double cum[256] = {};
    double total = 0;
    void Done() {
        double run = 0;
        for (int i = 0; i < 256; ++i) cum[i] = run += hist[i];
        total = run;
    }
};

struct TriangleCase {
    const char* name;
    void (*fill)(Histogram&);
    TrianglePoint expected;
};

const TriangleCase kTriangleCases[] = {
    // A low flat foot from 20 to 59, then a straight rise to the peak at 100:
    // the knee at 60 lies farthest below the chord.
    {"single_peak",
     [](Histogram& h) {
         for (int i = 20; i < 60; ++i) h.hist[i] = 5;
         for (int i = 60; i <= 100; ++i) h.hist[i] = 5 + (i - 60) * 24.875;
     },
     {20, 100, 60, 0}},
    // Every level alike: the peak is the first level with 60% below it, and
    // nothing lies below the flat chord.
    {"flat",
     [](Histogram& h) {
         for (int i = 10; i <= 250; ++i) h.hist[i] = 100;
     },
     {10, 155, -1, -1}},
    // The peak is the first occupied level: no slope to walk.
    {"peak_at_low_end",
     [](Histogram& h) {
         h.hist[10] = 900;
         for (int i = 11; i < 60; ++i) h.hist[i] = 2;
     },
     {10, 10, -1, -1}},
    // A peak above 245 is found only by the second pass; the foot's last
    // occupied level is the corner (empty levels take no part).
    {"peak_at_high_end",
     [](Histogram& h) {
         for (int i = 30; i <= 100; ++i) h.hist[i] = 10;
         h.hist[250] = 5000;
     },
     {30, 250, 100, 0}},
    // Level 255 never takes part, so a peak there is no peak.
    {"peak_at_255",
     [](Histogram& h) {
         for (int i = 30; i <= 100; ++i) h.hist[i] = 10;
         h.hist[255] = 5000;
     },
     {30, -1, -1, -1}},
};

class TriangleOnHistogramTest : public ::testing::TestWithParam<TriangleCase> {};

TEST_P(TriangleOnHistogramTest, FollowsThePeakAndChordRules) {
    Histogram h;
    GetParam().fill(h);
    h.Done();
    const TrianglePoint got = TriangleOnHistogram(h.hist, h.cum, h.total);
    const TrianglePoint& want = GetParam().expected;
    EXPECT_EQ(got.start, want.start);
    EXPECT_EQ(got.peak, want.peak);
    EXPECT_EQ(got.corner, want.corner);
    EXPECT_EQ(got.distance, want.distance);
}

INSTANTIATE_TEST_SUITE_P(Pads, TriangleOnHistogramTest, ::testing::ValuesIn(kTriangleCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PadTriangleOnCurve, TakesOnlyPointsBelowTheChord) {
    // Convex: i^2 on 0..10 lies below the chord from (0,0) to (10,100) and
    // farthest at 5; the distance 25 / 101^2 cuts to 0, which still counts.
    double convex[11];
    for (int i = 0; i <= 10; ++i) convex[i] = i * i;
    TrianglePoint tp = TriangleOnCurve(convex, 10, false);
    EXPECT_EQ(tp.corner, 5);
    EXPECT_EQ(tp.distance, 0);
    // Concave: every point above the chord, so no corner.
    double concave[11];
    for (int i = 0; i <= 10; ++i) concave[i] = std::sqrt(i);
    EXPECT_EQ(TriangleOnCurve(concave, 10, false).distance, -1);
    // A chord of no length.
    EXPECT_EQ(TriangleOnCurve(convex, 0, false).distance, -1);
    // With bounds found on 255 levels, level 255 is never read.
    double hist[256] = {};
    for (int i = 40; i < 80; ++i) hist[i] = 3;
    for (int i = 80; i <= 120; ++i) hist[i] = 3 + (i - 80) * 10;
    hist[255] = 1e6;
    tp = TriangleOnCurve(hist, 255, true);
    EXPECT_EQ(tp.start, 40);
    EXPECT_EQ(tp.peak, 120);
    EXPECT_EQ(tp.corner, 80);
    // The squared divisor makes the distance small: it cuts to 0, accepted.
    EXPECT_EQ(tp.distance, 0);
}

// ---------------------------------------------------------------------------
// Figures
// ---------------------------------------------------------------------------

// The stadium is closed at every angle: the fill stays inside it (area of
// a rectangle 2a x 2b plus a circle of radius b) and never reaches the
// image corners.
TEST(PadMask, StadiumIsClosedAtEveryAngle) {
    const int a = 50, b = 30;
    const double area = 4.0 * a * b + CV_PI * b * b;
    for (int angle = 0; angle < 360; angle += 15) {
        const cv::Mat mask = DrawPadMask(300, 300, 2 * a, 2 * b, 3, angle, 0);
        EXPECT_NEAR(cv::countNonZero(mask), area, area * 0.03) << "angle " << angle;
        EXPECT_EQ(mask.at<uint8_t>(0, 0) | mask.at<uint8_t>(299, 299), 0) << "angle " << angle;
    }
}

TEST(PadMask, BoxFigures) {
    // Octagon at angle 0: the box less four corner triangles of o^2 / 2.
    const cv::Mat octagon = DrawPadMask(200, 200, 160, 120, 4, 0, 20);
    EXPECT_NEAR(cv::countNonZero(octagon), 160 * 120 - 2 * 20 * 20, 250);
    EXPECT_EQ(octagon.at<uint8_t>(199, 30), 255);
    EXPECT_EQ(octagon.at<uint8_t>(199, 5), 0) << "bottom-left corner cut";
    EXPECT_EQ(octagon.at<uint8_t>(199 - 120 + 2, 2), 0) << "top-left corner cut";
    // One side cut: only the top corners go at angle 0.
    const cv::Mat top = DrawPadMask(200, 200, 160, 120, 5, 0, 20);
    EXPECT_EQ(top.at<uint8_t>(199 - 120 + 2, 2), 0);
    EXPECT_EQ(top.at<uint8_t>(199, 1), 255) << "bottom corners stay square";
    // At an angle other than the right ones nothing is drawn: whole image.
    EXPECT_EQ(cv::countNonZero(DrawPadMask(200, 200, 160, 120, 5, 45, 20)), 200 * 200);
}

// ---------------------------------------------------------------------------
// Estimators through their filters: drawn pads of every shape
// ---------------------------------------------------------------------------

struct PadCase {
    const wchar_t* filter;
    int shape;
    int angle;
    bool blackPad;
};

std::string CaseName(const ::testing::TestParamInfo<PadCase>& info) {
    return std::string(std::wcsstr(info.param.filter, L"Ex") ? "Ex" : "Plain") + "_shape" +
           std::to_string(info.param.shape) + "_angle" + std::to_string(info.param.angle) +
           (info.param.blackPad ? "_black" : "_bright");
}

class PadLevelTest : public PadTest, public ::testing::WithParamInterface<PadCase> {};

// The estimators expect the figure to hug the pad: the pad holds most of
// the figure's pixels, with a rim of surround. Here the pad is the figure
// shrunk by 8 pixels, on a 240 x 200 image, with a probe mark inside.
TEST_P(PadLevelTest, LevelLiesBetweenPadAndSurroundAndRecoversThePad) {
    const PadCase& c = GetParam();
    const int padLevel = c.blackPad ? 70 : 180, surround = c.blackPad ? 190 : 60;
    const int boxX = c.shape >= 4 ? 240 : 90, boxY = c.shape >= 4 ? 200 : 90;
    cv::Mat truth;
    cv::erode(DrawPadMask(240, 200, boxX, boxY, c.shape, c.angle, 30), truth,
              cv::getStructuringElement(cv::MORPH_ELLIPSE, {17, 17}), {-1, -1}, 1,
              cv::BORDER_CONSTANT, cv::Scalar(0));
    cv::Mat scene(truth.size(), CV_8UC1, cv::Scalar(surround));
    scene.setTo(cv::Scalar(padLevel), truth);
    cv::circle(scene, {130, 95}, 3, cv::Scalar((padLevel + surround) / 2), cv::FILLED);
    scene = Roughen(scene, c.shape * 7 + c.angle);

    const bool ex = std::wcsstr(c.filter, L"Ex") != nullptr;
    auto filter = Make(c.filter);
    ParamList params{{L"x", Num(boxX)},
                     {L"y", Num(boxY)},
                     {L"Shape", Num(c.shape)},
                     {L"Angle", Num(c.angle)},
                     {L"BlackPad", c.blackPad ? L"true" : L"false"}};
    if (ex) params.push_back({L"Offset", L"30"});
    SetParams(*filter, params);
    const std::vector<cv::Mat> out = RunPins(*filter, {{1, {scene}}});
    ASSERT_EQ(out.size(), 1u);

    const std::wstring text = filter->GetResult();
    ASSERT_EQ(text.rfind(L"{\"threshold\":\"", 0), 0u) << std::string(text.begin(), text.end());
    const int level = std::stoi(text.substr(14));
    EXPECT_GT(level, std::min(padLevel, surround)) << m_trace;
    EXPECT_LT(level, std::max(padLevel, surround));
    const double iou = IoU(out[0], truth);
    EXPECT_GE(iou, 0.95) << "level " << level;
    RecordProperty("level", level);
    RecordProperty("iou_permille", static_cast<int>(iou * 1000));
}

std::vector<PadCase> PadCases() {
    std::vector<PadCase> cases;
    for (bool black : {false, true}) {
        for (int shape = 0; shape <= 3; ++shape)
            for (const wchar_t* f : {L"VBcvGetThresholdFilter", L"VBcvGetThresholdExFilter"})
                cases.push_back({f, shape, 0, black});
        for (int angle : {30, 90})
            for (const wchar_t* f : {L"VBcvGetThresholdFilter", L"VBcvGetThresholdExFilter"})
                cases.push_back({f, 3, angle, black});
        for (int shape : {4, 5}) cases.push_back({L"VBcvGetThresholdExFilter", shape, 0, black});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Pads, PadLevelTest, ::testing::ValuesIn(PadCases()), CaseName);

// ---------------------------------------------------------------------------
// Spread correction against a naive reference
// ---------------------------------------------------------------------------

struct SpreadOutcome {
    double level;
    bool corrected;  // the spread moved the level away from the walked one
};

// VBcvGetThresholdEx on the whole image, the spread taken literally: for
// every level a pass for the mean position of the pixels at or below it and
// a second pass for their mean squared distance from it.
SpreadOutcome NaiveWholeImageEx(const cv::Mat1b& image) {
    double hist[256] = {}, cum[256] = {};
    for (uint8_t v : image) hist[v] += 1;
    for (int i = 0, run = 0; i < 256; ++i) cum[i] = run += static_cast<int>(hist[i]);
    const TrianglePoint tp = TriangleOnCurve(hist, 255, true);
    if (tp.distance == -1) return {-2.0, false};
    const double avg = cum[tp.corner - 1] / (tp.corner - tp.start);
    int walked = -1;
    for (int j = tp.corner - 1; j >= tp.start && walked < 0; --j)
        if (hist[j] < avg) walked = j;
    const int n = tp.corner - tp.start;
    std::vector<double> sx(n), sy(n);
    for (int level = tp.start; level < tp.corner; ++level) {
        double mx = 0, my = 0, count = 0;
        for (int y = 0; y < image.rows; ++y)
            for (int x = 0; x < image.cols; ++x)
                if (image(y, x) <= level) mx += x, my += y, count += 1;
        if (count == 0) continue;
        mx /= count, my /= count;
        for (int y = 0; y < image.rows; ++y)
            for (int x = 0; x < image.cols; ++x)
                if (image(y, x) <= level) {
                    sx[level - tp.start] += (mx - x) * (mx - x) / count;
                    sy[level - tp.start] += (my - y) * (my - y) / count;
                }
    }
    const TrianglePoint X = TriangleOnCurve(sx.data(), n - 1, false);
    const TrianglePoint Y = TriangleOnCurve(sy.data(), n - 1, false);
    const double A = tp.corner - (tp.peak - tp.start + 1) * 0.2;
    const int lx = X.corner + tp.start, ly = Y.corner + tp.start;
    int t = walked;
    if (!(A > lx && A > ly) && X.distance >= 0)
        t = Y.distance < 0 ? lx : (X.corner >= Y.corner ? lx : ly);
    return {static_cast<double>(t), t != walked};
}

// Bright pads on a darker frame, each with a compact dark probe mark: at
// low levels the dark pixels gather in the mark, nearer the pad's level they
// spread over the frame, which is what the correction looks for.
TEST_F(PadTest, SpreadCorrectionMatchesTheNaiveReference) {
    int corrected = 0;
    for (int seed = 0; seed < 16; ++seed) {
        cv::RNG rng(seed);
        cv::Mat1b image(90, 120, static_cast<uint8_t>(rng.uniform(120, 200)));
        const int margin = rng.uniform(6, 14);
        const cv::Rect pad(margin, margin, 120 - 2 * margin, 90 - 2 * margin);
        image(pad).setTo(cv::Scalar(rng.uniform(205, 235)));
        cv::circle(image, {rng.uniform(30, 90), rng.uniform(25, 65)}, rng.uniform(3, 8),
                   cv::Scalar(rng.uniform(25, 60)), cv::FILLED);
        image = Roughen(image, seed);
        const SpreadOutcome want = NaiveWholeImageEx(image);
        corrected += want.corrected;
        EXPECT_EQ(VBcvGetThresholdEx(image.data, 120, 90, 0, 0, 0, 0, 0, 0, 0), want.level)
            << "seed " << seed;
    }
    // The set exercises the correction, not only the walk.
    EXPECT_GT(corrected, 0);
}

// ---------------------------------------------------------------------------
// Refusals of the estimators
// ---------------------------------------------------------------------------

struct Refused {
    const char* name;
    bool ex;
    int width, height, x, y, shape, blackPad, angle, offset;
    bool nullData;
    double expected;
    const char* line;
};

const Refused kRefused[] = {
    {"width_481", false, 481, 10, 5, 5, 0, 0, 0, 0, false, -1.0, "Input Size(481, 10)"},
    {"negative_width", true, -3, 10, 5, 5, 0, 0, 0, 0, false, -1.0, "Input Size(-3, 10)"},
    {"shape_4_plain", false, 20, 20, 5, 5, 4, 0, 0, 0, false, -1.0, "Input Data(4, 0, 0)"},
    {"shape_6_ex", true, 20, 20, 5, 5, 6, 0, 0, 0, false, -1.0, "Input Data(6, 0, 0)"},
    {"negative_angle", true, 20, 20, 5, 5, 3, 0, -1, 0, false, -1.0, "Input Data(3, 0, -1)"},
    {"negative_blackpad", false, 20, 20, 5, 5, 0, -1, 0, 0, false, -1.0, "Input Data(0, -1, 0)"},
    {"null_data", false, 20, 20, 5, 5, 0, 0, 0, 0, true, -1.0, "Input Buffer is null"},
    {"huge_figure", true, 20, 20, INT_MAX, 5, 3, 0, 0, 0, false, -1.0, "Pad Size"},
    {"huge_offset", true, 20, 20, 5, 5, 4, 0, 0, INT_MIN, false, -1.0, "Pad Size"},
    {"zero_width", false, 0, 20, 5, 5, 0, 0, 0, 0, true, -2.0, "T ALG FAIL(1)"},
    {"uniform_ex", true, 20, 20, 5, 5, 0, 0, 0, 0, false, -2.0, "T ALG FAIL(1)"},
};

class PadRefusalTest : public PadTest, public ::testing::WithParamInterface<Refused> {};

TEST_P(PadRefusalTest, ReturnsTheFailureValueWithItsLine) {
    const Refused& r = GetParam();
    std::vector<uint8_t> pixels(20 * 20, 100);
    const uint8_t* data = r.nullData ? nullptr : pixels.data();
    const double got =
        r.ex ? VBcvGetThresholdEx(data, r.width, r.height, r.x, r.y, r.shape, r.blackPad, r.angle,
                                  r.offset, 0)
             : VBcvGetThreshold(data, r.width, r.height, r.x, r.y, r.shape, r.blackPad, r.angle, 0);
    EXPECT_EQ(got, r.expected);
    EXPECT_NE(m_trace.find(r.line), std::string::npos) << m_trace;
}

INSTANTIATE_TEST_SUITE_P(Pads, PadRefusalTest, ::testing::ValuesIn(kRefused),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PadTest, DarkImageAndShapeFourDifferBetweenEstimators) {
    // Every pixel below 10: no start for the histogram triangle.
    cv::Mat dark(40, 40, CV_8UC1);
    cv::randu(dark, 0, 10);
    EXPECT_EQ(VBcvGetThreshold(dark.data, 40, 40, 0, 0, 0, 0, 0, 0), -2.0);
    // Shape 4 is accepted by the Ex estimator only.
    cv::Mat pad(40, 40, CV_8UC1, cv::Scalar(40));
    cv::rectangle(pad, cv::Rect(4, 4, 32, 32), cv::Scalar(200), cv::FILLED);
    pad = Roughen(pad, 3);
    EXPECT_EQ(VBcvGetThreshold(pad.data, 40, 40, 40, 40, 4, 0, 0, 0), -1.0);
    const double level = VBcvGetThresholdEx(pad.data, 40, 40, 40, 40, 4, 0, 0, 5, 0);
    EXPECT_GT(level, 40);
    EXPECT_LT(level, 200);
}

// ---------------------------------------------------------------------------
// Variance levels and the oval export
// ---------------------------------------------------------------------------

TEST(PadVarianceLevel, SplitsTwoModesAndIgnoresTheBrightHalf) {
    cv::Mat two(64, 64, CV_8UC1, cv::Scalar(30));
    two(cv::Rect(0, 0, 64, 24)).setTo(cv::Scalar(90));
    const int level = OtsuLevel(two.data, 64, 64);
    EXPECT_GE(level, 30);
    EXPECT_LT(level, 90);
    // Bright pixels change OtsuLevel but not the dark-half level.
    const int dark = DarkHalfVarianceLevel(two.data, 64, 64, 64);
    cv::Mat withBright = two.clone();
    withBright(cv::Rect(0, 40, 64, 24)).setTo(cv::Scalar(250));
    const int darkAgain = DarkHalfVarianceLevel(withBright.data, 64, 64, 64);
    EXPECT_GE(dark, 30);
    EXPECT_LT(dark, 90);
    EXPECT_NE(OtsuLevel(withBright.data, 64, 64), level);
    // The dark half alone: 24 rows at 90, 16 rows at 30.
    int64_t counts[256] = {};
    counts[90] = 24 * 64;
    counts[30] = 16 * 64;
    EXPECT_EQ(darkAgain, SmoothedVarianceLevel(counts));
    // Rows of a wider buffer: the stride skips the padding.
    cv::Mat padded(64, 80, CV_8UC1, cv::Scalar(5));
    two.copyTo(padded(cv::Rect(0, 0, 64, 64)));
    EXPECT_EQ(DarkHalfVarianceLevel(padded.data, 64, 64, 80), dark);
}

TEST_F(PadTest, OvalExportAveragesTheDarkClassWithItsLevel) {
    cv::Mat image(100, 100, CV_8UC1, cv::Scalar(200));
    image(cv::Rect(0, 0, 100, 30)).setTo(cv::Scalar(20));
    image(cv::Rect(0, 30, 100, 30)).setTo(cv::Scalar(100));
    const int t1 = DarkHalfVarianceLevel(image.data, 100, 100, 100);
    ASSERT_GT(t1, 20);
    ASSERT_LE(t1, 100);
    EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(image.data, 100, 100), (20 + t1) / 2);
    EXPECT_NE(m_trace.find("Version : "), std::string::npos);
    EXPECT_NE(m_trace.find("Final Threshold : " + std::to_string((20 + t1) / 2)),
              std::string::npos);

    // No pixel below t1: t1 / 2 instead of a division by zero.
    cv::Mat bright(50, 50, CV_8UC1, cv::Scalar(220));
    const int t = DarkHalfVarianceLevel(bright.data, 50, 50, 50);
    EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(bright.data, 50, 50), t / 2);
    EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(nullptr, 0, 7), t / 2);
}

TEST_F(PadTest, OvalExportVisitsTheTransposedSquareOfAWideImage) {
    // 300 x 100: the visit covers columns 0..99 of every row and stops at
    // the end of the buffer. Dark pixels of 10 lie in that square, of 20
    // beside it; counting those too would pull the mean up to 16.
    cv::Mat wide(100, 300, CV_8UC1, cv::Scalar(100));
    wide(cv::Rect(0, 0, 100, 50)).setTo(cv::Scalar(10));
    wide(cv::Rect(100, 0, 200, 50)).setTo(cv::Scalar(20));
    const int t1 = DarkHalfVarianceLevel(wide.data, 300, 100, 300);
    ASSERT_GT(t1, 20);
    ASSERT_LE(t1, 100);
    EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(wide.data, 300, 100), (10 + t1) / 2);
    // Taller than wide stays inside the buffer too.
    cv::Mat tall(300, 100, CV_8UC1, cv::Scalar(40));
    EXPECT_GE(VBcvGetThreshold_Oval_Auto_Pad_Reg(tall.data, 100, 300), 0);
}

TEST_F(PadTest, OvalExportRefusesBadSizes) {
    std::vector<uint8_t> pixels(481 * 2, 7);
    for (auto [w, h] : {std::pair{481, 2}, {2, 481}, {-1, 2}, {2, -5}}) {
        m_trace.clear();
        EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(pixels.data(), w, h), -1);
        EXPECT_NE(m_trace.find("Image Buffer Sise is wrong! \n[VBcvGetThreshold_Oval] End \n"),
                  std::string::npos);
    }
    EXPECT_EQ(VBcvGetThreshold_Oval_Auto_Pad_Reg(nullptr, 4, 4), -1);
}

TEST_F(PadTest, OvalFilterBinarisesAtOtsuLevelInBothModes) {
    cv::Mat scene(120, 160, CV_8UC1, cv::Scalar(60));
    cv::Mat truth = cv::Mat::zeros(scene.size(), CV_8UC1);
    cv::ellipse(truth, {80, 60}, {40, 25}, 0, 0, 360, cv::Scalar(255), cv::FILLED);
    scene.setTo(cv::Scalar(170), truth);
    scene = Roughen(scene, 11);
    for (bool black : {false, true}) {
        auto filter = Make(L"VBcvGetThresholdOvalFilter");
        SetParams(*filter, {{L"BlackPad", black ? L"true" : L"false"}});
        cv::Mat input = black ? 255 - scene : scene;
        const auto out = RunPins(*filter, {{1, {input}}});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_GE(IoU(out[0], truth), 0.95);
        EXPECT_NE(m_trace.find("Threshold : "), std::string::npos);
    }
    auto filter = Make(L"VBcvGetThresholdOvalFilter");
    RunPins(*filter, {{1, {cv::Mat(481, 10, CV_8UC1, cv::Scalar(9))}}});
    EXPECT_EQ(std::wstring(filter->GetResult()), L"{\"threshold\":\"-1\"}");
}

TEST_F(PadTest, FilterReportsAFailureValueAsItIs) {
    auto filter = Make(L"VBcvGetThresholdExFilter");
    const auto out = RunPins(*filter, {{1, {cv::Mat(30, 30, CV_8UC1, cv::Scalar(80))}}});
    EXPECT_EQ(std::wstring(filter->GetResult()), L"{\"threshold\":\"-2\"}");
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(out[0]), 900) << "level -2: every pixel is above it";
}

// ---------------------------------------------------------------------------
// Pad find filter
// ---------------------------------------------------------------------------

// A 480 x 480 die image lit unevenly (70 at the left edge to 120 at the
// right, darker toward the bottom), with a street, bond squares, a long
// trace, a wide rectangle and one pad of 80 x 60 at (260, 300) that stands
// `contrast` above its surround. `link` adds a thin trace from the pad to
// the top edge.
cv::Mat DieImage(int contrast, bool link, cv::Mat* truth) {
    cv::Mat1f light(480, 480);
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 480; ++x) light(y, x) = 70.0f + 50.0f * x / 480 - 20.0f * y / 480;
    cv::Mat structures = cv::Mat::zeros(480, 480, CV_32F);
    cv::rectangle(structures, cv::Rect(0, 120, 480, 14), cv::Scalar(70), cv::FILLED);
    for (int x = 40; x < 200; x += 50)
        cv::rectangle(structures, cv::Rect(x, 200, 22, 22), cv::Scalar(90), cv::FILLED);
    cv::line(structures, {30, 420}, {440, 440}, cv::Scalar(80), 3);
    cv::rectangle(structures, cv::Rect(40, 280, 150, 40), cv::Scalar(85), cv::FILLED);
    const cv::Rect pad(260, 300, 80, 60);
    cv::rectangle(structures, pad, cv::Scalar(contrast), cv::FILLED);
    if (link) cv::rectangle(structures, cv::Rect(298, 0, 3, 300), cv::Scalar(contrast), cv::FILLED);
    cv::Mat scene;
    cv::Mat(light + structures).convertTo(scene, CV_8U);
    *truth = cv::Mat::zeros(480, 480, CV_8UC1);
    (*truth)(pad).setTo(cv::Scalar(255));
    return Roughen(scene, contrast);
}

std::vector<cv::Mat> FindPads(const cv::Mat& image, const ParamList& params) {
    std::vector<cv::Mat> images;
    cv::Mat copy = image.clone();
    RunRecipe({Source(L"s", 1), Node(L"p", L"EnhancePadFindFilter", true, params, {{1, L"s"}})},
              {{&copy, 1}}, images);
    return images;
}

void ExpectPadSides(const cv::Mat& found, const cv::Mat& truth) {
    const cv::Rect got = cv::boundingRect(found), want = cv::boundingRect(truth);
    ::testing::Test::RecordProperty("sides", std::to_string(got.x - want.x) + "," +
                                                 std::to_string(got.y - want.y) + "," +
                                                 std::to_string(got.br().x - want.br().x) + "," +
                                                 std::to_string(got.br().y - want.br().y));
    cv::Mat covered;
    cv::bitwise_and(found, truth, covered);
    EXPECT_GE(cv::countNonZero(covered), 0.98 * cv::countNonZero(truth));
    EXPECT_NEAR(got.x, want.x, 3);
    EXPECT_NEAR(got.y, want.y, 3);
    EXPECT_NEAR(got.br().x, want.br().x, 3);
    EXPECT_NEAR(got.br().y, want.br().y, 3);
}

TEST_F(PadTest, PadFindOutlinesThePadOnADieImage) {
    cv::Mat truth;
    const cv::Mat die = DieImage(80, false, &truth);
    const ParamList size{{L"PadWidth", L"80"}, {L"PadHeight", L"60"}, {L"Acceptance", L"0.7"}};
    auto found = FindPads(die, size);
    ASSERT_EQ(found.size(), 1u);
    ExpectPadSides(found[0], truth);
    // A dark pad on the inverted image, found with PadType.
    ParamList dark = size;
    dark.push_back({L"PadType", L"true"});
    found = FindPads(255 - die, dark);
    ASSERT_EQ(found.size(), 1u);
    ExpectPadSides(found[0], truth);
}

TEST_F(PadTest, PadFindFindsALowContrastLinkedPad) {
    // The trace makes the pad's blob too tall for the first detector; the
    // bars drop it.
    cv::Mat truth;
    const cv::Mat die = DieImage(35, true, &truth);
    const auto found =
        FindPads(die, {{L"PadWidth", L"80"}, {L"PadHeight", L"60"}, {L"Acceptance", L"0.7"}});
    ASSERT_EQ(found.size(), 1u);
    ExpectPadSides(found[0], truth);
}

TEST_F(PadTest, PadFindSizeTestDarkImageAndRefusal) {
    EnableFileLog(1);
    // W + 1 columns: no output and no "Loop1"; W + 2 passes.
    auto tooSmall = FindPads(cv::Mat(100, 81, CV_8UC1, cv::Scalar(0)),
                             {{L"PadWidth", L"80"}, {L"PadHeight", L"60"}});
    EXPECT_TRUE(tooSmall.empty());
    EXPECT_EQ(CountOf(ReadLog(), "Loop1"), 0);
    EXPECT_EQ(CountOf(ReadLog(), "Loop"), 1);
    // An all-black image gives the all-zero image.
    auto dark = FindPads(cv::Mat(100, 82, CV_8UC1, cv::Scalar(0)),
                         {{L"PadWidth", L"80"}, {L"PadHeight", L"60"}});
    ASSERT_EQ(dark.size(), 1u);
    EXPECT_EQ(dark[0].size(), cv::Size(82, 100));
    EXPECT_EQ(cv::countNonZero(dark[0]), 0);
    EXPECT_EQ(CountOf(ReadLog(), "Loop1"), 1);
    // A pad size below 1 makes the filter fail: no output, an error line.
    EXPECT_TRUE(FindPads(cv::Mat(50, 50, CV_8UC1, cv::Scalar(9)), {{L"PadWidth", L"0"}}).empty());
}

}  // namespace
}  // namespace pixmill::test
