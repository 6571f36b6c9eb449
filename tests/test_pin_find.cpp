// The pin tip searches: drawn camera images with known tips, every result
// code from an input made for it, and the search steps on their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFindEX.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pin {
namespace {

namespace fs = std::filesystem;

void Collect(const char* line, void* user) {
    static_cast<std::string*>(user)->append(line);
}

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

class PinFindTest : public test::PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        SetSavePauses(false);
        SetPinImageSaveMode(-1);
        logging::SetTraceSink(Collect, &m_trace);
    }
    void TearDown() override {
        SetSavePauses(true);
        SetPinImageSaveMode(-1);
        PixmillTest::TearDown();
    }
    void WriteInput(const cv::Mat& image) {
        const std::string native = platform::NativePath(kPinInputImage);
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, image));
    }
    std::vector<std::string> FailureImages() const {
        std::vector<std::string> names;
        const fs::path folder = platform::NativePath(PinFailureFolder());
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    bool DebugImage(const wchar_t* name) const {
        return platform::FileExists(platform::NativePath(std::wstring(kPinDebugFolder) + name));
    }
    std::string m_trace;
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

void PrintTo(const TipCase& c, std::ostream* os) {
    *os << c.name;
}

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
    const platform::VersionFields v = platform::OpenCvVersion();
    EXPECT_EQ(m_trace.rfind(Format("Version : %d,%d,%d,%d\n%s Start \n", v.major, v.minor,
                                   v.revision, v.build, tag),
                            0),
              0u)
        << m_trace;
    EXPECT_NE(m_trace.find(Format("%s Center point(X : %0.0lf, Y : %0.0lf) \n%s End \n", tag, r.X,
                                  r.Y, tag)),
              std::string::npos)
        << m_trace;
    for (const wchar_t* name :
         {L"pinEdge.jpg", L"pinECircle.jpg", L"pinBox.jpg", L"pinResult.jpg", L"pinDebug.jpg"})
        EXPECT_TRUE(DebugImage(name));
    EXPECT_EQ(DebugImage(L"PinEdgeGraph.jpg"), t.call.search != Call::kFind);
    EXPECT_TRUE(FailureImages().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Tips, TipPositionTest,
    ::testing::Values(
        TipCase{"DiscRightUp", {}, true, 17, -11, 40, 40},
        TipCase{"DiscLeftDown", {}, true, -23, 14, 40, 40},
        TipCase{"SmallDisc", {.tx = 30, .ty = 30}, true, 31, 27, 30, 30},
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
    const char* line;            // traced
    const char* absent;          // not traced (may be null)
    bool failureImages, canvas;  // O_/P_ images written; pinDebug.jpg written
    double x = -1, y = -1, near = 0;  // result position, and how near it must be
};

void PrintTo(const FailCase& c, std::ostream* os) {
    *os << c.name;
}

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
cv::Mat OneDot() { cv::Mat m = BlackImage(); m.at<uchar>(240, 240) = 255; return m; }
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
    FailCase{"NegativeArea", BlackImage, {.sx = -8}, 2,
             "[VBcvPinFind] Fail : File Error\n", nullptr, false, false},
    FailCase{"NoEdge", BlackImage, {}, 3,
             "[VBcvPinFind] Fail : Too few edge data Error(0 < 0.01)\n", nullptr, true, false},
    FailCase{"FewEdge", OneDot, {}, 3,
             "[VBcvPinFind] Fail : Too few edge data Error(0.00", nullptr, true, true},
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

TEST_F(PinFindTest, LineThatFailsTheCrownPassesTheWindowTest) {
    WriteInput(DiscAndLineBelow());
    EXPECT_EQ(Search({.search = Call::kEX}).Code, 0.0) << m_trace;
}

TEST_F(PinFindTest, RivalInsideTheGuardBandIsNoRival) {
    // 58 pixels apart, the second disc lies across the end of the 30-pixel
    // band: no window outside it holds 0.8 of the tip's sum. (A 20-pixel
    // band would let one in.)
    WriteInput(Disc(Disc(Background(), {240, 190}, 20), {240, 248}, 20));
    EXPECT_EQ(Search({.search = kEX, .verify = 0.8}).Code, 0.0) << m_trace;
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

TEST_F(PinFindTest, TipNearlyAsLargeAsTheAreaHasNoRival) {
    // No window of 70 fits outside 30-pixel bands in an area of 100.
    WriteInput(Disc(Background(), {240, 240}, 35));
    const PinFindResult r =
        Search({.search = Call::kEX, .sx = 100, .sy = 100, .tx = 70, .ty = 70, .verify = 0});
    EXPECT_EQ(r.Code, 0.0) << m_trace;
}

TEST_F(PinFindTest, EdgeGraphSize) {
    WriteInput(CentredDisc());
    ASSERT_EQ(Search({.search = Call::kEX, .sy = 160}).Code, 0.0) << m_trace;
    const cv::Mat graph =
        cv::imread(platform::NativePath(std::wstring(kPinDebugFolder) + L"PinEdgeGraph.jpg"));
    EXPECT_EQ(graph.cols, 160 + (200 + 3) * 3);  // rows, then three panels of cols + 3
    EXPECT_EQ(graph.rows, 256);
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
    fs::remove_all(platform::NativePath(PinFailureFolder()));

    // The mode stays for later calls of the other searches.
    WriteInput(CornerSquare());
    EXPECT_EQ(Search({.sType = RECTANGLE, .aType = CIRCLE, .tx = 16, .ty = 16}).Code, 10.0);
    EXPECT_EQ(FailureImages().size(), kept ? 2u : 0u);
    fs::remove_all(platform::NativePath(PinFailureFolder()));

    // Other codes write them whatever the mode.
    WriteInput(BlackImage());
    EXPECT_EQ(Search({}).Code, 3.0);
    EXPECT_EQ(FailureImages().size(), 2u);
    EXPECT_EQ(PinImageSaveMode(), mode);
}

INSTANTIATE_TEST_SUITE_P(Modes, SaveModeTest, ::testing::Values(-1, 0, 3, 5));

TEST_F(PinFindTest, UnknownTipShapeScoresNoWindow) {
    // No window is scored, so the position stays at (0, box width): on the
    // border, which only an area at least 46 pixels larger than the tip tests.
    WriteInput(CentredDisc());
    EXPECT_EQ(Search({.sType = 7}).Code, 10.0) << m_trace;
    EXPECT_NE(m_trace.find("[VBcvPinFind] Fail : Pin on the edge\n"), std::string::npos);
    EXPECT_EQ(Search({.sx = 84, .sy = 84, .sType = 7}).Code, 0.0) << m_trace;
}

// Arguments and files no prober sends: each gets a defined answer.
TEST_F(PinFindTest, HostileInputsGetDefinedCodes) {
    WriteInput(CentredDisc());
    // A huge tip: its area overflows no integer, and the ratio fails.
    EXPECT_EQ(Search({.tx = INT_MAX, .ty = INT_MAX}).Code, 3.0);
    // Let through every test: no window fits, the size grows past the area
    // and the tip is reported at that size (its half, 2^30 + 1, less 100).
    const Call huge{.tx = INT_MAX, .ty = INT_MAX, .ratio = 0, .divisor = 1e12};
    EXPECT_EQ(Search(huge).X, 1073741825.0 - 100);
    Call hugeEX = huge;
    hugeEX.search = kEX;
    EXPECT_EQ(Search(hugeEX).Code, 0.0);
    EXPECT_EQ(Search({.divisor = 0}).Code, 5.0);  // no blob is large enough
    WriteInput(DiscsAboveEachOther());
    EXPECT_EQ(Search({.search = kEX, .verify = std::nan("")}).Code, 0.0);  // nothing reaches NaN
    EXPECT_EQ(Search({.search = kCrown, .beta = std::nan("")}).Code, 12.0);

    const std::string native = platform::NativePath(kPinInputImage);
    ASSERT_TRUE(platform::WriteWholeFile(native, "BM not really a bitmap"));
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

void PrintTo(const FlagCase& c, std::ostream* os) {
    *os << c.name;
}

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
    if (!c.label) {
        EXPECT_EQ(m.label, nullptr);
        return;
    }
    ASSERT_NE(m.label, nullptr);
    EXPECT_STREQ(m.label, c.label);
    EXPECT_EQ(m.x, c.x);
    EXPECT_EQ(m.y, c.y);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BorderMoveTest,
    ::testing::Values(FlagCase{"None", 100, 80, 20, 16, nullptr, 0, 0},
                      FlagCase{"L", 10, 70, 20, 16, "L", -95, -10},
                      FlagCase{"D", 110, 150, 20, 16, "D", 10, 71},
                      FlagCase{"RD", 190, 150, 20, 16, "R D", 95, 71},
                      FlagCase{"LUD", 10, 80, 20, 160, "L U D", -95, 0},
                      FlagCase{"LDR", 100, 150, 200, 16, "L D R", 0, 71},
                      FlagCase{"RU", 190, 10, 20, 16, "R U", 95, -71},
                      FlagCase{"LUR", 100, 10, 200, 16, "L U R", 0, -71},
                      FlagCase{"RUD", 190, 80, 20, 160, "R U D", 95, 0},
                      FlagCase{"RL", 100, 80, 200, 16, nullptr, 0, 0},
                      FlagCase{"UD", 100, 80, 20, 160, nullptr, 0, 0},
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
    struct Case {
        std::vector<float> scores;
        int chosen;
    };
    for (const Case& c : {Case{{0.5f, 0.5f, 0.4f}, 1},   // a tie goes to the larger size
                          Case{{0.1f, 0.2f, 0.3f}, -1},  // rising: none
                          Case{{0.9f, 0.1f, 0.2f}, 0}, Case{{0.3f, 0.5f, 0.5f}, -1},
                          Case{{0.9f}, -1}}) {  // the last entry is never chosen
        std::vector<SizeEntry> entries;
        for (float s : c.scores) entries.push_back(SizeEntry{s, 0, 0, 0, 0});
        EXPECT_EQ(ChooseSize(entries.data(), static_cast<int>(entries.size())), c.chosen)
            << ::testing::PrintToString(c.scores);
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

TEST(PinSearchTest, LastSizeIsScannedButNotCounted) {
    // sx 100, tx 96: growing to 100 leaves the loop before the entry counts;
    // the result keeps tx 100 with the position found at 96. A single edge
    // pixel at column and row 97 is inside only the window at corner (2, 2).
    cv::Mat edge = cv::Mat::zeros(100, 100, CV_8UC1);
    edge.at<uchar>(97, 97) = 200;
    PinFindArgs args;
    args.sx = args.sy = 100;
    args.tx = args.ty = 96;
    args.sType = args.aType = RECTANGLE;
    SizeSearch s = SearchSizes(edge, cv::Mat(), args, 7.0f);
    ApplyChoice(s);
    EXPECT_EQ(s.count, 0);
    EXPECT_EQ(s.tx, 100);
    EXPECT_EQ(s.position.x, 2.0f);
    EXPECT_EQ(s.position.y, 2.0f);

    // Room to grow: 16 sizes scanned (20 to 80), 15 counted (20 to 76).
    args.sx = args.sy = 200;
    args.tx = args.ty = 20;
    cv::Mat big = cv::Mat::zeros(200, 200, CV_8UC1);
    cv::circle(big, {100, 100}, 30, 255, 2);
    s = SearchSizes(big, cv::Mat(), args, 0.0f);
    EXPECT_EQ(s.count, 15);
    EXPECT_EQ(s.entries[14].tx, 76.0f);
    EXPECT_EQ(s.tx, 80);
}

TEST(PinSearchTest, RingOutsideTheImageScoresZero) {
    cv::Mat edge(50, 50, CV_8UC1, cv::Scalar(255)), ring;
    EXPECT_EQ(RingScore(edge, ring, 20, 20, {0.0f, 200.0f}), 0.0);  // not 0 / 0
    EXPECT_EQ(RingScore(edge, ring, 20, 20, {10.0f, 10.0f}), 1.0);
}

TEST(PinSearchTest, EdgeImageFrameAndTiles) {
    cv::Mat area(100, 100, CV_8UC1, cv::Scalar(20));
    area(cv::Rect(0, 30, 60, 40)).setTo(220);  // strong edges, one touching the left side
    area.at<uchar>(85, 85) = 80;  // a speck: its ring passes the mean, its tiles do not
    const cv::Mat edge = PinEdgeImage(area);
    cv::Mat frame = edge.clone();
    frame(cv::Rect(5, 5, 90, 90)).setTo(0);
    EXPECT_EQ(cv::countNonZero(frame), 0);
    EXPECT_GT(cv::countNonZero(edge(cv::Rect(55, 25, 10, 50))), 0);
    EXPECT_EQ(cv::countNonZero(edge(cv::Rect(75, 75, 20, 20))), 0);
}

// ---------------------------------------------------------------------------
// Rival tests on profiles
// ---------------------------------------------------------------------------

TEST(PinRivalTest, SingleSampleAgainstWindowSum) {
    // Tip band 10..29; one sample exactly at the level 40, far from the tip.
    std::vector<double> profile(80, 0.0);
    for (int k = 10; k < 20; ++k) profile[k] = 80.0;
    profile[60] = 40.0;
    const GuardBand band{10, 29};
    EXPECT_EQ(RivalSamples(profile, band, 40.0), std::vector<int>{60});
    profile[25] = 100.0;  // inside the band: never a rival
    EXPECT_EQ(RivalSamples(profile, band, 40.0), std::vector<int>{60});
    // A window of 10 samples must reach 400: the lone sample does not.
    EXPECT_FALSE(FindRivalWindow(profile, 10, band, 400.0).found);
    for (int k = 61; k < 64; ++k) profile[k] = 120.0;
    const RivalWindow w = FindRivalWindow(profile, 10, band, 400.0);
    EXPECT_TRUE(w.found);
    EXPECT_EQ(w.sum, 400.0);  // the first window that reaches it, 54..63
    // Windows that start at size - length or later are not looked at.
    EXPECT_FALSE(FindRivalWindow(profile, 20, GuardBand{0, 59}, 1.0).found);
}

}  // namespace
}  // namespace pixmill::inspect::pin
