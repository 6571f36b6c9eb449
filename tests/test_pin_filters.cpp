// The pin-tip recipe filters on drawn probe-card views, pinholes, rings and
// marks, inside recipes; their bounds, their refusals of unusable images and
// parameters, and the sample recipes through the pixmill tool.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <regex>
#include <sys/wait.h>

#include "FilterHarness.h"
#include "TestFilters.h"
#include "TestSupport.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

namespace fs = std::filesystem;

void Collect(const char* line, void* user) {
    *static_cast<std::string*>(user) += line;
}

// The number after "key": (quoted or not) in `text`, NaN when absent.
double Field(const std::string& text, const std::string& key) {
    std::smatch m;
    if (!std::regex_search(text, m, std::regex("\"" + key + "\":\"?(-?[0-9.]+)"))) return std::nan("");
    return std::stod(m[1]);
}

// A probe-card view: a dark frame around a dim window of the card (level
// 70, `window`), bright pin tips (discs of level 220 and radius 6) at
// `tips`, mild blur and sensor noise.
cv::Mat ProbeCard(const std::vector<cv::Point>& tips, cv::Rect window = {120, 80, 400, 320}, int seed = 3) {
    cv::Mat image(480, 640, CV_8UC1, cv::Scalar(12));
    image(window).setTo(70);
    for (const cv::Point& tip : tips) cv::circle(image, tip, 6, cv::Scalar(220), cv::FILLED);
    cv::GaussianBlur(image, image, cv::Size(3, 3), 0.8);
    cv::Mat noise(image.size(), CV_8SC1);
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::NORMAL, 0, 3);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

// A disc of `level` and `radius` on a textured background of `background`.
cv::Mat Mark(cv::Size size, cv::Point2f centre, int radius, int level, int background, double noiseSigma = 4) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(background));
    // Sub-pixel centre: drawn with 4 fractional bits.
    cv::circle(image, cv::Point(cvRound(centre.x * 16), cvRound(centre.y * 16)), radius * 16, cv::Scalar(level),
               cv::FILLED, cv::LINE_AA, 4);
    cv::GaussianBlur(image, image, cv::Size(5, 5), 1.2);
    cv::Mat noise(image.size(), CV_8SC1);
    cv::RNG rng(5);
    rng.fill(noise, cv::RNG::NORMAL, 0, noiseSigma);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

struct Outcome {
    std::string result;  // the filter's result fragment
    std::vector<cv::Mat> images;
};

class PinFilterTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        logging::SetTraceSink(Collect, &m_trace);
    }

    // Runs `nodes` on `masters` (IDs 1, 2, ...) and returns the fragment of
    // the filter with key `key`.
    Outcome Recipe(const std::vector<std::wstring>& nodes, std::vector<cv::Mat> masters, const std::wstring& key) {
        std::vector<MasterImage> list;
        for (size_t i = 0; i < masters.size(); ++i) list.push_back({&masters[i], static_cast<int32_t>(i + 1)});
        Outcome run;
        const std::wstring doc = RunRecipe(nodes, list, run.images);
        const std::wstring start = L"\"Key\":\"" + key + L"\",\"Result\":";
        size_t from = doc.find(start);
        if (from == std::wstring::npos) return run;
        from += start.size();
        size_t end = doc.find(L",{\"Name\":\"", from);
        if (end == std::wstring::npos) end = doc.rfind(L"]}");
        run.result = platform::ToUtf8(doc.substr(from, end - from - 1));
        return run;
    }

    // Source -> `type` (end point, key "f") on one image.
    Outcome One(const std::wstring& type, const ParamList& params, const cv::Mat& image) {
        return Recipe({Source(L"s", 1), Node(L"f", type, true, params, {{1, L"s"}})}, {image}, L"f");
    }

    std::string m_trace;
};

// ---------------------------------------------------------------------------
// PintipPriorityFilter
// ---------------------------------------------------------------------------

// The card window as its own marked area: a threshold just above the frame
// marks window and tips, the mask keeps the source's gray levels there, and
// the priority filter picks the tip nearest the window's centre.
std::vector<std::wstring> PintipRecipe() {
    return {Source(L"s", 1),
            Node(L"t", L"ThresholdFilter", false, {{L"Threshold", L"30"}}, {{1, L"s"}}),
            Node(L"m", L"ImageMaskFilter", false, {}, {{1, L"s"}, {2, L"t"}}),
            Node(L"p", L"PintipPriorityFilter", true, {{L"Minsize", L"6"}, {L"Maxsize", L"30"}, {L"weight", L"1.5"}},
                 {{1, L"m"}})};
}

TEST_F(PinFilterTest, PintipRecipeReportsTheTipNearestTheWindowCentre) {
    // Five layouts: the near tip moves around the window centre (320, 240)
    // and the far tips around the window.
    const cv::Point nears[] = {{336, 252}, {300, 228}, {320, 240}, {347, 226}, {296, 265}};
    int seed = 1;
    double worst = 0;
    for (const cv::Point& near : nears) {
        const cv::Mat card = ProbeCard({{180, 130}, {470, 150}, near, {200, 360}, {455, 350}}, {120, 80, 400, 320},
                                       seed++);
        const Outcome run = Recipe(PintipRecipe(), {card}, L"p");
        ASSERT_EQ(Field(run.result, "count"), 1) << run.result;
        EXPECT_NEAR(Field(run.result, "x"), near.x, 1.0) << run.result;
        EXPECT_NEAR(Field(run.result, "y"), near.y, 1.0) << run.result;
        EXPECT_NEAR(Field(run.result, "w"), 13, 2) << run.result;
        worst = std::max({worst, std::fabs(Field(run.result, "x") - near.x), std::fabs(Field(run.result, "y") - near.y)});
        ASSERT_EQ(run.images.size(), 1u);
        EXPECT_EQ(run.images[0].type(), CV_8UC3);
    }
    std::printf("pin tip recipe: worst centre error %.1f px over 5 layouts\n", worst);
    EXPECT_TRUE(fs::exists(platform::NativePath(L"C:/PROBERPARAM/ParaImg/PinImage/PintipPriorityFilter_image.png")));
    EXPECT_NE(m_trace.find("PintipPriorityFilter is success.\n"), std::string::npos);
}

// The priority of each blob, read from the filter's log lines.
struct PriorityCase {
    const char* name;
    std::vector<std::pair<cv::Rect, int>> paint;  // boxes and levels, marked area first
    int expectX, expectY;                         // reported centre
    std::vector<int> priorities;                  // of labels 1, 2, ... in order
};

class PriorityArithmetic : public PinFilterTest, public ::testing::WithParamInterface<PriorityCase> {};

TEST_P(PriorityArithmetic, ScoresCentreAndBrightness) {
    const PriorityCase& c = GetParam();
    cv::Mat image = cv::Mat::zeros(80, 80, CV_8UC1);
    for (const auto& [box, level] : c.paint) image(box).setTo(level);
    EnableFileLog(1);
    const Outcome run = One(L"PintipPriorityFilter", {{L"Minsize", L"0"}, {L"Maxsize", L"20"}}, image);
    EXPECT_EQ(Field(run.result, "x"), c.expectX) << run.result;
    EXPECT_EQ(Field(run.result, "y"), c.expectY) << run.result;
    const std::string log = ReadLog();
    for (size_t i = 0; i < c.priorities.size(); ++i)
        EXPECT_NE(log.find("pretip[" + std::to_string(i) + "][1] = " + std::to_string(c.priorities[i])),
                  std::string::npos)
            << "label " << i + 1 << " expected " << c.priorities[i];
}

INSTANTIATE_TEST_SUITE_P(
    Pintip, PriorityArithmetic,
    ::testing::Values(
        // Marked area: a 61 x 61 square at (10, 10) of level 60, centre
        // (40, 40), half width 30; the threshold comes out at 61.
        // At the centre and fully bright: 100 + 100.
        PriorityCase{"CentredAndBright", {{{10, 10, 61, 61}, 60}, {{38, 38, 5, 5}, 255}}, 40, 40, {200}},
        // A dim blob halfway to the edge (centre 50, brightness 47) loses
        // to a bright one beyond the half width (centre 0, brightness 100).
        PriorityCase{"FarBrightWinsOnBrightness",
                     {{{10, 10, 61, 61}, 60}, {{12, 12, 5, 5}, 255}, {{53, 38, 5, 5}, 120}},
                     14, 14, {100, 97}},
        // A one-pixel blob is its own gray level: 200 / 255 gives 78.
        PriorityCase{"OnePixelBlob", {{{10, 10, 61, 61}, 60}, {{40, 40, 1, 1}, 200}}, 40, 40, {178}},
        // A marked area one pixel wide (a line at x 40) has no half width:
        // no centre score, brightness alone.
        PriorityCase{"OnePixelWideArea", {{{40, 10, 1, 61}, 60}, {{40, 40, 1, 1}, 255}}, 40, 40, {100}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PinFilterTest, PintipWithoutBlobsReportsMinusOneAndZeroImage) {
    const Outcome run = One(L"PintipPriorityFilter", {}, cv::Mat::zeros(20, 30, CV_8UC1));
    EXPECT_EQ(run.result, R"({"x":"-1","y":"-1","w":"-1","h":"-1","count":"0"})");
    ASSERT_EQ(run.images.size(), 1u);
    EXPECT_EQ(cv::countNonZero(run.images[0]), 0);
    EXPECT_EQ(CountOf(m_trace, "PintipPriorityFilter is fail.\n"), 1);
}

// ---------------------------------------------------------------------------
// Width bounds of the size-checking filters
// ---------------------------------------------------------------------------

struct BoundCase {
    const wchar_t* type;
    int minSize, maxSize;
    bool accepted;
};

void PrintTo(const BoundCase& c, std::ostream* out) {
    *out << platform::ToUtf8(c.type) << " " << c.minSize << ".." << c.maxSize;
}

class WidthBounds : public PinFilterTest, public ::testing::WithParamInterface<BoundCase> {};

TEST_P(WidthBounds, BlobTenWide) {
    const BoundCase& c = GetParam();
    const std::wstring type = c.type;
    cv::Mat image = cv::Mat::zeros(40, 40, CV_8UC1);
    // The priority filter thresholds relative to a marked area around the
    // blob; the others see the blob alone.
    if (type == L"PintipPriorityFilter") image(cv::Rect(2, 2, 36, 36)).setTo(50);
    image(cv::Rect(12, 15, 10, 6)).setTo(255);
    const Outcome run = One(c.type, {{L"Minsize", Num(c.minSize)}, {L"Maxsize", Num(c.maxSize)}, {L"Near", L"true"}},
                        image);
    if (type == L"FindPinholeFilter" || type == L"FindPintipFilter") {
        // Corner of the blob, size of the image; nothing when refused.
        EXPECT_EQ(run.result, c.accepted ? R"({"x":12,"y":15,"w":40,"h":40})" : R"("")");
    } else {
        EXPECT_EQ(Field(run.result, "x"), c.accepted ? 17 : -1) << run.result;
        EXPECT_EQ(Field(run.result, "count"), c.accepted ? 1 : 0) << run.result;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pin, WidthBounds,
    ::testing::Values(BoundCase{L"FindPintipFilter", 10, 20, true}, BoundCase{L"FindPintipFilter", 9, 10, false},
                      BoundCase{L"FindPinholeFilter", 10, 20, false}, BoundCase{L"FindPinholeFilter", 9, 11, true},
                      BoundCase{L"FindPinholeFilter", 9, 10, false},
                      BoundCase{L"DetectMultiPinholeFilter", 10, 20, false},
                      BoundCase{L"DetectMultiPinholeFilter", 9, 11, true},
                      BoundCase{L"PintipPriorityFilter", 9, 11, true},
                      BoundCase{L"PintipPriorityFilter", 10, 20, false},
                      BoundCase{L"SizeToleranceFilter", 9, 11, true},
                      BoundCase{L"SizeToleranceFilter", 0, 0, false}));

TEST_F(PinFilterTest, PintipTakesLargestBlobAndPinholeTheLast) {
    cv::Mat image = cv::Mat::zeros(40, 40, CV_8UC1);
    image(cv::Rect(2, 2, 12, 12)).setTo(255);   // label 1, largest
    image(cv::Rect(20, 25, 8, 8)).setTo(255);   // label 2, last
    const ParamList params{{L"Minsize", L"1"}, {L"Maxsize", L"30"}};
    const Outcome tip = One(L"FindPintipFilter", params, image);
    EXPECT_EQ(tip.result, R"({"x":2,"y":2,"w":40,"h":40})");
    EXPECT_EQ(tip.images.size(), 2u);  // the colour copy twice
    const Outcome hole = One(L"FindPinholeFilter", params, image);
    EXPECT_EQ(hole.result, R"({"x":20,"y":25,"w":40,"h":40})");
    ASSERT_EQ(hole.images.size(), 1u);
    // The box is drawn in red around the blob.
    EXPECT_EQ(hole.images[0].at<cv::Vec3b>(25 + 8, 20), cv::Vec3b(0, 0, 255));
}

// ---------------------------------------------------------------------------
// NearEdgeFilter
// ---------------------------------------------------------------------------

struct EdgeCase {
    const char* name;
    int x, erosion;
    int radius;  // of the disc left, -1 for none
};

class NearEdge : public PinFilterTest, public ::testing::WithParamInterface<EdgeCase> {};

TEST_P(NearEdge, DropsBorderBlobsAndShrinks) {
    const EdgeCase& c = GetParam();
    cv::Mat image = cv::Mat::zeros(30, 40, CV_8UC1);
    image(cv::Rect(c.x, 10, 11, 11)).setTo(255);
    const Outcome run = One(L"NearEdgeFilter", {{L"Erosion", Num(c.erosion)}}, image);
    ASSERT_EQ(run.images.size(), 1u);
    const cv::Mat& out = run.images[0];
    if (c.radius < 0) {
        EXPECT_EQ(cv::countNonZero(out), 0);
    } else {
        cv::Mat expected = cv::Mat::zeros(image.size(), CV_8UC1);
        cv::circle(expected, cv::Point(c.x + 5, 15), c.radius, cv::Scalar(255), cv::FILLED, 1);
        EXPECT_TRUE(SameImage(out, expected));
    }
    EXPECT_NE(m_trace.find("NearEdgeFilter is success.\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Pin, NearEdge,
                         ::testing::Values(EdgeCase{"AtXZeroDropped", 0, 0, -1}, EdgeCase{"AtXOneKept", 1, 0, 5},
                                           EdgeCase{"TouchingRightDropped", 29, 0, -1},
                                           EdgeCase{"ErosionShrinks", 10, 3, 2},
                                           EdgeCase{"ErosionAboveHalfWidthDrops", 10, 6, -1},
                                           EdgeCase{"NegativeErosionIsBounded", 10, -2147483647, 70}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PinFilterTest, NearEdgeWithoutBlobsFailsWithoutImage) {
    const Outcome run = One(L"NearEdgeFilter", {}, cv::Mat::zeros(10, 10, CV_8UC1));
    EXPECT_TRUE(run.images.empty());
    EXPECT_EQ(m_trace, "NearEdgeFilter is fail.\n");
}

// ---------------------------------------------------------------------------
// DetectMultiPinholeFilter, DiagnosisFilter, SizeToleranceFilter
// ---------------------------------------------------------------------------

TEST_F(PinFilterTest, MultiPinholeLastBlobOutOfRangeGivesMinusOneWithCount) {
    cv::Mat image = cv::Mat::zeros(50, 60, CV_8UC1);
    image(cv::Rect(5, 5, 6, 6)).setTo(200);
    image(cv::Rect(30, 8, 6, 6)).setTo(180);
    image(cv::Rect(10, 30, 20, 5)).setTo(255);  // last label, too wide
    const Outcome run = One(L"DetectMultiPinholeFilter", {{L"Minsize", L"3"}, {L"Maxsize", L"10"}}, image);
    EXPECT_EQ(run.result, R"({"x":"-1","y":"-1","w":"-1","h":"-1","count":"2"})");
    ASSERT_EQ(run.images.size(), 2u);
    // The second image keeps the input inside both accepted boxes only.
    cv::Mat expected = image.clone();
    expected(cv::Rect(10, 30, 20, 5)).setTo(0);
    EXPECT_TRUE(SameImage(run.images[1], expected));
    EXPECT_EQ(cv::countNonZero(run.images[0]), 36);
    EXPECT_EQ(CountOf(m_trace, "is success.\n"), 2);
    EXPECT_EQ(CountOf(m_trace, "is fail.\n"), 1);

    // Without the wide blob the last accepted blob is reported.
    image(cv::Rect(10, 30, 20, 5)).setTo(0);
    EXPECT_EQ(One(L"DetectMultiPinholeFilter", {{L"Minsize", L"3"}, {L"Maxsize", L"10"}}, image).result,
              R"({"x":"33","y":"11","w":"6","h":"6","count":"2"})");
}

TEST_F(PinFilterTest, DiagnosisReportsLabelsAndLargestBlob) {
    const Outcome none = One(L"DiagnosisFilter", {}, cv::Mat::zeros(12, 16, CV_8UC1));
    EXPECT_EQ(none.result, R"({"LabelCount":"1", "ImageWidth":"16", "ImageHeight":"12", "MaxArea":"0", )"
                           R"("x":"0.000000", "y":"0.000000"})");
    ASSERT_EQ(none.images.size(), 1u);

    cv::Mat image = cv::Mat::zeros(40, 40, CV_8UC1);
    image(cv::Rect(2, 2, 3, 3)).setTo(255);
    image(cv::Rect(20, 21, 7, 4)).setTo(255);
    // Diagonal neighbours join only with 8-connectivity.
    image.at<uchar>(5, 5) = 255;
    const Outcome four = One(L"DiagnosisFilter", {}, image);
    EXPECT_EQ(Field(four.result, "LabelCount"), 4);
    EXPECT_EQ(Field(four.result, "MaxArea"), 28);
    EXPECT_EQ(Field(four.result, "x"), 23.5);
    EXPECT_EQ(Field(four.result, "y"), 23.0);
    EXPECT_EQ(Field(One(L"DiagnosisFilter", {{L"Near", L"true"}}, image).result, "LabelCount"), 3);
}

TEST_F(PinFilterTest, SizeToleranceCountsAndSharesThePriorityDebugFile) {
    cv::Mat image = cv::Mat::zeros(40, 50, CV_8UC1);
    image(cv::Rect(3, 3, 5, 5)).setTo(1);  // any non-zero level counts
    image(cv::Rect(20, 10, 6, 9)).setTo(255);
    image(cv::Rect(35, 30, 14, 4)).setTo(255);  // too wide
    const Outcome run = One(L"SizeToleranceFilter", {{L"Minsize", L"4"}, {L"Maxsize", L"10"}, {L"weight", L"2"}}, image);
    EXPECT_EQ(run.result, R"({"x":"23","y":"14","count":"2"})");
    EXPECT_EQ(run.images.size(), 2u);
    EXPECT_TRUE(fs::exists(platform::NativePath(L"C:/PROBERPARAM/ParaImg/PinImage/PintipPriorityFilter_image.png")));
}

// ---------------------------------------------------------------------------
// PinMaskFilter and PinBlobModeSelector
// ---------------------------------------------------------------------------

TEST_F(PinFilterTest, PinMaskFillsRingHoleAndCutsOrigin) {
    cv::Mat origin(60, 70, CV_8UC1);
    for (int y = 0; y < origin.rows; ++y)
        for (int x = 0; x < origin.cols; ++x) origin.at<uchar>(y, x) = static_cast<uchar>(40 + x + 2 * y);
    cv::Mat ring = cv::Mat::zeros(64, 66, CV_8UC1);  // larger than the origin in one side
    cv::circle(ring, cv::Point(33, 30), 15, cv::Scalar(255), 4);
    const Outcome run = Recipe({Source(L"o", 1), Source(L"k", 2),
                            Node(L"f", L"PinMaskFilter", true, {}, {{1, L"o"}, {2, L"k"}})},
                           {origin, ring}, L"f");
    ASSERT_EQ(run.images.size(), 1u);
    cv::Mat disc = cv::Mat::zeros(60, 66, CV_8UC1);
    cv::circle(disc, cv::Point(33, 30), 15, cv::Scalar(255), 4);
    cv::circle(disc, cv::Point(33, 30), 15, cv::Scalar(255), cv::FILLED);
    cv::Mat expected = origin(cv::Rect(0, 0, 66, 60)) & disc;
    EXPECT_TRUE(SameImage(run.images[0], expected));
    EXPECT_EQ(m_trace, "PinMaskFilter is success.\n");
    EXPECT_TRUE(fs::exists(platform::NativePath(L"C:/PROBERPARAM/ParaImg/PinImage/PinMaskFilter_image.png")));
}

TEST_F(PinFilterTest, PinMaskPairsUpToTheShorterListAndFailsOnNothingKept) {
    auto filter = Make(L"PinMaskFilter");
    cv::Mat origin(8, 8, CV_8UC1, cv::Scalar(9));
    cv::Mat mask = cv::Mat::zeros(8, 8, CV_8UC1);
    mask(cv::Rect(2, 2, 3, 3)).setTo(255);
    std::vector<cv::Mat> out = RunPins(*filter, {{1, {origin, origin, origin}}, {2, {mask}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(out[0]), 9);
    // A blank mask keeps nothing: a zero image and the fail line.
    out = RunPins(*filter, {{2, {cv::Mat::zeros(8, 8, CV_8UC1), mask}}});
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(cv::countNonZero(out[0]), 0);
    EXPECT_EQ(m_trace, "PinMaskFilter is success.\nPinMaskFilter is fail.\nPinMaskFilter is success.\n");
}

TEST_F(PinFilterTest, ModeSelectorPullsTheSelectedBranchOnly) {
    ScopedTestTypes types;
    cv::Mat image(4, 4, CV_8UC1, cv::Scalar(10));
    for (const bool autoMode : {false, true}) {
        std::vector<std::wstring> nodes{
            Node(L"sel", L"PinBlobModeSelector", true, {{L"AutoMode", autoMode ? L"true" : L"false"}},
                 {{1, L"a"}, {2, L"m"}}),
            Node(L"a", L"TestCounting", false, {{L"Offset", L"5"}}, {{1, L"s"}}),
            Node(L"m", L"TestCounting", false, {{L"Offset", L"20"}}, {{1, L"s"}}), Source(L"s", 1)};
        std::vector<MasterImage> masters{{&image, 1}};
        std::vector<cv::Mat> out;
        const std::wstring doc = RunRecipe(nodes, masters, out);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].at<uchar>(0, 0), autoMode ? 15 : 30);
        // A filter that never ran is not listed in the document.
        EXPECT_EQ(doc.find(L"\"Key\":\"a\"") != std::wstring::npos, autoMode) << platform::ToUtf8(doc);
        EXPECT_EQ(doc.find(L"\"Key\":\"m\"") != std::wstring::npos, !autoMode) << platform::ToUtf8(doc);
    }
}

// ---------------------------------------------------------------------------
// FindMarkCenterFilter and HoughCirclesFilter
// ---------------------------------------------------------------------------

struct MarkCase {
    const char* name;
    int level, background;
    ParamList params;
    double noise = 4;
    int rimGrowth = 0;  // the gradient's rim reaches half the element beyond the disc
};

class MarkCentre : public PinFilterTest, public ::testing::WithParamInterface<MarkCase> {};

TEST_P(MarkCentre, DiscCentreAndRadiusWithinTwoPixels) {
    const MarkCase& c = GetParam();
    const cv::Point2f centre(213.4f, 171.7f);
    ParamList params{{L"radius", L"60"}, {L"minSize", L"50"}, {L"maxSize", L"70"}};
    params.insert(params.end(), c.params.begin(), c.params.end());
    const Outcome run = One(L"FindMarkCenterFilter", params, Mark({400, 320}, centre, 60, c.level, c.background, c.noise));
    EXPECT_EQ(Field(run.result, "resultCode"), 0) << run.result;
    EXPECT_NEAR(Field(run.result, "centerX"), centre.x, 2.0) << run.result;
    EXPECT_NEAR(Field(run.result, "centerY"), centre.y, 2.0) << run.result;
    EXPECT_NEAR(Field(run.result, "radius"), 60 + c.rimGrowth, 2.0) << run.result;
    std::printf("%s: centre error %.2f, %.2f px, radius error %.2f px\n", c.name,
                Field(run.result, "centerX") - centre.x, Field(run.result, "centerY") - centre.y,
                Field(run.result, "radius") - 60 - c.rimGrowth);
    ASSERT_EQ(run.images.size(), 1u);
    EXPECT_EQ(run.images[0].type(), CV_8UC3);
}

INSTANTIATE_TEST_SUITE_P(
    Pin, MarkCentre,
    ::testing::Values(MarkCase{"BrightDisc", 200, 40, {{L"threshold", L"120"}}},
                      MarkCase{"DarkDiscInverted", 40, 200, {{L"threshold", L"120"}, {L"invert", L"true"}}},
                      // Nothing above the first threshold of 100; the lowered
                      // 80 falls halfway up the disc's edge.
                      MarkCase{"DimDiscOnLoweredThreshold", 90, 70, {{L"threshold", L"100"}}, 1},
                      MarkCase{"ClosingFiveWide", 200, 40, {{L"threshold", L"120"}, {L"filterSize", L"5"}}},
                      MarkCase{"GradientRim", 200, 40,
                               {{L"threshold", L"120"}, {L"filterSize", L"3"}, {L"morphology", L"1"}}, 4, 1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PinFilterTest, MarkCentreRefusesRadiusOutsideSizesAndLowersThresholdForLaterImages) {
    const cv::Mat disc = Mark({200, 160}, {100, 80}, 30, 200, 40);
    // Sizes left at 0 refuse the circle.
    EXPECT_EQ(One(L"FindMarkCenterFilter", {}, disc).result, R"({"resultCode":"-1"})");

    // Two images: a blank one lowers 100 to 80 and the second image, a disc
    // at 90, is then found at once.
    auto filter = Make(L"FindMarkCenterFilter");
    SetParams(*filter, {{L"threshold", L"100"}, {L"radius", L"30"}, {L"minSize", L"20"}, {L"maxSize", L"40"}});
    const std::vector<cv::Mat> out =
        RunPins(*filter, {{1, {cv::Mat::zeros(160, 200, CV_8UC1), Mark({200, 160}, {100, 80}, 30, 90, 0)}}});
    EXPECT_EQ(out.size(), 2u);
    const std::string text = platform::ToUtf8(filter->GetResult());
    EXPECT_EQ(text.rfind(R"({"resultCode":"-1"}{"centerX":)", 0), 0u) << text;
    EXPECT_NEAR(Field(text, "centerX"), 100, 2.0) << text;
}

TEST_F(PinFilterTest, HoughFindsFilledCircleOfRadius350WithDefaults) {
    const cv::Point2f centre(505.0f, 451.0f);
    // Light noise: on unsmoothed noise of sigma 4 the transform's edge map
    // holds some 100000 points and a run takes tens of seconds.
    const cv::Mat disc = Mark({1000, 900}, centre, 350, 190, 50, 2);
    const Outcome run = One(L"HoughCirclesFilter", {}, disc);
    EXPECT_NEAR(Field(run.result, "r"), 350, 2.0) << run.result;
    EXPECT_NEAR(Field(run.result, "x"), centre.x, 2.0) << run.result;
    EXPECT_NEAR(Field(run.result, "y"), centre.y, 2.0) << run.result;
    std::printf("Hough: centre error %.2f, %.2f px, radius error %.2f px\n", Field(run.result, "x") - centre.x,
                Field(run.result, "y") - centre.y, Field(run.result, "r") - 350);
    ASSERT_EQ(run.images.size(), 1u);
    EXPECT_EQ(run.images[0].size(), cv::Size(1000, 900));

    // The same circle is below the default radius range once halved.
    cv::Mat small;
    cv::resize(disc, small, {500, 450});
    EXPECT_EQ(One(L"HoughCirclesFilter", {}, small).result, R"({"r":"-1"})");
}

// ---------------------------------------------------------------------------
// Unusable images and parameters: every filter returns, nothing is touched
// outside an image (the sanitizer build checks the latter).
// ---------------------------------------------------------------------------

const wchar_t* const kPinFilters[] = {
    L"PintipPriorityFilter", L"FindPinholeFilter",   L"FindPintipFilter", L"NearEdgeFilter",
    L"DetectMultiPinholeFilter", L"DiagnosisFilter", L"SizeToleranceFilter", L"PinBlobModeSelector",
    L"PinMaskFilter",        L"FindMarkCenterFilter", L"HoughCirclesFilter"};

class PinFilterInputs : public PinFilterTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(PinFilterInputs, UnusableImagesAndExtremeParametersAreContained) {
    const ParamList extremes[] = {
        {},
        {{L"Minsize", L"-5"}, {L"Maxsize", L"2147483647"}, {L"weight", L"1e30"}, {L"Erosion", L"-2147483648"},
         {L"Near", L"true"}, {L"AutoMode", L"true"}, {L"radius", L"2147483647"}, {L"minSize", L"-1"},
         {L"maxSize", L"2147483647"}, {L"threshold", L"-1000"}, {L"filterSize", L"2147483647"},
         {L"morphology", L"7"}, {L"MinRadius", L"-5"}, {L"MaxRadius", L"2147483647"}, {L"MinDist", L"1"},
         {L"Canny", L"1"}},
        {{L"Minsize", L"0"}, {L"Maxsize", L"480"}, {L"weight", L"nan"}, {L"Erosion", L"10"},
         {L"filterSize", L"-3"}, {L"threshold", L"1000"}, {L"MinRadius", L"0"}, {L"MaxRadius", L"0"},
         {L"MinDist", L"0"}, {L"Canny", L"0"}}};
    cv::Mat blobs = cv::Mat::zeros(9, 9, CV_8UC1);
    blobs(cv::Rect(0, 0, 3, 3)).setTo(255);
    blobs(cv::Rect(5, 4, 4, 5)).setTo(128);
    const cv::Mat images[] = {cv::Mat(), cv::Mat(1, 1, CV_8UC1, cv::Scalar(255)), cv::Mat(1, 1, CV_8UC1, cv::Scalar(0)),
                              cv::Mat(5, 7, CV_8UC3, cv::Scalar(255, 0, 9)), cv::Mat(4, 4, CV_16UC1, cv::Scalar(900)),
                              blobs, cv::Mat(1, 40, CV_8UC1, cv::Scalar(200))};
    for (const ParamList& params : extremes) {
        for (const cv::Mat& image : images) {
            auto filter = Make(GetParam());
            ASSERT_NE(filter, nullptr);
            SetParams(*filter, params);
            std::vector<cv::Mat> copies{image, image};
            std::vector<cv::Mat*> one{&copies[0]}, two{&copies[0], &copies[1]};
            filter->GetPin(1)->SetImage(one);
            if (IPin* second = filter->GetPin(2)) second->SetImage(two);
            std::vector<cv::Mat*> out;
            EXPECT_NO_THROW(out = filter->GetPin(-1)->GetImage());
            // No output larger than the largest input; an image that is not
            // one-channel 8-bit with pixels is refused (no output) by all
            // but the selector, which only passes images on.
            for (const cv::Mat* m : out) EXPECT_LE(m->total(), 81u);
            if ((image.empty() || image.type() != CV_8UC1) && std::wstring(GetParam()) != L"PinBlobModeSelector") {
                EXPECT_TRUE(out.empty());
            }
            EXPECT_NE(filter->GetResult(), nullptr);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pin, PinFilterInputs, ::testing::ValuesIn(kPinFilters),
                         [](const auto& info) { return platform::ToUtf8(info.param); });

// ---------------------------------------------------------------------------
// The sample recipes, through the pixmill tool on the images its demo draws
// ---------------------------------------------------------------------------

#ifdef PIXMILL_CLI_PATH
std::string RunTool(const fs::path& root, const std::string& args, int& exitCode) {
    const std::string command = "cd '" + root.string() + "' && PIXMILL_ROOT='" + root.string() + "' '" +
                                PIXMILL_CLI_PATH "' " + args + " 2>&1";
    std::string output;
    exitCode = -1;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return output;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) output.append(buf.data(), n);
    const int status = ::pclose(pipe);
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

TEST_F(PinFilterTest, SampleRecipesRunOnTheDemoImages) {
    const fs::path root = m_root->path();
    int code = -1;
    std::string out = RunTool(root, "demo --root demo", code);
    ASSERT_EQ(code, 0) << out;
    // The source tree, as the build tree's cache names it.
    std::ifstream cache(fs::path(PIXMILL_CLI_PATH).parent_path().parent_path() / "CMakeCache.txt");
    std::string line, source;
    while (std::getline(cache, line))
        if (line.rfind("CMAKE_HOME_DIRECTORY:INTERNAL=", 0) == 0) source = line.substr(line.find('=') + 1);
    ASSERT_FALSE(source.empty());
    const fs::path examples = fs::path(source) / "examples";

    out = RunTool(root, "run '" + (examples / "pintip_recipe.json").string() + "' demo/images/pins.png --raw --out p",
                  code);
    ASSERT_EQ(code, 0) << out;
    // The demo's tip nearest the card window's centre is at (336, 252).
    EXPECT_NEAR(Field(out, "x"), 336, 1.0) << out;
    EXPECT_NEAR(Field(out, "y"), 252, 1.0) << out;
    EXPECT_EQ(Field(out, "count"), 1) << out;

    out = RunTool(root, "run '" + (examples / "mark_center_recipe.json").string() + "' demo/images/mark.png --raw",
                  code);
    ASSERT_EQ(code, 0) << out;
    // The demo's mark: radius 80 at (352.5, 207.5).
    EXPECT_EQ(Field(out, "resultCode"), 0) << out;
    EXPECT_NEAR(Field(out, "centerX"), 352.5, 2.0) << out;
    EXPECT_NEAR(Field(out, "centerY"), 207.5, 2.0) << out;
    EXPECT_NEAR(Field(out, "radius"), 80, 2.0) << out;
}
#endif

}  // namespace
}  // namespace pixmill::test
