// The pin tip searches: drawn camera images with known tips, every result
// code from an input made for it, the search steps and image routines on
// their own, and the inspection toolkit.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"
#include "inspect/Inspection.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFindEX.h"
#include "inspect/pin/PinImage.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace pixmill::inspect::pin {
namespace {

namespace fs = std::filesystem;

// The arguments of one call; the prober's usual values unless a case says.
struct Call {
    enum Search { kFind, kWrap, kEX, kCrown } search = kFind;
    int sx = 200, sy = 200, sType = CIRCLE, aType = RECTANGLE, tx = 40, ty = 40;
    double ratio = 0.01, divisor = 2.0, maxRadius = 280.0, verify = 0.5;
    int mode = -1, alpha = 30;
    double beta = 0.5;
};

PinFindResult Search(const Call& c) {
    switch (c.search) {
        case Call::kWrap:
            return VBcvPinFind_WRAP(c.sx, c.sy, c.sType, c.aType, c.tx, c.ty, c.ratio, c.divisor,
                                    c.maxRadius, 0.0, c.mode);
        case Call::kEX:
            return VBcvPinFindEX(c.sx, c.sy, c.sType, c.aType, c.tx, c.ty, c.ratio, c.divisor,
                                 c.maxRadius, 0.0, c.verify, c.mode);
        case Call::kCrown:
            return VBcvCrownPinFind(c.sx, c.sy, c.sType, c.aType, c.tx, c.ty, c.ratio, c.divisor,
                                    c.maxRadius, 0.0, c.verify, c.mode, c.alpha, c.beta);
        default:
            return VBcvPinFind(c.sx, c.sy, c.sType, c.aType, c.tx, c.ty, c.ratio, c.divisor,
                               c.maxRadius, 0.0);
    }
}

constexpr Call::Search kEX = Call::kEX, kCrown = Call::kCrown;

// A 480 x 480 textured background: blurred noise around 60, always the same.
cv::Mat Background() {
    cv::Mat noise(480, 480, CV_32F), image;
    cv::RNG rng(7);
    rng.fill(noise, cv::RNG::NORMAL, 60, 6);
    cv::GaussianBlur(noise, noise, cv::Size(3, 3), 0);
    noise.convertTo(image, CV_8U);
    return image;
}

cv::Mat Disc(cv::Mat image, cv::Point centre, int radius) {
    cv::circle(image, centre, radius, 230, cv::FILLED, cv::LINE_8);
    return image;
}

cv::Mat Block(cv::Mat image, cv::Rect r) {
    image(r).setTo(230);
    return image;
}

class PinFindTest : public test::InspectionTest {
protected:
    void SetUp() override {
        InspectionTest::SetUp();
        SetPinImageSaveMode(-1);
    }
    void TearDown() override {
        SetPinImageSaveMode(-1);
        InspectionTest::TearDown();
    }
    void WriteInput(const cv::Mat& image) {
        const std::string native = platform::NativePath(kPinInputImage);
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, image));
    }
    std::vector<std::string> FailureImages() const {
        std::vector<std::string> names;
        const fs::path folder = platform::NativePath(std::wstring(kPinFailureFolder));
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    bool DebugImage(const wchar_t* name) const {
        return platform::FileExists(platform::NativePath(std::wstring(kPinDebugFolder) + name));
    }
};

// ---------------------------------------------------------------------------
// Tips found where they were drawn
// ---------------------------------------------------------------------------

struct TipCase {
    const char* name;
    Call call;
    bool disc;         // else a rectangle
    int dx, dy, w, h;  // tip centre offset from the image centre, tip size
};

class TipPositionTest : public PinFindTest, public ::testing::WithParamInterface<TipCase> {};

TEST_P(TipPositionTest, OffsetWithinTwoPixels) {
    const TipCase& t = GetParam();
    const cv::Point centre(240 + t.dx, 240 + t.dy);
    WriteInput(
        t.disc ? Disc(Background(), centre, t.w / 2)
               : Block(Background(), cv::Rect(centre.x - t.w / 2, centre.y - t.h / 2, t.w, t.h)));
    const PinFindResult r = Search(t.call);
    ASSERT_EQ(r.Code, 0.0) << m_trace;
    EXPECT_NEAR(r.X, t.dx, 2.0);
    EXPECT_NEAR(r.Y, t.dy, 2.0);

    const char* tag = t.call.search == Call::kEX      ? "[VBcvPinFindEX]"
                      : t.call.search == Call::kCrown ? "[VBcvCrownPinFind]"
                                                      : "[VBcvPinFind]";
    EXPECT_NE(m_trace.find(Format("%s Center point(X : %0.0lf, Y : %0.0lf) \n%s End \n", tag, r.X,
                                  r.Y, tag)),
              std::string::npos)
        << m_trace;
    EXPECT_TRUE(DebugImage(L"pinDebug.jpg"));
    EXPECT_TRUE(FailureImages().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Tips, TipPositionTest,
    ::testing::Values(
        TipCase{"DiscRightUp", {}, true, 17, -11, 40, 40},
        TipCase{"DiscLeftDown", {}, true, -23, 14, 40, 40},
        TipCase{"SmallDisc", {.tx = 30, .ty = 30}, true, 31, 27, 30, 30},
        // The size search grows the window from tx 24 to the drawn 48.
        TipCase{"GrowsToLargerDisc", {.tx = 24, .ty = 24}, true, -19, 9, 48, 48},
        TipCase{"Square", {.sType = RECTANGLE}, false, 17, -11, 40, 40},
        TipCase{"Oblong", {.sType = RECTANGLE, .tx = 36, .ty = 28}, false, -23, 14, 36, 28},
        TipCase{"DiscVerified", {.search = Call::kEX}, true, 17, -11, 40, 40},
        // A single scan needs a window that holds the whole outline.
        TipCase{
            "SquareVerified", {.search = Call::kEX, .sType = RECTANGLE}, false, 17, -11, 36, 36},
        TipCase{"DiscCrown", {.search = Call::kCrown}, true, -23, 14, 40, 40}),
    [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Every result code from an input made for it
// ---------------------------------------------------------------------------

struct FailCase {
    const char* name;
    cv::Mat (*image)();  // null: no input file
    Call call;
    int code;
    const char* line;                 // traced
    const char* absent;               // not traced (may be null)
    bool failureImages, canvas;       // O_/P_ images written; pinDebug.jpg written
    double x = -1, y = -1, near = 0;  // result position, and how near it must be
};

class FailureCodeTest : public PinFindTest, public ::testing::WithParamInterface<FailCase> {};

TEST_P(FailureCodeTest, CodeLineAndImages) {
    const FailCase& f = GetParam();
    if (f.image) WriteInput(f.image());
    const PinFindResult r = Search(f.call);
    EXPECT_EQ(r.Code, f.code);
    EXPECT_NEAR(r.X, f.x, f.near);
    EXPECT_NEAR(r.Y, f.y, f.near);
    EXPECT_NE(m_trace.find(f.line), std::string::npos) << m_trace;
    if (f.absent) {
        EXPECT_EQ(m_trace.find(f.absent), std::string::npos) << m_trace;
    }
    EXPECT_EQ(m_trace.find("End"), std::string::npos);
    if (f.failureImages)
        EXPECT_EQ(FailureImages(),
                  (std::vector<std::string>{"O_261121_103015.jpg", "P_261121_103015.jpg"}));
    else
        EXPECT_TRUE(FailureImages().empty());
    EXPECT_EQ(DebugImage(L"pinDebug.jpg"), f.canvas);
}

// Purpose-made camera images.
// clang-format off
cv::Mat BlackImage() { return cv::Mat::zeros(480, 480, CV_8UC1); }
// Edges that survive the cleaning, but no blob of area 10.
cv::Mat FaintDots() {
    cv::Mat m = BlackImage();
    m.at<uchar>(240, 240) = m.at<uchar>(200, 260) = 40;
    return m;
}
cv::Mat SmallDisc() { return Disc(Background(), {240, 240}, 8); }
cv::Mat SmallSquare() { return Block(Background(), cv::Rect(235, 235, 10, 10)); }
cv::Mat CentredDisc() { return Disc(Background(), {240, 240}, 20); }
cv::Mat DiscCutLeft() { return Disc(Background(), {135, 240}, 20); }  // 5 px left of the area
cv::Mat TallBar() { return Block(Background(), cv::Rect(215, 130, 50, 220)); }
// A square in the corner of a circular area, on a clean background: no
// window whose corner lies inside the circle reaches it, so the position
// stays at its start (0, box width) and touches the border. The box is 22
// wide (16 and an edge fringe of 3 each side): X = 8 + 0 - 100, Y = 8 + 22 - 100.
cv::Mat CornerSquare() { return Block(BlackImage(), cv::Rect(148, 148, 16, 16)); }
cv::Mat DiscsAboveEachOther() { return Disc(Disc(Background(), {240, 190}, 20), {240, 290}, 20); }
cv::Mat DiscsSideBySide() { return Disc(Disc(Background(), {190, 240}, 20), {290, 240}, 20); }
// A thin line crossing the tip's columns, far below it.
cv::Mat DiscAndLineBelow() {
    cv::Mat m = Disc(Background(), {240, 200}, 20);
    cv::line(m, {215, 300}, {265, 300}, 230, 1);
    return m;
}

INSTANTIATE_TEST_SUITE_P(Codes, FailureCodeTest, ::testing::Values(
    // tx 3 with sx 102: the tip check comes first, before the file.
    FailCase{"TipTooSmallFirst", nullptr, {.sx = 102, .tx = 3}, 12,
             "[VBcvPinFind] Fail : Parameter Error (Too small tx or ty)\n", "multiple", false, false},
    FailCase{"AreaNotMultipleOf4", nullptr, {.sy = 102}, 11,
             "[VBcvPinFind] Fail : Parameter Error (sx or sy is not a multiple of 4)\n", nullptr, false, false},
    FailCase{"NoFile", nullptr, {.search = kEX}, 2,
             "[VBcvPinFindEX] Fail : File Error\n", nullptr, false, false},
    FailCase{"AreaOutsideImage", BlackImage, {.sx = 484}, 2,
             "[VBcvPinFind] Fail : File Error\n", nullptr, false, false},
    FailCase{"NoEdge", BlackImage, {}, 3,
             "[VBcvPinFind] Fail : Too few edge data Error(0 < 0.01)\n", nullptr, true, false},
    FailCase{"NoBox", FaintDots, {.sType = RECTANGLE, .tx = 4, .ty = 4, .ratio = 0}, 4,
             "[VBcvPinFind] Fail : Box is not exist.\n", nullptr, true, true},
    FailCase{"CircleTooSmall", SmallDisc, {.tx = 60, .ty = 60, .divisor = 1}, 5,
             "[VBcvPinFind] Fail : Box Size Error(MIN), User size(60, 60), Bounding size(", nullptr, true, true},
    FailCase{"BoxTooSmall", SmallSquare, {.sType = RECTANGLE, .divisor = 1}, 5,
             "[VBcvPinFind] Fail : Box Size Error(MIN), User size(40, 40), Bounding size(", nullptr, true, true},
    FailCase{"CircleTooLarge", CentredDisc, {.maxRadius = 10}, 6,
             "[VBcvPinFind] Fail : EC Size Error(MAX), EC Rad : (", nullptr, true, true},
    // The move estimates the tip's centre, 105 pixels left, from the part in view.
    FailCase{"CutByLeftBorder", DiscCutLeft, {.divisor = 4}, 7,
             "[L, -10", "Fail", true, true, -105, 0, 5},
    FailCase{"NoCornerInCircle", TallBar, {.sx = 100, .sy = 300, .sType = RECTANGLE, .aType = CIRCLE, .ty = 200}, 8,
             "[VBcvPinFind] Search area & Pin Size matching Error\n", nullptr, true, true},
    FailCase{"OnTheBorder", CornerSquare, {.sType = RECTANGLE, .aType = CIRCLE, .tx = 16, .ty = 16}, 10,
             "[VBcvPinFind] Fail : Pin on the edge\n", nullptr, true, true, -92, -70},
    FailCase{"RivalInRows", DiscsAboveEachOther, {.search = kEX, .verify = 0.8}, 13,
             "[VBcvPinFindEX] Verify Fail\n[VBcvPinFindEX] X Ivalue : ", "Y Ivalue", true, true},
    FailCase{"RivalInColumns", DiscsSideBySide, {.search = kEX, .verify = 0.8}, 13,
             "[VBcvPinFindEX] Verify Fail\n[VBcvPinFindEX] Y Ivalue : ", "X Ivalue", true, true},
    // At factor 0 every window outside the guard bands is a rival.
    FailCase{"VerifyFactorZero", CentredDisc, {.search = kEX, .verify = 0}, 13,
             "[VBcvPinFindEX] Over the pixel count(Edge Sum) : ", nullptr, true, true},
    FailCase{"CrownAlpha240", nullptr, {.search = kCrown, .alpha = 240}, 12,
             "[VBcvCrownPinFind] Fail : Parameter Error (Alpha or Beta)\n", nullptr, false, false},
    FailCase{"CrownBeta1", nullptr, {.search = kCrown, .beta = 1.0}, 12,
             "[VBcvCrownPinFind] Fail : Parameter Error (Alpha or Beta)\n", nullptr, false, false},
    FailCase{"CrownTipAsLargeAsArea", nullptr, {.search = kCrown, .tx = 200}, 12,
             "[VBcvCrownPinFind] Fail : Parameter Error (Tip size >= Search area)\n", nullptr, false, false},
    FailCase{"CrownRivalRows", DiscAndLineBelow, {.search = kCrown}, 13,
             "[VBcvCrownPinFind] Verify Fail\n[VBcvCrownPinFind] X TH Value : ", "Y TH", true, true}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

// Inputs close to a failure that must pass: a line that fails the crown
// test is no rival window; 58 pixels apart, a second disc lies across the end
// of the 30-pixel guard band (a 20-pixel band would let it in); no window of
// 70 fits outside the bands in an area of 100, so even factor 0 passes.
TEST_F(PinFindTest, NearRivalsThatAreNoRivals) {
    const std::pair<cv::Mat, Call> cases[] = {
        {DiscAndLineBelow(), {.search = kEX}},
        {Disc(Disc(Background(), {240, 190}, 20), {240, 248}, 20), {.search = kEX, .verify = 0.8}},
        {Disc(Background(), {240, 240}, 35),
         {.search = kEX, .sx = 100, .sy = 100, .tx = 70, .ty = 70, .verify = 0}}};
    for (const auto& [image, call] : cases) {
        WriteInput(image);
        EXPECT_EQ(Search(call).Code, 0.0) << m_trace;
    }
}

// The number after "<tag> <axis> <key> : " in the trace.
double Traced(const std::string& trace, const std::string& key) {
    const size_t at = trace.find(key);
    return at == std::string::npos ? -1.0 : std::atof(trace.c_str() + at + key.size());
}

TEST_F(PinFindTest, CrownLevelIsBetaTimesTheTipsMeanLevel) {
    // The EX failure traces the tip's inside sum of rows; the crown level is
    // that sum over ty times Beta.
    WriteInput(DiscsAboveEachOther());
    ASSERT_EQ(Search({.search = kEX, .verify = 0.8}).Code, 13.0);
    const double inside = Traced(m_trace, "X Ivalue : ");
    m_trace.clear();
    ASSERT_EQ(Search({.search = kCrown, .beta = 0.3}).Code, 13.0);
    EXPECT_NEAR(Traced(m_trace, "X TH Value : "), inside / 40 * 0.3, 0.051) << m_trace;
}

// ---------------------------------------------------------------------------
// Failure images follow the save mode for codes 7 and 10 only
// ---------------------------------------------------------------------------

class SaveModeTest : public PinFindTest, public ::testing::WithParamInterface<int> {};

TEST_P(SaveModeTest, MoveAndBorderImagesFollowTheMode) {
    const int mode = GetParam();
    const bool kept = mode == -1 || mode == 3;
    WriteInput(DiscCutLeft());
    EXPECT_EQ(Search({.search = Call::kWrap, .divisor = 4, .mode = mode}).Code, 7.0);
    EXPECT_EQ(FailureImages().size(), kept ? 2u : 0u);
    fs::remove_all(platform::NativePath(std::wstring(kPinFailureFolder)));

    // The mode stays for later calls of the other searches.
    WriteInput(CornerSquare());
    EXPECT_EQ(Search({.sType = RECTANGLE, .aType = CIRCLE, .tx = 16, .ty = 16}).Code, 10.0);
    EXPECT_EQ(FailureImages().size(), kept ? 2u : 0u);
    fs::remove_all(platform::NativePath(std::wstring(kPinFailureFolder)));

    // Other codes write them whatever the mode.
    WriteInput(BlackImage());
    EXPECT_EQ(Search({}).Code, 3.0);
    EXPECT_EQ(FailureImages().size(), 2u);
    EXPECT_EQ(PinImageSaveMode(), mode);
}

INSTANTIATE_TEST_SUITE_P(Modes, SaveModeTest, ::testing::Values(-1, 0, 3, 5));

// Arguments and files no prober sends: each gets a defined answer.
TEST_F(PinFindTest, HostileInputsGetDefinedCodes) {
    WriteInput(CentredDisc());
    // A huge tip: its area overflows no integer, and the ratio fails; let
    // through every test, no window fits, so no tip was found: code 8, never
    // a found tip at the scan's starting point (the crown search refuses a
    // tip larger than its area up front, with 12).
    EXPECT_EQ(Search({.tx = INT_MAX, .ty = INT_MAX}).Code, 3.0);
    for (auto [search, code] : {std::pair{Call::kFind, 8.0}, {kEX, 8.0}, {kCrown, 12.0}})
        EXPECT_EQ(Search({.search = search, .tx = INT_MAX, .ty = INT_MAX, .ratio = 0, .divisor = 1e12}).Code,
                  code);
    EXPECT_EQ(Search({.divisor = 0}).Code, 5.0);  // no blob is large enough
    EXPECT_EQ(Search({.search = kCrown, .beta = std::nan("")}).Code, 12.0);
    ASSERT_TRUE(platform::WriteWholeFile(platform::NativePath(kPinInputImage), "BM not a bitmap"));
    EXPECT_EQ(Search({}).Code, 2.0);
}

// ---------------------------------------------------------------------------
// Border flags and moves
// ---------------------------------------------------------------------------

struct FlagCase {
    const char* name;
    int cx, cy, w, h;
    const char* label;  // null: search
    double x, y;
};

class BorderMoveTest : public ::testing::TestWithParam<FlagCase> {};

// Area 200 x 160, tip 40 x 24, box 20 x 16 unless a case spans an axis.
// Moves: Xl = 25 - 100 - 20, Xr = 100 - 25 + 20, Yu = 21 - 80 - 12,
// Yd = 80 - 21 + 12, Xc = cx - 100, Yc = cy - 80.
TEST_P(BorderMoveTest, TableRow) {
    const FlagCase& c = GetParam();
    PinBoxResult box;
    box.center = {c.cx, c.cy};
    box.width = c.w;
    box.height = c.h;
    const BorderMove m = BorderMoveOf(BorderFlagsOf(box, 200, 160), box, 200, 160, 40, 24);
    ASSERT_EQ(m.label == nullptr, c.label == nullptr);
    if (c.label) {
        EXPECT_STREQ(m.label, c.label);
        EXPECT_EQ(std::pair(m.x, m.y), std::pair(c.x, c.y));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BorderMoveTest,
    ::testing::Values(FlagCase{"None", 100, 80, 20, 16, nullptr, 0, 0},
                      FlagCase{"L", 10, 70, 20, 16, "L", -95, -10},
                      FlagCase{"D", 110, 150, 20, 16, "D", 10, 71},
                      FlagCase{"RD", 190, 150, 20, 16, "R D", 95, 71},
                      FlagCase{"LUD", 10, 80, 20, 160, "L U D", -95, 0},
                      FlagCase{"LDR", 100, 150, 200, 16, "L D R", 0, 71},
                      FlagCase{"RUD", 190, 80, 20, 160, "R U D", 95, 0},
                      FlagCase{"RL", 100, 80, 200, 16, nullptr, 0, 0},
                      FlagCase{"All", 100, 80, 200, 160, nullptr, 0, 0},
                      // Right side exactly on the limit: cx + 10 + 5 == 199, no R ...
                      FlagCase{"RightOnLimit", 184, 80, 20, 16, nullptr, 0, 0},
                      // ... bottom exactly on the limit: cy + 8 + 5 == 159, D.
                      FlagCase{"BottomOnLimit", 100, 146, 20, 16, "D", 0, 71}),
    [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Window scores and the size search
// ---------------------------------------------------------------------------

cv::Mat IntegralOf(const cv::Mat& image) {
    cv::Mat S;
    IntegralImage(image, S);
    return S;
}

TEST(PinSearchTest, WindowScores) {
    cv::Mat img(60, 70, CV_8UC1);
    cv::randu(img, 0, 256);
    const cv::Mat S = IntegralOf(img);
    auto sum = [&](int x, int y, int w, int h) { return cv::sum(img(cv::Rect(x, y, w, h)))[0]; };
    // Window at corner (3, 4) covers columns 3..22 and rows 4..19.
    EXPECT_EQ(WindowScore(S, 3, 4, 20, 16, RECTANGLE), sum(3, 4, 20, 16));
    // The octagon's cut a = 0.2929 * 10 gives the corner squares from the
    // window's sides to int(i + a - 1) = 4 and from int(i + tx - a - 1) = 19
    // (columns), int(j + a - 1) = 5 and int(j + ty - a - 1) = 16 (rows).
    const double corners =
        sum(3, 4, 2, 2) + sum(20, 4, 3, 2) + sum(3, 17, 2, 3) + sum(20, 17, 3, 3);
    EXPECT_EQ(WindowScore(S, 3, 4, 20, 16, CIRCLE), sum(3, 4, 20, 16) - corners);
    EXPECT_EQ(WindowScore(S, 3, 4, 20, 16, 5), 0.0);

    // A flat tip whose cut (5.86) exceeds its height: the lower cut row,
    // int(-1.86), lies above the image and is held at row 0. On an image of
    // ones: window 160 less cut sums 25, 30, 20 and 24.
    const cv::Mat ones = IntegralOf(cv::Mat::ones(10, 50, CV_8UC1));
    EXPECT_EQ(WindowScore(ones, 1, 1, 40, 4, CIRCLE), 61.0);
}

TEST(PinSearchTest, ChooseSizeTieRules) {
    // A tie goes to the larger size; rising scores choose none; the last
    // entry is never chosen.
    const std::pair<std::vector<float>, int> cases[] = {{{0.5f, 0.5f, 0.4f}, 1},
                                                        {{0.1f, 0.2f, 0.3f}, -1},
                                                        {{0.9f, 0.1f, 0.2f}, 0},
                                                        {{0.3f, 0.5f, 0.5f}, -1},
                                                        {{0.9f}, -1}};
    for (const auto& [scores, chosen] : cases) {
        std::vector<SizeEntry> entries;
        for (float s : scores) entries.push_back(SizeEntry{s, 0, 0, 0, 0});
        EXPECT_EQ(ChooseSize(entries.data(), static_cast<int>(entries.size())), chosen)
            << ::testing::PrintToString(scores);
    }
}

TEST(PinSearchTest, RisingScoresLeaveTheLargestSize) {
    SizeSearch s;
    s.count = 3;
    s.entries[0] = {0.2f, 40, 40, 5, 6};
    s.entries[1] = {0.3f, 44, 44, 7, 8};
    s.entries[2] = {0.4f, 48, 48, 9, 9};
    s.tx = s.ty = 52;
    s.position = {3, 4};
    ApplyChoice(s);
    EXPECT_EQ(s.tx, 52);
    EXPECT_EQ(s.position.x, 3.0f);
    s.entries[2].score = 0.3f;  // 0.2, 0.3, 0.3: still none
    ApplyChoice(s);
    EXPECT_EQ(s.tx, 52);
    s.entries[1].score = 0.5f;  // 0.2, 0.5, 0.3: the second
    ApplyChoice(s);
    EXPECT_EQ(s.tx, 44);
    EXPECT_EQ(s.position.y, 8.0f);
}

// ---------------------------------------------------------------------------
// Image routines and the inspection toolkit
// ---------------------------------------------------------------------------

TEST(PinImageTest, SobelEdgeSaturatesEachDerivativeAndTheirSum) {
    // Value 60 in the quadrant x >= 10, y >= 10.
    cv::Mat img = cv::Mat::zeros(30, 40, CV_8UC1), edge;
    img(cv::Rect(10, 10, 30, 20)).setTo(60);
    SobelEdgeImage(img, edge);
    EXPECT_EQ(edge.at<uchar>(9, 9), 120);    // dx 60, dy 60
    EXPECT_EQ(edge.at<uchar>(20, 9), 240);   // vertical side: dx 240
    EXPECT_EQ(edge.at<uchar>(10, 10), 255);  // dx 180 + dy 180 saturates
    EXPECT_EQ(edge.at<uchar>(20, 25), 0);
    // The border is replicated: a bright first column has a gradient there
    // (a reflected border would mirror the dark second column and give none).
    img.setTo(0);
    img.col(0).setTo(100);
    SobelEdgeImage(img, edge);
    EXPECT_EQ(edge.at<uchar>(15, 0), 255);
}

TEST(PinImageTest, CircleAndBoxOfTheFirstContour) {
    const cv::Mat black = cv::Mat::zeros(30, 40, CV_8UC1);
    cv::Mat square = black.clone(), circleImage = black.clone(), boxImage = black.clone();
    EXPECT_EQ(EnclosingCircleOf(black, circleImage).radius, 0.0);
    // The outline of a square from (10, 5) to (20, 15).
    cv::rectangle(square, cv::Point(10, 5), cv::Point(20, 15), 255, 1);
    const PinCircleResult c = EnclosingCircleOf(square, circleImage);
    EXPECT_EQ(c.center, cv::Point(15, 10));
    EXPECT_NEAR(c.radius, 5.0 * std::sqrt(2.0), 0.01);  // unrounded
    EXPECT_EQ(circleImage.at<uchar>(10, 22), 255);      // drawn with radius 7
    EXPECT_EQ(circleImage.at<uchar>(10, 23), 0);
    const PinBoxResult b = BoundingBoxOf(square, boxImage, -1);
    EXPECT_EQ(std::pair(b.width, b.height), std::pair(11.0, 11.0));
    EXPECT_EQ(b.center, cv::Point(15, 10));          // (2 * 10 + 11) / 2 cut
    EXPECT_EQ(cv::countNonZero(boxImage), 12 * 12);  // (x, y) to (x + w, y + h)
}

TEST(PinImageTest, MeansHullAndAreaFilter) {
    cv::Mat img = cv::Mat::zeros(20, 30, CV_8UC1);
    EXPECT_EQ(GrayMean(img), 0.0);
    EXPECT_TRUE(std::isnan(GrayMeanNonZero(img)));
    EXPECT_TRUE(std::isnan(GrayMean(cv::Mat())));
    EXPECT_EQ(GrayMean(cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(9))), 0.0);
    img(cv::Rect(0, 0, 10, 6)).setTo(50);  // 60 pixels of 50
    img(cv::Rect(20, 10, 2, 5)).setTo(200);  // 10 pixels of 200
    EXPECT_DOUBLE_EQ(GrayMean(img), (60 * 50 + 10 * 200) / 600.0);
    EXPECT_DOUBLE_EQ(GrayMeanNonZero(img), (60 * 50 + 10 * 200) / 70.0);

    // The hull of three dots is the outline of their triangle.
    cv::Mat dots = cv::Mat::zeros(20, 30, CV_8UC1), hull;
    for (cv::Point p : {cv::Point(2, 2), cv::Point(27, 2), cv::Point(2, 17)}) dots.at<uchar>(p) = 255;
    ConvexHullImage(dots, hull);
    cv::Mat expected = cv::Mat::zeros(20, 30, CV_8UC1);
    cv::polylines(expected, std::vector<cv::Point>{{2, 2}, {27, 2}, {2, 17}}, true, 255, 1, cv::LINE_8);
    EXPECT_EQ(cv::countNonZero(hull != expected), 0);
    ConvexHullImage(cv::Mat::zeros(20, 30, CV_8UC1), hull);
    EXPECT_EQ(cv::countNonZero(hull), 0);

    // Of a ring (area about 300) and a small square (area 16), only the ring
    // stays, its hole filled.
    cv::Mat blobs = cv::Mat::zeros(40, 60, CV_8UC1), kept;
    cv::circle(blobs, {15, 20}, 10, 255, 2);
    cv::rectangle(blobs, cv::Rect(40, 10, 5, 5), 255, cv::FILLED);
    AreaFilterContours(blobs, kept, 100.0);
    EXPECT_EQ(kept.at<uchar>(20, 15), 255);  // the hole
    EXPECT_EQ(kept.at<uchar>(12, 42), 0);    // the square is gone
}

TEST(PinImageTest, IntegralsAndBrightCentroid) {
    cv::Mat img(7, 9, CV_8UC1);
    cv::randu(img, 0, 256);
    cv::Mat S, reference;
    IntegralImage(img, S);
    cv::integral(img, reference, CV_64F);  // exclusive sums, one row and column larger
    for (int r = 0; r < img.rows; ++r)
        for (int c = 0; c < img.cols; ++c)
            ASSERT_FLOAT_EQ(S.at<float>(r, c), static_cast<float>(reference.at<double>(r + 1, c + 1)));
    std::vector<float> in(img.total()), out(img.total(), -1.0f);
    for (size_t i = 0; i < in.size(); ++i) in[i] = img.data[i];
    IntegralArray(in.data(), out.data(), img.cols, img.rows);
    EXPECT_FLOAT_EQ(out.back(), static_cast<float>(cv::sum(img)[0]));
    IntegralArray(nullptr, out.data(), img.cols, img.rows);  // does nothing
    IntegralArray(in.data(), out.data(), 0, img.rows);

    cv::Mat bright = cv::Mat::zeros(20, 30, CV_8UC1);
    bright(cv::Rect(4, 6, 3, 3)).setTo(255);   // centre (5, 7)
    bright(cv::Rect(20, 10, 2, 2)).setTo(254);  // not saturated: ignored
    EXPECT_EQ(BrightCentroid(bright, 0, 0, 0, 0), cv::Point(5, 7));
    EXPECT_EQ(BrightCentroid(bright, -5, -5, 1000, 1000), cv::Point(5, 7));
    EXPECT_EQ(BrightCentroid(bright, 10, 0, 30, 20), cv::Point(-1, -1));
}

TEST_F(PinFindTest, FailureImageNameFromLocalTime) {
    EXPECT_EQ(FailureImageName('O'), "O_261121_103015");  // the pinned clock
    // The year takes two places without a leading zero.
    platform::PinClockForTesting(test::LocalMillis(2009, 1, 2, 3, 4, 5));
    EXPECT_EQ(FailureImageName('P'), "P_ 90102_030405");
}

TEST(InspectionToolTest, GuardedRunsAnswerEveryEscape) {
    struct Result {
        int code = 0;
    };
    const Result failure{2};
    auto stray = [] { return Result{3}; };
    EXPECT_EQ(RunGuarded(failure, [] { return Result{5}; }, stray).code, 5);
    EXPECT_EQ(RunGuarded(failure, []() -> Result { throw std::runtime_error("x"); }, stray).code, 3);
    // When answering the failure fails too (out of memory while tracing), the
    // family's failure record comes back, never a value-initialised success.
    EXPECT_EQ(RunGuarded(failure, []() -> Result { throw 1; }, []() -> Result { throw std::bad_alloc(); }).code, 2);
}

}  // namespace
}  // namespace pixmill::inspect::pin
