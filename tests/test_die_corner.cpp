// The die corner inspections: framed die series drawn with known edges,
// lines and corners; dies on black of known size and rotation, some cut by
// the border; the canned corner measurement and its number reader.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "inspect/die/DieCornerBlack.h"
#include "inspect/die/DieCornerDetectF.h"
#include "inspect/die/DieCornerFramed.h"
#include "inspect/die/DieCornerImage.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Drawing
// ---------------------------------------------------------------------------

constexpr int kScale = 8;

// A polygon in pixel-centre coordinates drawn with exact area coverage:
// painted at 8 x on a supersampled canvas and reduced by area averaging.
void FillCovered(cv::Mat& image, const std::vector<cv::Point2d>& polygon, double level) {
    cv::Mat big(image.rows * kScale, image.cols * kScale, CV_8UC1, cv::Scalar(0));
    std::vector<cv::Point> pts;
    for (const cv::Point2d& p : polygon)
        pts.emplace_back(cvRound(((p.x + 0.5) * kScale - 0.5) * 16), cvRound(((p.y + 0.5) * kScale - 0.5) * 16));
    cv::fillPoly(big, std::vector<std::vector<cv::Point>>{pts}, cv::Scalar(255), cv::LINE_8, 4);
    cv::Mat cover;
    cv::resize(big, cover, image.size(), 0, 0, cv::INTER_AREA);
    cv::Mat f, c;
    image.convertTo(f, CV_32F);
    cover.convertTo(c, CV_32F, 1.0 / 255);
    f = f.mul(1 - c) + c * level;
    f.convertTo(image, CV_8U);
}

cv::Mat Noisy(cv::Mat image, double sigma, int seed) {
    cv::Mat noise(image.size(), CV_32F), f;
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::NORMAL, 0, sigma);
    image.convertTo(f, CV_32F);
    f += noise;
    f.convertTo(image, CV_8U);
    return image;
}

// A die: centre, size and rotation in degrees; its corners LT, RT, RB, LB.
struct Die {
    double cx, cy, w, h, angle;
    std::vector<cv::Point2d> Corners() const {
        const double a = angle * CV_PI / 180, c = std::cos(a), s = std::sin(a);
        const double hx[4] = {-w / 2, w / 2, w / 2, -w / 2}, hy[4] = {-h / 2, -h / 2, h / 2, h / 2};
        std::vector<cv::Point2d> out;
        for (int k = 0; k < 4; ++k) out.emplace_back(cx + hx[k] * c - hy[k] * s, cy + hx[k] * s + hy[k] * c);
        return out;
    }
};

cv::Mat DieImage(cv::Size size, const std::vector<Die>& dies, double background, double level, double noise,
                 int seed) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(background));
    for (const Die& d : dies) FillCovered(image, d.Corners(), level);
    cv::GaussianBlur(image, image, {3, 3}, 0.7);
    return noise > 0 ? Noisy(image, noise, seed) : image;
}

double Distance(cv::Point2f a, cv::Point2d b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// ---------------------------------------------------------------------------
// Dies on black
// ---------------------------------------------------------------------------

struct BlackCase {
    const char* name;
    double level;
    double angle;
    int mode;
};

class BlackBackgroundAccuracy : public test::PixmillTest, public ::testing::WithParamInterface<BlackCase> {};

bool InFrame(cv::Point2d p, cv::Size size) {
    return p.x >= 0 && p.y >= 0 && p.x <= size.width - 1 && p.y <= size.height - 1;
}

// The drawn die a reported one stands for: the one with a computed corner
// nearest its own.
const Die* Match(const DieCorners& f, const std::vector<Die>& dies) {
    const Die* truth = nullptr;
    double best = 1e9;
    for (int k = 0; k < 4; ++k) {
        if (f.corner[k].x == -1.f) continue;
        for (const Die& d : dies)
            if (Distance(f.corner[k], d.Corners()[k]) < best) best = Distance(f.corner[k], d.Corners()[k]), truth = &d;
    }
    return truth;
}

TEST_P(BlackBackgroundAccuracy, CornersWithinOnePixel) {
    const BlackCase& c = GetParam();
    // A 5 x 5 grid of 110 x 90 dies on 640 x 480 with streets of 40 and 40;
    // the outer ring is cut by the border (25 to 75 pixels left in view).
    std::vector<Die> dies;
    for (int j = -2; j <= 2; ++j)
        for (int i = -2; i <= 2; ++i)
            dies.push_back({320.3 + i * 150 + j * 0.37, 240.6 + j * 130 - i * 0.23,
                            110, 90, c.angle});
    const cv::Size size(640, 480);
    const cv::Mat image = DieImage(size, dies, 6, c.level, 2.0, 11);
    const std::vector<DieCorners> found = DetectBlackBackgroundDies(image, {110, 90, 8, 8, c.mode});
    // Every die shows at least 25 x 25 pixels, so all 25 are reported.
    ASSERT_EQ(found.size(), 25u) << c.name;
    int complete = 0;
    double worst = 0;
    for (const DieCorners& f : found) {
        const Die* truth = Match(f, dies);
        ASSERT_NE(truth, nullptr);
        bool all = true;
        for (int k = 0; k < 4; ++k) {
            const cv::Point2d t = truth->Corners()[k];
            if (!InFrame(t, size)) {
                // A corner outside the image has no side to come from.
                EXPECT_EQ(f.corner[k].x, -1.f) << c.name << " corner " << k << " of die " << truth->cx << "," << truth->cy;
                all = false;
                continue;
            }
            ASSERT_NE(f.corner[k].x, -1.f) << c.name << " corner " << k << " of die " << truth->cx << "," << truth->cy;
            EXPECT_LT(Distance(f.corner[k], t), 1.0) << c.name << " corner " << k << " of die " << truth->cx << ","
                                                     << truth->cy;
            worst = std::max(worst, Distance(f.corner[k], t));
        }
        complete += all;
    }
    EXPECT_EQ(complete, 9) << c.name;  // the inner 3 x 3
    std::printf("%s: %zu dies, %d complete, worst corner error %.3f px\n", c.name, found.size(), complete, worst);
}

INSTANTIATE_TEST_SUITE_P(
    DieCorner, BlackBackgroundAccuracy,
    ::testing::Values(BlackCase{"level80", 80, 0.0, 0}, BlackCase{"level80_rot1_5", 80, 1.5, 0},
                      BlackCase{"level80_rotm2", 80, -2.0, 0}, BlackCase{"level80_mode1", 80, 1.0, 1},
                      BlackCase{"level80_mode2", 80, 0.5, 2}, BlackCase{"level200", 200, 0.8, 0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// The number reader and the result walk of CornerDetectF
// ---------------------------------------------------------------------------

struct NumberCase {
    const wchar_t* text;
    double value;
};

class StrictNumber : public ::testing::TestWithParam<NumberCase> {};

TEST_P(StrictNumber, ReadsOrGivesZero) {
    EXPECT_DOUBLE_EQ(ReadStrictNumber(GetParam().text), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(DieCorner, StrictNumber,
                         ::testing::Values(NumberCase{L"", 0}, NumberCase{L"1.2.3", 0}, NumberCase{L"1-2", 0},
                                           NumberCase{L"abc", 0}, NumberCase{L"-1.5", -1.5},
                                           NumberCase{L"123.25", 123.25}, NumberCase{L"-", 0}, NumberCase{L".", 0},
                                           NumberCase{L"7.", 7}, NumberCase{L".5", 0.5}, NumberCase{L" 1", 0},
                                           NumberCase{L"-0.0625", -0.0625}, NumberCase{L"1e3", 0}));

std::wstring DieText(int n, const std::vector<std::wstring>& v) {
    static const wchar_t* const kKeys[8] = {L"LT_X", L"LT_Y", L"RT_X", L"RT_Y", L"RB_X", L"RB_Y", L"LB_X", L"LB_Y"};
    std::wstring t = L"{\"Die\":\"" + std::to_wstring(n) + L"\"";
    for (int k = 0; k < 8; ++k)
        if (!v[k].empty()) t += L", \"" + std::wstring(kKeys[k]) + L"\":\"" + v[k] + L"\"";
    return t + L"}";
}

std::wstring ResultText(const std::vector<std::wstring>& dies) {
    std::wstring list;
    for (const auto& d : dies) list += (list.empty() ? L"" : L",") + d;
    return L"{ \"Count\":\"4\", \"Filter\":[{\"Name\":\"BlackBackgroundCornerDetectFilter\", \"Result\":{ \"Count\":\"" +
           std::to_wstring(dies.size()) + L"\", \"Dies\":[" + list + L"]}},{\"Name\":\"CropFilter\", \"Result\":\"\"},]}";
}

const std::vector<std::wstring> kWhole = {L"10.2", L"20.7", L"110.4", L"21.0", L"111.0", L"111.9", L"9.6", L"110.0"};
const std::vector<std::wstring> kNoLBY = {L"10.2", L"20.7", L"110.4", L"21.0", L"111.0", L"111.9", L"9.6", L"0.0"};
const std::vector<std::wstring> kMissing = {L"10", L"20", L"", L"21", L"111", L"111", L"-1.0", L"110"};

struct WalkCase {
    const char* name;
    std::vector<std::wstring> dies;
    int code;
    std::vector<int> corners;  // empty: left untouched (all 7777)
};

class CornerResultWalk : public ::testing::TestWithParam<WalkCase> {};

TEST_P(CornerResultWalk, CodeAndCorners) {
    const WalkCase& c = GetParam();
    int corners[10];
    std::fill(std::begin(corners), std::end(corners), 7777);
    EXPECT_EQ(ReadCornerResult(ResultText(c.dies), 100, 200, corners), c.code) << c.name;
    std::vector<int> expected = c.corners;
    if (expected.empty()) expected.assign(10, 7777);
    EXPECT_EQ(std::vector<int>(corners, corners + 10), expected) << c.name;
}

// Centre: (10.2 + 110.4 + 111 + 9.6) / 4 + 0.5 = 60.8 -> 60, plus x 100; y
// (20.7 + 21 + 111.9 + 110) / 4 + 0.5 = 66.4 -> 66, plus 200.
const std::vector<int> kWholeCorners = {160, 266, 110, 220, 210, 221, 211, 311, 109, 310};

INSTANTIATE_TEST_SUITE_P(
    DieCorner, CornerResultWalk,
    ::testing::Values(
        WalkCase{"none", {}, -1, {}}, WalkCase{"one", {DieText(0, kWhole)}, 1, kWholeCorners},
        WalkCase{"lb_y_zero", {DieText(0, kNoLBY)}, -3, {7777, 7777, 110, 220, 210, 221, 211, 311, 109, 0}},
        WalkCase{"missing_and_negative", {DieText(0, kMissing)}, -3, {7777, 7777, 110, 220, 0, 221, 211, 311, -1, 310}},
        WalkCase{"complete_after_incomplete", {DieText(0, kNoLBY), DieText(1, kWhole)}, 1, kWholeCorners},
        WalkCase{"incomplete_after_complete", {DieText(0, kWhole), DieText(1, kNoLBY)}, 1, kWholeCorners},
        WalkCase{"two_complete", {DieText(0, kWhole), DieText(1, kWhole)}, -4, kWholeCorners}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DieCornerResultWalk, UnparsableOrForeignTextReadsNoDie) {
    int corners[10] = {};
    EXPECT_EQ(ReadCornerResult(L"not json", 0, 0, corners), -1);
    EXPECT_EQ(ReadCornerResult(L"{\"Filter\":[{\"Name\":\"CropFilter\",\"Result\":{\"Dies\":[" + DieText(0, kWhole) + L"]}}]}",
                               0, 0, corners),
              -1);
    EXPECT_EQ(ReadCornerResult(ResultText({DieText(0, kWhole)}), 0, 0, nullptr), 1);
}

// ---------------------------------------------------------------------------
// CornerDetectF end to end
// ---------------------------------------------------------------------------

class CornerDetectFTest : public test::PixmillTest {
protected:
    int Run(const cv::Mat& image, cv::Rect crop, int whiteOnBlack, int* corners) {
        return CornerDetectF(image.data, static_cast<int>(image.total()), image.cols, image.rows, crop.x, crop.y,
                             crop.width, crop.height, 100, 80, 10, 10, whiteOnBlack, corners);
    }
};

struct DetectCase {
    const char* name;
    cv::Rect crop;
    int code;
};

class CornerDetectFCrops : public CornerDetectFTest, public ::testing::WithParamInterface<DetectCase> {};

// Bright dies (220) over a grey background (140), as the prober sees them:
// the bright recipe splits die from background. Dies of 100 x 80 at
// (150.4, 120.3), (300.4, 120.3) and (150.4, 260.3) (top-left corners),
// tilted 0.8 degrees.
TEST_P(CornerDetectFCrops, CodeAndCornersInImageCoordinates) {
    const DetectCase& c = GetParam();
    std::vector<Die> dies = {{200.4, 160.3, 100, 80, 0.8}, {350.4, 160.3, 100, 80, 0.8}, {200.4, 300.3, 100, 80, 0.8}};
    const cv::Mat image = DieImage({480, 480}, dies, 140, 220, 2.0, 5);
    int corners[10] = {};
    ASSERT_EQ(Run(image, c.crop, 0, corners), c.code) << c.name;
    if (c.code != 1) return;
    const std::vector<cv::Point2d> truth = dies[0].Corners();
    for (int k = 0; k < 4; ++k) {
        // Corners are truncated after the offset: within 1 of the truth.
        EXPECT_NEAR(corners[2 + 2 * k], truth[k].x, 1.0) << c.name << " corner " << k;
        EXPECT_NEAR(corners[3 + 2 * k], truth[k].y, 1.0) << c.name << " corner " << k;
    }
    EXPECT_NEAR(corners[0], 200.4, 1.0);
    EXPECT_NEAR(corners[1], 160.3, 1.0);
    // The result image is written.
    EXPECT_TRUE(platform::FileExists(
        platform::NativePath(std::wstring(L"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinResult_Corner.bmp"))));
}

INSTANTIATE_TEST_SUITE_P(DieCorner, CornerDetectFCrops,
                         ::testing::Values(DetectCase{"one_die", {110, 90, 160, 140}, 1},
                                           DetectCase{"die_cut_by_crop", {110, 90, 130, 140}, -3},
                                           DetectCase{"two_dies", {110, 90, 310, 140}, -4},
                                           DetectCase{"background_only", {10, 380, 120, 90}, -1}),
                         [](const auto& info) { return std::string(info.param.name); });

// White dies on pure black (0), the same three dies: the bright recipe
// thresholds at Otsu's level among the grays above 127, never below 128.
// A die at 80 lies under that floor and is not seen; one just above it
// (130) with noise splits into speckle and is not seen either; a bright
// die (240) is found with its corners within 2 pixels, pulled inward
// where the level sits high on the die's blurred rim.
struct BlackCaseF {
    const char* name;
    double level, noise;
    int code;
};

class CornerDetectFOnBlack : public CornerDetectFTest, public ::testing::WithParamInterface<BlackCaseF> {};

TEST_P(CornerDetectFOnBlack, BrightDiesOnlyAboveTheFloor) {
    const BlackCaseF c = GetParam();
    std::vector<Die> dies = {{200.4, 160.3, 100, 80, 0.8}, {350.4, 160.3, 100, 80, 0.8}, {200.4, 300.3, 100, 80, 0.8}};
    int corners[10] = {};
    ASSERT_EQ(Run(DieImage({480, 480}, dies, 0, c.level, c.noise, 5), {110, 90, 160, 140}, 0, corners), c.code);
    if (c.code != 1) return;
    const std::vector<cv::Point2d> truth = dies[0].Corners();
    for (int k = 0; k < 4; ++k) {
        EXPECT_NEAR(corners[2 + 2 * k], truth[k].x, 2.0) << "corner " << k;
        EXPECT_NEAR(corners[3 + 2 * k], truth[k].y, 2.0) << "corner " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(DieCorner, CornerDetectFOnBlack,
                         ::testing::Values(BlackCaseF{"under_the_floor", 80, 2, -1},
                                           BlackCaseF{"speckle_near_the_floor", 130, 10, -1},
                                           BlackCaseF{"bright", 240, 5, 1}, BlackCaseF{"saturated", 255, 2, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CornerDetectFTest, DarkDiesNeedTheDarkRecipe) {
    // Dark dies (40) on a lighter background (110): only whiteOnBlack
    // non-zero (dark features binarised) finds the die.
    std::vector<Die> dies = {{200.4, 160.3, 100, 80, 0.0}};
    const cv::Mat image = DieImage({480, 480}, dies, 110, 40, 2.0, 9);
    int corners[10] = {};
    EXPECT_EQ(Run(image, {110, 90, 160, 140}, 1, corners), 1);
    EXPECT_NEAR(corners[2], 150.4, 1.0);
    EXPECT_NEAR(corners[3], 120.3, 1.0);
    EXPECT_NE(Run(image, {110, 90, 160, 140}, 0, corners), 1);
}

TEST_F(CornerDetectFTest, ShortOrMissingPixelsRunNothing) {
    cv::Mat image(200, 200, CV_8UC1, cv::Scalar(0));
    int corners[10] = {};
    EXPECT_EQ(CornerDetectF(image.data, 100, 200, 200, 0, 0, 150, 150, 100, 80, 10, 10, 0, corners), -1);
    EXPECT_EQ(CornerDetectF(nullptr, 40000, 200, 200, 0, 0, 150, 150, 100, 80, 10, 10, 0, corners), -1);
    EXPECT_EQ(CornerDetectF(image.data, 40000, -200, 200, 0, 0, 150, 150, 100, 80, 10, 10, 0, nullptr), -1);
}

}  // namespace
}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Framed die series
// ---------------------------------------------------------------------------

const cv::Point kStart[4] = {{30, 450}, {450, 450}, {450, 30}, {30, 30}};
const cv::Point kStep[4] = {{1, -1}, {-1, -1}, {-1, 1}, {1, 1}};

// A 640 x 480 camera frame: dark border (40) where `bright` is false,
// die (160) where it is true, then blurred by `sigma` (0: sharp) and noise.
// The gradient image saturates at 255, so a sharp step of more than 63
// grays would rate no stronger than a blurred one: `die` sets the level.
template <typename Bright>
cv::Mat Frame(Bright bright, double sigma, int seed, int die = 160) {
    cv::Mat f(480, 640, CV_8UC1);
    for (int y = 0; y < f.rows; ++y)
        for (int x = 0; x < f.cols; ++x) f.at<uint8_t>(y, x) = bright(x, y) ? die : 40;
    if (sigma > 0) cv::GaussianBlur(f, f, {0, 0}, sigma);
    return Noisy(f, 2.0, seed);
}

class FramedDieTest : public test::InspectionTest {
protected:
    // Writes frames 0..n-1 of "<prefix><stem><i>.bmp"; frame `sharpIndex`
    // sharp, the others blurred.
    template <typename Bright>
    void WriteSeries(const char* stem, Bright bright, int n, int sharpIndex, int die = 160) {
        for (int i = 0; i < n; ++i)
            WriteImage(std::string("C:\\frames\\d") + stem + std::to_string(i) + ".bmp",
                       Frame(bright, i == sharpIndex ? 0.0 : 4.0, 100 + i, die));
    }
    // Frames 0..2 of "<prefix><stem><i>.bmp": a die drawn as a rectangle
    // with exact coverage at `level` inside the dark border (40), frame
    // `sharpIndex` sharp and the others blurred.
    void WriteRectangleSeries(const char* stem, const cv::Rect2d& d, double level, int sharpIndex) {
        for (int i = 0; i < 3; ++i) {
            cv::Mat f(480, 640, CV_8UC1, cv::Scalar(40));
            FillCovered(f, {d.tl(), {d.x + d.width, d.y}, d.br(), {d.x, d.y + d.height}}, level);
            cv::GaussianBlur(f, f, {0, 0}, i == sharpIndex ? 0.5 : 2.5);
            WriteImage(std::string("C:\\frames\\d") + stem + std::to_string(i) + ".bmp", Noisy(f, 2.0, 50 + i));
        }
    }
    static constexpr const char* kPrefix = "C:\\frames\\d";
};

class FramedEdge : public FramedDieTest, public ::testing::WithParamInterface<int> {};

TEST_P(FramedEdge, StepPointAndSharpFrame) {
    const int cpos = GetParam();
    // The die begins n0 steps along the walk: a border along the averaged
    // diagonals, crossed by the walk between steps n0 - 1 and n0.
    const int n0 = 150 + 11 * cpos;
    const cv::Point s = kStart[cpos], d = kStep[cpos];
    WriteSeries("FrameEdge", [&](int x, int y) { return (x - s.x) * d.x + (y - s.y) * d.y >= 2 * n0 - 1; }, 3, 1);
    const FDPoint r = VBcvFDEdgeFind(kPrefix, cpos, 3);
    const cv::Point truth = s + d * (n0 - 1);
    EXPECT_NEAR(r.X, truth.x, 1.0);
    EXPECT_NEAR(r.Y, truth.y, 1.0);
    EXPECT_EQ(r.Value, 1.0);
    EXPECT_NE(m_trace.find("[VBcvFDEdgeFind] Image Num : 1"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(DieCorner, FramedEdge, ::testing::Range(0, 4));

// A die drawn as a rectangle with exact coverage inside the dark border,
// one frame sharp: the walk meets the die at or near its corner, where the
// diagonal means only ramp up. The answer is the last walk point outside
// the die, from the sharp frame.
struct RectEdgeCase {
    const char* name;
    int cpos;
    cv::Rect2d die;
    int sharpIndex;
};

void PrintTo(const RectEdgeCase& c, std::ostream* out) {
    *out << c.name;
}

class FramedEdgeOfARectangle : public FramedDieTest, public ::testing::WithParamInterface<RectEdgeCase> {};

TEST_P(FramedEdgeOfARectangle, LastBorderPointInTheSharpFrame) {
    const RectEdgeCase c = GetParam();
    const cv::Rect2d& d = c.die;
    WriteRectangleSeries("FrameEdge", d, 160, c.sharpIndex);
    cv::Point truth(-1, -1);
    for (cv::Point p = kStart[c.cpos]; !(p.x > d.x && p.x < d.x + d.width && p.y > d.y && p.y < d.y + d.height);
         p += kStep[c.cpos])
        truth = p;
    const FDPoint r = VBcvFDEdgeFind(kPrefix, c.cpos, 3);
    EXPECT_NEAR(r.X, truth.x, 1.0) << m_trace;
    EXPECT_NEAR(r.Y, truth.y, 1.0);
    EXPECT_EQ(r.Value, c.sharpIndex);
}

INSTANTIATE_TEST_SUITE_P(
    DieCorner, FramedEdgeOfARectangle,
    ::testing::Values(RectEdgeCase{"centred_tl", 0, {76.5, 78.2, 325.1, 322.6}, 1},
                      RectEdgeCase{"side_tl", 0, {126.6, 120.3, 230.2, 233.0}, 2},
                      RectEdgeCase{"centred_tr", 1, {60.4, 57.7, 360.1, 361.5}, 0},
                      RectEdgeCase{"side_tr", 1, {140.2, 101.9, 197.6, 252.8}, 1},
                      RectEdgeCase{"centred_br", 2, {64.0, 70.3, 348.4, 344.9}, 2},
                      RectEdgeCase{"side_br", 2, {118.8, 129.5, 246.2, 211.7}, 0},
                      RectEdgeCase{"centred_bl", 3, {131.9, 134.1, 215.2, 212.0}, 1},
                      RectEdgeCase{"side_bl", 3, {107.3, 96.4, 262.5, 270.1}, 2}),
    [](const auto& info) { return std::string(info.param.name); });

class FramedTheta : public FramedDieTest, public ::testing::WithParamInterface<int> {};

TEST_P(FramedTheta, LineOfTheDieInTheSharpFrame) {
    const int cpos = GetParam();
    // Die sides: top 133 (cpos 0), right 351 (1), bottom 362 (2), left 117 (3).
    const int line[4] = {133, 351, 362, 117};
    const int L = line[cpos];
    WriteSeries("FrameTheta",
                [&](int x, int y) {
                    switch (cpos) {
                        case 0: return y >= L;
                        case 1: return x <= L;
                        case 2: return y <= L;
                        default: return x >= L;
                    }
                },
                3, 2, 90);
    const FDPoint r = VBcvFDThetaFind(kPrefix, cpos, 3);
    const bool horizontal = cpos == 0 || cpos == 2;
    EXPECT_NEAR(horizontal ? r.Y : r.X, L, 1.0);
    EXPECT_EQ(horizontal ? r.X : r.Y, 240.0);
    EXPECT_EQ(r.Value, 2.0);
}

INSTANTIATE_TEST_SUITE_P(DieCorner, FramedTheta, ::testing::Range(0, 4));

// A die that does not span the frame, inside its dark border: the lines
// beside it show no side and must not pull the answer. The side sought
// (top, right, bottom, left for cpos 0 to 3) within a pixel, from the
// sharp frame.
class FramedThetaOfARectangle : public FramedDieTest, public ::testing::WithParamInterface<RectEdgeCase> {};

TEST_P(FramedThetaOfARectangle, SideOfTheDieInTheSharpFrame) {
    const RectEdgeCase c = GetParam();
    const cv::Rect2d& d = c.die;
    WriteRectangleSeries("FrameTheta", d, 90, c.sharpIndex);
    const double side[4] = {d.y, d.x + d.width, d.y + d.height, d.x};
    const FDPoint r = VBcvFDThetaFind(kPrefix, c.cpos, 3);
    EXPECT_NEAR(c.cpos % 2 == 0 ? r.Y : r.X, side[c.cpos], 1.0) << m_trace;
    EXPECT_EQ(r.Value, c.sharpIndex);
}

INSTANTIATE_TEST_SUITE_P(DieCorner, FramedThetaOfARectangle,
                         ::testing::Values(RectEdgeCase{"top", 0, {101.3, 123.4, 190.2, 230.5}, 2},
                                           RectEdgeCase{"right", 1, {70.8, 52.6, 281.8, 300.3}, 1},
                                           RectEdgeCase{"bottom", 2, {40.0, 95.2, 380.6, 237.3}, 0},
                                           RectEdgeCase{"left", 3, {40.1, 160.7, 333.3, 120.9}, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

struct CornerSeriesCase {
    const char* name;
    int cpos;
    bool extended;
    cv::Point2d corner;  // the die's corner point, pixel-centre coordinates
    double angle;        // degrees
    int sharpIndex;      // the one sharp frame of three
    double texture;      // spread of the die's circuit texture; 0: a plain die
    cv::Size2d size{2000, 2000};
};

void PrintTo(const CornerSeriesCase& c, std::ostream* out) {
    *out << c.name;
}

class FramedCorner : public FramedDieTest, public ::testing::WithParamInterface<CornerSeriesCase> {};

// A die turned slightly about its corner, reaching out of the frame on the
// two sides away from the reference corner, drawn with exact coverage in
// three frames: one sharp, two blurred. The answer is the centre of the
// die's corner pixel, half a pixel inside the corner point on both axes.
TEST_P(FramedCorner, CornerNearestTheReference) {
    const CornerSeriesCase c = GetParam();
    const double sx = (c.cpos == 0 || c.cpos == 3) ? 1 : -1, sy = c.cpos < 2 ? 1 : -1;
    const double a = c.angle * CV_PI / 180, cs = std::cos(a), sn = std::sin(a);
    auto at = [&](double dx, double dy) {
        return cv::Point2d(c.corner.x + cs * dx - sn * dy, c.corner.y + sn * dx + cs * dy);
    };
    const double w = c.size.width, h = c.size.height;
    const std::vector<cv::Point2d> die{at(0, 0), at(sx * w, 0), at(sx * w, sy * h), at(0, sy * h)};
    for (int i = 0; i < 3; ++i) {
        cv::Mat cover(480, 640, CV_8UC1, cv::Scalar(0)), share, texture(480, 640, CV_32F), frame;
        FillCovered(cover, die, 255);
        cover.convertTo(share, CV_32F, 1.0 / 255);
        cv::RNG(3 + i).fill(texture, cv::RNG::NORMAL, 175, c.texture);
        cv::Mat(40.0 * (1 - share) + texture.mul(share)).convertTo(frame, CV_8U);
        cv::GaussianBlur(frame, frame, {0, 0}, i == c.sharpIndex ? 0.5 : 2.5);
        WriteImage("C:\\frames\\dFDC" + std::to_string(i) + ".bmp", Noisy(frame, 2.0, 40 + i));
    }
    const FDPoint r = c.extended ? VBcvFDCornerFind_Ex(kPrefix, c.cpos, 3) : VBcvFDCornerFind(kPrefix, c.cpos, 3);
    const cv::Point2d truth = at(sx * 0.5, sy * 0.5);
    EXPECT_NEAR(r.X, truth.x, 1.0) << m_trace;
    EXPECT_NEAR(r.Y, truth.y, 1.0);
    EXPECT_EQ(r.Value, -1.0);
    EXPECT_TRUE(platform::FileExists(platform::NativePath(std::wstring(L"C:\\PROBERPARAM\\ParaImg\\FrmadeDieCorner.jpg"))));
}

// Corners far from and near their reference (a die covering most of the
// frame leaves the extended search no frame by its Otsu rule), turned
// either way (the outline then starts at another point), the sharp frame
// first, in the middle or last (last is never fused), textured or plain
// (a plain die fuses to an open rim).
INSTANTIATE_TEST_SUITE_P(
    DieCorner, FramedCorner,
    ::testing::Values(CornerSeriesCase{"tl", 0, false, {184.0, 153.7}, -0.85, 0, 18},
                      CornerSeriesCase{"tl_near_plain_last", 0, false, {153.5, 101.6}, 0.6, 2, 0},
                      CornerSeriesCase{"tr_last", 1, false, {323.7, 182.2}, 0.44, 2, 18},
                      CornerSeriesCase{"br_plain", 2, false, {356.5, 350.3}, -0.78, 1, 0},
                      CornerSeriesCase{"bl", 3, false, {112.3, 323.4}, 0.11, 0, 18},
                      CornerSeriesCase{"ex_tl_near", 0, true, {153.5, 101.6}, -0.84, 1, 18},
                      CornerSeriesCase{"ex_tr_near", 1, true, {358.2, 131.1}, 0.33, 1, 18},
                      CornerSeriesCase{"ex_br_plain", 2, true, {267.5, 267.3}, 0.25, 2, 0},
                      CornerSeriesCase{"ex_bl_last", 3, true, {158.4, 280.7}, -0.68, 2, 18},
                      // Whole dies inside their dark border.
                      CornerSeriesCase{"whole_tl", 0, false, {100.3, 90.6}, 0.4, 1, 18, {280, 300}},
                      CornerSeriesCase{"whole_tr_plain", 1, false, {390.2, 88.4}, -0.5, 0, 0, {300, 310}},
                      CornerSeriesCase{"ex_whole_br", 2, true, {401.7, 396.1}, 0.3, 2, 18, {290, 280}},
                      CornerSeriesCase{"ex_whole_bl_plain", 3, true, {75.5, 402.9}, -0.2, 1, 0, {320, 300}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Failures of the framed die functions
// ---------------------------------------------------------------------------

enum class Fn { kEdge, kTheta, kCorner, kCornerEx };

FDPoint CallFn(Fn fn, const char* path, int cpos, int count) {
    switch (fn) {
        case Fn::kEdge: return VBcvFDEdgeFind(path, cpos, count);
        case Fn::kTheta: return VBcvFDThetaFind(path, cpos, count);
        case Fn::kCorner: return VBcvFDCornerFind(path, cpos, count);
        default: return VBcvFDCornerFind_Ex(path, cpos, count);
    }
}

struct FailCase {
    const char* name;
    Fn fn;
    int cpos;
    int count;
    cv::Size frame;  // of the files written (frames 0 and 1)
    const char* line;
};

class FramedFailure : public test::InspectionTest, public ::testing::WithParamInterface<FailCase> {};

TEST_P(FramedFailure, AllMinusOneAndItsLine) {
    const FailCase& c = GetParam();
    for (const char* stem : {"FrameEdge", "FrameTheta", "FDC"})
        for (int i = 0; i < 2; ++i)
            WriteImage(std::string("C:\\frames\\d") + stem + std::to_string(i) + ".bmp",
                       cv::Mat(c.frame, CV_8UC1, cv::Scalar(90 + i)));
    const FDPoint r = CallFn(c.fn, "C:\\frames\\d", c.cpos, c.count);
    EXPECT_EQ(r.X, -1.0) << c.name;
    EXPECT_EQ(r.Y, -1.0) << c.name;
    EXPECT_EQ(r.Value, -1.0) << c.name;
    if (*c.line) {
        EXPECT_NE(m_trace.find(c.line), std::string::npos) << c.name << "\n" << m_trace;
    }
}

const cv::Size kCamera(640, 480);

INSTANTIATE_TEST_SUITE_P(
    DieCorner, FramedFailure,
    ::testing::Values(
        FailCase{"edge_cpos", Fn::kEdge, 4, 2, kCamera, "[VBcvFDEdgeFind] Fail : cpos(4) Error \n"},
        FailCase{"edge_missing_file", Fn::kEdge, 0, 3, kCamera, "[VBcvFDEdgeFind] Fail : File Error \n"},
        // A file error is found before the cpos check in the edge functions.
        FailCase{"edge_file_before_cpos", Fn::kEdge, -1, 3, kCamera, "[VBcvFDEdgeFind] Fail : File Error \n"},
        FailCase{"edge_small_frame", Fn::kEdge, 0, 2, {400, 480}, "[VBcvFDEdgeFind] Fail : File Error \n"},
        FailCase{"edge_count_zero", Fn::kEdge, 0, 0, kCamera, ""},
        FailCase{"edge_flat_frames", Fn::kEdge, 1, 2, kCamera, ""},
        FailCase{"theta_cpos", Fn::kTheta, 7, 2, kCamera, "[VBcvFDThetaFind] Fail : cpos(7) Error \n"},
        FailCase{"theta_missing_file", Fn::kTheta, 2, 5, kCamera, "[VBcvFDThetaFind] Fail : File Error \n"},
        FailCase{"theta_flat_frames", Fn::kTheta, 3, 2, kCamera, ""},
        FailCase{"corner_cpos_before_file", Fn::kCorner, 4, 9, kCamera, "[VBcvFDCornerFind] Fail : cpos error \n"},
        FailCase{"corner_missing_file", Fn::kCorner, 0, 3, kCamera, "[VBcvFDCornerFind] Fail : File Error \n"},
        FailCase{"corner_count_zero", Fn::kCorner, 0, 0, kCamera, "[VBcvFDCornerFind] Fail : Corner Detect Fail. \n"},
        FailCase{"corner_flat", Fn::kCorner, 2, 2, kCamera, "[VBcvFDCornerFind] Fail : Corner Detect Fail. \n"},
        FailCase{"corner_ex_cpos", Fn::kCornerEx, -2, 2, kCamera, "[VBcvFDCornerFind_Ex] Fail : cpos error \n"},
        FailCase{"corner_ex_small", Fn::kCornerEx, 1, 2, {640, 300}, "[VBcvFDCornerFind_Ex] Fail : File Error \n"},
        FailCase{"corner_ex_flat", Fn::kCornerEx, 3, 2, kCamera, "[VBcvFDCornerFind_Ex] Fail : Corner Detect Fail. \n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FramedFailure, NullPathIsAFileError) {
    EXPECT_EQ(VBcvFDCornerFind(nullptr, 0, 1).X, -1.0);
    EXPECT_NE(m_trace.find("[VBcvFDCornerFind] Fail : File Error \n"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Image routines
// ---------------------------------------------------------------------------

TEST(DieCornerImage, HullAndFourPointsOfARectangleOutline) {
    std::vector<cv::Point> pts;
    for (int x = 10; x <= 60; ++x) pts.push_back({x, 5}), pts.push_back({x, 45});
    for (int y = 5; y <= 45; ++y) pts.push_back({10, y}), pts.push_back({60, y});
    pts.push_back({30, 20});  // inside: never on the hull
    const std::vector<cv::Point> hull = ConvexHullScan(pts);
    ASSERT_EQ(hull.size(), 4u);
    EXPECT_EQ(hull[0], cv::Point(10, 5));  // the pivot: lowest row, then lowest column
    std::vector<cv::Point> outline = {{10, 5}, {10, 25}, {10, 45}, {35, 45}, {60, 45}, {60, 25}, {60, 5}, {35, 5}};
    std::array<cv::Point, 4> p;
    std::array<int, 4> idx;
    ASSERT_TRUE(ContourFourPoints(outline, p, idx));
    EXPECT_EQ(p[0], cv::Point(10, 5));
    EXPECT_EQ(p[1], cv::Point(10, 45));
    EXPECT_EQ(p[2], cv::Point(60, 45));
    EXPECT_EQ(p[3], cv::Point(60, 5));
    EXPECT_FALSE(ContourFourPoints({{1, 1}, {2, 2}, {3, 3}}, p, idx));
}

TEST(DieCornerImage, PeakRemovalStretchAndLocalContrast) {
    cv::Mat img(20, 20, CV_8UC1, cv::Scalar(100));
    img(cv::Rect(0, 0, 20, 4)).setTo(200);  // 20 % at 200, 80 % at 100
    cv::Mat out;
    PeakRemoval(img, out, 0.7);
    EXPECT_EQ(cv::countNonZero(out == 0), 320);  // the dominant peak cleared
    EXPECT_EQ(cv::countNonZero(out == 200), 80);
    PeakRemoval(img, out, 0.9);
    EXPECT_EQ(cv::countNonZero(out == 0), 0);  // no peak holds 90 %
    HistogramStretch(img, out, 50.0);           // level 100: 100 -> 255
    EXPECT_EQ(out.at<uint8_t>(10, 10), 255);
    cv::Mat ramp(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) ramp.at<uint8_t>(0, i) = static_cast<uint8_t>(i);
    HistogramStretch(ramp, out, 100.0 * 128 / 256);  // level 127
    EXPECT_EQ(out.at<uint8_t>(0, 127), 255);
    EXPECT_EQ(out.at<uint8_t>(0, 50), 255 * 50 / 127);
    cv::Mat flat(10, 10, CV_8UC1, cv::Scalar(90));
    flat.at<uint8_t>(6, 6) = 200;
    LocalContrastFilter(flat, out);
    EXPECT_EQ(out.at<uint8_t>(1, 1), 0);    // flat block cleared
    EXPECT_EQ(out.at<uint8_t>(6, 6), 200);  // the contrast block keeps its pixels
}

}  // namespace
}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// The filter
// ---------------------------------------------------------------------------

struct FilterCase {
    const char* name;
    test::ParamList params;
    int count;
};

class BlackBackgroundFilter : public test::PixmillTest, public ::testing::WithParamInterface<FilterCase> {};

TEST_P(BlackBackgroundFilter, CountAndAnnotatedImage) {
    const FilterCase& c = GetParam();
    // Two whole dies of 100 x 80 and one cut by the left border.
    const std::vector<Die> dies = {{150.5, 120.5, 100, 80, 0}, {290.5, 120.5, 100, 80, 0}, {20.5, 300.5, 100, 80, 0}};
    cv::Mat image = DieImage({400, 400}, dies, 5, 90, 1.5, 3);
    auto filter = test::Make(L"BlackBackgroundCornerDetectFilter");
    ASSERT_TRUE(filter);
    test::SetParams(*filter, c.params);
    const std::vector<cv::Mat> out = test::RunPins(*filter, {{1, {image}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].type(), CV_8UC3);
    const std::wstring text = filter->GetResult();
    EXPECT_EQ(text.rfind(L"{ \"Count\":\"" + std::to_wstring(c.count) + L"\", \"Dies\":[", 0), 0u) << c.name;
    EXPECT_EQ(test::CountOf(platform::ToUtf8(text), "\"Die\":"), c.count) << c.name;
    if (c.count == 3) {
        // The cut die: no left side, so LT and LB unset; a mark is drawn at
        // the whole dies' corners (the RB mark in its own colour).
        EXPECT_NE(text.find(L"{\"Die\":\"2\", \"LT_X\":\"-1.0\", \"LT_Y\":\"-1.0\""), std::wstring::npos) << platform::ToUtf8(text);
        // RB of die 0 at (200.5, 160.5): its strokes run left and up.
        EXPECT_EQ(out[0].at<cv::Vec3b>(160, 198), cv::Vec3b(255, 100, 100));
        EXPECT_EQ(out[0].at<cv::Vec3b>(158, 200), cv::Vec3b(255, 100, 100));
    }
}

INSTANTIATE_TEST_SUITE_P(
    DieCorner, BlackBackgroundFilter,
    ::testing::Values(FilterCase{"found", {{L"DieWidth", L"100"}, {L"DieHeight", L"80"}, {L"ToleranceWidth", L"5"},
                                           {L"ToleranceHeight", L"5"}},
                                 3},
                      FilterCase{"defaults", {}, 0},
                      FilterCase{"die_width_9", {{L"DieWidth", L"9"}, {L"DieHeight", L"80"}, {L"ToleranceWidth", L"500"},
                                                 {L"ToleranceHeight", L"500"}},
                                 0},
                      // Whole dies off by more than the tolerance are refused;
                      // the cut one is not held to its width.
                      FilterCase{"width_out_of_tolerance", {{L"DieWidth", L"120"}, {L"DieHeight", L"80"},
                                                            {L"ToleranceWidth", L"5"}, {L"ToleranceHeight", L"5"}},
                                 1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DieCornerFilterInput, OtherTypesAreRefused) {
    EXPECT_THROW(DieGray(cv::Mat(120, 120, CV_16UC1), "x"), std::invalid_argument);
    EXPECT_EQ(DieGray(cv::Mat(120, 120, CV_8UC3, cv::Scalar(1, 2, 3)), "x").type(), CV_8UC1);
    EXPECT_TRUE(DieGray(cv::Mat(), "x").empty());
}

}  // namespace
}  // namespace pixmill::inspect::die

#include "inspect/die/DieCornerCross.h"

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Corners near a street cross
// ---------------------------------------------------------------------------

// Dies (200) on streets (50): vertical streets of 30 pixels centred on
// columns 100, 300, 500, 700 and horizontal ones of 26 pixels centred on
// rows 100, 300, 500 of an 800 x 600 image.
struct Grid {
    std::vector<double> colCentre{100, 300, 500, 700}, rowCentre{100, 300, 500};
    double colHalf = 15, rowHalf = 13;
    cv::Mat Image() const {
        cv::Mat image(600, 800, CV_8UC1, cv::Scalar(200));
        for (double c : colCentre) FillCovered(image, {{c - colHalf, -5}, {c + colHalf, -5}, {c + colHalf, 605}, {c - colHalf, 605}}, 50);
        for (double r : rowCentre) FillCovered(image, {{-5, r - rowHalf}, {805, r - rowHalf}, {805, r + rowHalf}, {-5, r + rowHalf}}, 50);
        return Noisy(image, 3.0, 21);
    }
};

// Grids at sub-pixel places with streets of other widths and pitches: the
// crossing at the second column and row street, and each quadrant's first
// corner (at the crossing) and second corner (at the next crossing out),
// within 1 pixel. Seen: crossing within 0.44 px, corners within 0.75 px.
struct GridCase {
    const char* name;
    double x0, y0, pitchX, pitchY, colHalf, rowHalf;
};

class NearbyCrossGrid : public ::testing::TestWithParam<GridCase> {};

TEST_P(NearbyCrossGrid, CrossingAndCornersWithinAPixel) {
    const GridCase c = GetParam();
    Grid g;
    g.colCentre.clear();
    g.rowCentre.clear();
    for (double x = c.x0; x < 800; x += c.pitchX) g.colCentre.push_back(x);
    for (double y = c.y0; y < 600; y += c.pitchY) g.rowCentre.push_back(y);
    g.colHalf = c.colHalf;
    g.rowHalf = c.rowHalf;
    const double cx = g.colCentre[1], cy = g.rowCentre[1];
    const std::vector<CrossCorners> found = DetectCornersNearbyCross(g.Image());
    const CrossCorners* f = nullptr;
    for (const CrossCorners& k : found)
        if (Distance(k.cross, {cx, cy}) < 1.0) f = &k;
    ASSERT_NE(f, nullptr) << found.size() << " crossings, none at " << cx << ", " << cy;
    const double L = cx - c.colHalf, R = cx + c.colHalf, T = cy - c.rowHalf, B = cy + c.rowHalf;
    const double fx = c.pitchX - 2 * c.colHalf, fy = c.pitchY - 2 * c.rowHalf;  // die sizes
    const cv::Point2d first[4] = {{R, B}, {L, B}, {L, T}, {R, T}};
    const cv::Point2d second[4] = {{R + fx, B + fy}, {L - fx, B + fy}, {L - fx, T - fy}, {R + fx, T - fy}};
    for (int k = 0; k < 4; ++k) {
        EXPECT_LT(Distance(f->first[k], first[k]), 1.0) << "first " << k << ": " << f->first[k];
        EXPECT_LT(Distance(f->second[k], second[k]), 1.0) << "second " << k << ": " << f->second[k];
    }
}

INSTANTIATE_TEST_SUITE_P(DieCorner, NearbyCrossGrid,
                         ::testing::Values(GridCase{"wide_columns", 97.3, 79.6, 201.7, 190.2, 16.4, 12.2},
                                           GridCase{"wide_rows", 64.8, 110.1, 188.4, 214.9, 10.6, 17.7},
                                           GridCase{"even", 118.5, 95.5, 226.3, 176.8, 13.1, 13.9}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DieCornerNearbyCross, NarrowColumnStreetsGiveNoCross) {
    // Column streets of 6 pixels against row streets of 26: the column
    // bands (2 strips long) are below 0.3 of the row bands (22).
    Grid g;
    g.colHalf = 3;
    EXPECT_TRUE(DetectCornersNearbyCross(g.Image()).empty());
}

TEST(DieCornerNearbyCross, ShortSidesAreNotComputed) {
    // Rows of dies only 37 high between the inner crossings: their sides
    // have 37 walk points, not more than 60, so no corner is computed there
    // though the crossings exist (the outer rows face taller dies).
    Grid g;
    g.rowCentre = {100, 163, 226, 289, 352, 415, 478, 541};
    const std::vector<CrossCorners> found = DetectCornersNearbyCross(g.Image());
    int inner = 0;
    for (const auto& f : found) {
        if (f.cross.y <= 100 || f.cross.y >= 541) continue;
        ++inner;
        for (int k = 0; k < 4; ++k) EXPECT_EQ(f.first[k].x, -1.f) << f.cross;
    }
    EXPECT_EQ(inner, 24);
}

TEST(DieCornerNearbyCross, FilterTextAndImage) {
    const Grid g;
    auto filter = test::Make(L"DetectCornerNearbyCross");
    ASSERT_TRUE(filter);
    const std::vector<cv::Mat> out = test::RunPins(*filter, {{1, {g.Image()}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].type(), CV_8UC3);
    const std::string text = platform::ToUtf8(filter->GetResult());
    EXPECT_EQ(text.rfind("{ \"Count\":\"12\", \"Cross\":[{\"Cross\":\"0\", \"F_LT_X\":", 0), 0u) << text;
    EXPECT_EQ(test::CountOf(text, "\"S_LB_Y\""), 12);
    // Tiny or empty images: no crossing, no failure.
    auto tiny = test::Make(L"DetectCornerNearbyCross");
    test::RunPins(*tiny, {{1, {cv::Mat(5, 5, CV_8UC1, cv::Scalar(1))}}});
    EXPECT_EQ(std::wstring(tiny->GetResult()), L"{ \"Count\":\"0\", \"Cross\":[]}");
}

}  // namespace
}  // namespace pixmill::inspect::die

#include "inspect/die/DieCornerADI.h"

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Alignment filters
// ---------------------------------------------------------------------------

struct HighCase {
    const char* name;
    cv::Rect blob;  // in a 200 x 200 image; the area is (70, 70, 60, 60)
    bool found;
    bool left, top, right, bottom;
};

class ADIHigh : public ::testing::TestWithParam<HighCase> {};

TEST_P(ADIHigh, CentreAndLimits) {
    const HighCase& c = GetParam();
    cv::Mat image(200, 200, CV_8UC1, cv::Scalar(60));
    image(c.blob).setTo(200);
    ADISettings s;
    s.sigma = 4.0f;
    const ADIHighResult r = ADIHighAlign(Noisy(image, 1.0, 4), s);
    ASSERT_EQ(r.found, c.found) << c.name;
    const cv::Rect inArea = c.blob & cv::Rect(70, 70, 60, 60);
    EXPECT_NEAR(r.centre.x, inArea.x + (inArea.width - 1) / 2.0, 1.0) << c.name;
    EXPECT_NEAR(r.centre.y, inArea.y + (inArea.height - 1) / 2.0, 1.0) << c.name;
    EXPECT_EQ(r.left, c.left);
    EXPECT_EQ(r.top, c.top);
    EXPECT_EQ(r.right, c.right);
    EXPECT_EQ(r.bottom, c.bottom);
}

INSTANTIATE_TEST_SUITE_P(DieCorner, ADIHigh,
                         ::testing::Values(HighCase{"inside", {88, 92, 20, 14}, true, false, false, false, false},
                                           HighCase{"cut_left", {60, 95, 25, 14}, true, true, false, false, false},
                                           HighCase{"cut_bottom_right", {115, 118, 40, 40}, true, false, false, true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DieCornerADI, AreaLargerThanTheImageFails) {
    ADISettings s;
    s.inspWidth = 300;
    cv::Point origin;
    EXPECT_TRUE(ADIBinaryArea(cv::Mat(200, 200, CV_8UC1, cv::Scalar(9)), s, origin).empty());
    s.inspWidth = 60;
    s.sigma = -1.0f;
    EXPECT_TRUE(ADIBinaryArea(cv::Mat(200, 200, CV_8UC1, cv::Scalar(9)), s, origin).empty());
    s.sigma = std::nanf("");
    EXPECT_TRUE(ADIBinaryArea(cv::Mat(200, 200, CV_8UC1, cv::Scalar(9)), s, origin).empty());
    auto filter = test::Make(L"ADIHighAlign");
    test::SetParams(*filter, {{L"InspWidth", L"500"}});
    const std::vector<cv::Mat> out = test::RunPins(*filter, {{1, {cv::Mat(200, 200, CV_8UC1, cv::Scalar(9))}}});
    ASSERT_EQ(out.size(), 1u);  // the image still goes out
    EXPECT_EQ(std::wstring(filter->GetResult()).rfind(L"{\"Center_X\":\"-1.0\", \"Center_Y\":\"-1.0\", \"Width\":\"-1\"", 0), 0u);
}

}  // namespace
}  // namespace pixmill::inspect::die

#include "inspect/die/DieCornerADI.h"

namespace pixmill::inspect::die {
namespace {

// A grid of dies, each a 2 x 2 group of round blobs 30 px apart; dies are
// `pitch` apart, so the streets between them are wider than the gaps inside a
// die. Returns the crossings of the streets (the middle of the four blobs
// around each) whose blobs lie in the central 400 x 400 area. The offsets
// keep every blob clear of the area's edges, so none is cut.
struct BlobGrid {
    double ox, oy;  // the first blob's centre
    double pitch;
    int level;      // blob level over a background near 60
};

cv::Mat DrawBlobGrid(const BlobGrid& g, std::vector<cv::Point2d>& crossings, int seed) {
    cv::Mat image(480, 480, CV_8UC1);
    for (int y = 0; y < image.rows; ++y)  // a gentle shading across the field
        for (int x = 0; x < image.cols; ++x) image.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>(50 + x / 24 + y / 32);
    const cv::Rect area(40, 40, 400, 400);
    std::vector<double> xs, ys;
    for (double d = std::fmod(g.ox, g.pitch) - g.pitch; d < 480 + g.pitch; d += g.pitch) xs.push_back(d);
    for (double d = std::fmod(g.oy, g.pitch) - g.pitch; d < 480 + g.pitch; d += g.pitch) ys.push_back(d);
    for (double dy : ys)
        for (double dx : xs)
            for (int j = 0; j < 2; ++j)
                for (int i = 0; i < 2; ++i)
                    cv::circle(image, cv::Point(cvRound((dx + 30 * i) * 16), cvRound((dy + 30 * j) * 16)), 10 * 16,
                               cv::Scalar(g.level), cv::FILLED, cv::LINE_AA, 4);
    crossings.clear();
    for (double dy : ys)
        for (double dx : xs) {
            const double h = (g.pitch - 30) / 2;  // from a crossing to its blobs
            const cv::Point2d c(dx + 30 + h, dy + 30 + h);
            // The four blobs around it lie in the area.
            if (c.x - h > area.x && c.y - h > area.y && c.x + h < area.br().x && c.y + h < area.br().y)
                crossings.push_back(c);
        }
    cv::GaussianBlur(image, image, cv::Size(0, 0), 0.8);
    return Noisy(image, 3.0, seed);
}

struct LowCase {
    const char* name;
    BlobGrid grid;
};

void PrintTo(const LowCase& c, std::ostream* out) {
    *out << c.name;
}

class ADILow : public ::testing::TestWithParam<LowCase> {};

TEST_P(ADILow, FindsEveryStreetCrossing) {
    const LowCase& c = GetParam();
    std::vector<cv::Point2d> truth;
    const cv::Mat image = DrawBlobGrid(c.grid, truth, 11);
    ASSERT_FALSE(truth.empty());
    const std::vector<cv::Point> found = ADILowAlign(image, ADILowSettings{});
    ASSERT_EQ(found.size(), truth.size()) << c.name;
    for (const cv::Point2d& t : truth) {
        double nearest = 1e9;
        for (const cv::Point& f : found) nearest = std::min(nearest, std::max(std::abs(f.x - t.x), std::abs(f.y - t.y)));
        EXPECT_LE(nearest, 1.0) << c.name << " crossing at " << t;
    }
}

INSTANTIATE_TEST_SUITE_P(DieCorner, ADILow,
                         ::testing::Values(LowCase{"pitch90", {62.0, 64.0, 90.0, 200}},
                                           LowCase{"pitch100_subpixel", {55.4, 61.7, 100.0, 190}}),
                         [](const auto& info) { return std::string(info.param.name); });

// Inputs that give no crossing, and why.
struct LowMiss {
    const char* name;
    cv::Mat image;
    ADILowSettings settings;
};

ADILowSettings LowWith(int lineY) {
    ADILowSettings s;
    s.lineY = lineY;
    return s;
}

std::vector<LowMiss> LowMisses() {
    std::vector<cv::Point2d> truth;
    const cv::Mat grid = DrawBlobGrid({62.0, 64.0, 90.0, 200}, truth, 5);
    // One blob per die: every gap is a street of the same width, so none
    // stands out from the mean band and no street is taken.
    cv::Mat plain(480, 480, CV_8UC1, cv::Scalar(60));
    for (int y = 25; y < 480; y += 60)
        for (int x = 25; x < 480; x += 60) cv::circle(plain, {x, y}, 10, cv::Scalar(200), cv::FILLED);
    return {
        {"empty", cv::Mat(), ADILowSettings{}},
        {"tiny", cv::Mat(9, 9, CV_8UC1, cv::Scalar(100)), ADILowSettings{}},
        {"area_larger_than_image", grid(cv::Rect(0, 0, 300, 300)).clone(), ADILowSettings{}},
        {"negative_sigma", grid, [] { ADILowSettings s; s.area.sigma = -1.0f; return s; }()},
        {"flat", cv::Mat(480, 480, CV_8UC1, cv::Scalar(90)), ADILowSettings{}},
        {"one_kind_of_gap", plain, ADILowSettings{}},
        {"streets_wider_than_LineY", grid, LowWith(20)},
    };
}

void PrintTo(const LowMiss& c, std::ostream* out) {
    *out << c.name;
}

class ADILowNone : public ::testing::TestWithParam<LowMiss> {};

TEST_P(ADILowNone, ReportsNoCrossing) {
    EXPECT_TRUE(ADILowAlign(GetParam().image, GetParam().settings).empty()) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(DieCorner, ADILowNone, ::testing::ValuesIn(LowMisses()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DieCornerADI, LowAlignDropsACrossingWithABlobMissing) {
    std::vector<cv::Point2d> truth;
    cv::Mat image = DrawBlobGrid({62.0, 64.0, 90.0, 200}, truth, 9);
    // The top left blob of the die right below the crossing at (212, 214)
    // painted over with the street's level: three blobs remain around it.
    const double street = cv::mean(image(cv::Rect(205, 207, 15, 15)))[0];
    cv::circle(image, {242, 244}, 13, cv::Scalar(street), cv::FILLED);
    const std::vector<cv::Point> found = ADILowAlign(image, ADILowSettings{});
    EXPECT_EQ(found.size() + 1, truth.size());
    for (const cv::Point& f : found) EXPECT_GT(cv::norm(cv::Point2d(f) - cv::Point2d(212, 214)), 20.0) << f;
}

TEST(DieCornerADI, LowAlignFilterReportsCrossingsInImageCoordinates) {
    std::vector<cv::Point2d> truth;
    const cv::Mat gray = DrawBlobGrid({55.4, 61.7, 100.0, 190}, truth, 3);
    cv::Mat colour;
    cv::cvtColor(gray, colour, cv::COLOR_GRAY2BGR);
    auto filter = test::Make(L"ADILowAlign");
    const std::vector<cv::Mat> out = test::RunPins(*filter, {{1, {colour}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].type(), CV_8UC3);
    const std::string text = platform::ToUtf8(filter->GetResult());
    const std::vector<cv::Point> direct = ADILowAlign(gray, ADILowSettings{});
    ASSERT_EQ(direct.size(), truth.size());
    std::string expected = "{ \"Count\":\"" + std::to_string(direct.size()) + "\", \"crosses\":[";
    for (size_t i = 0; i < direct.size(); ++i)
        expected += (i ? "," : "") + std::string("{\"Cross\":\"") + std::to_string(i) + "\", \"X\":\"" +
                    std::to_string(direct[i].x) + "\", \"Y\":\"" + std::to_string(direct[i].y) + "\"}";
    EXPECT_EQ(text, expected + "]}");
    for (const cv::Point& p : direct) {  // positive, inside the inspection area
        EXPECT_GT(p.x, 40);
        EXPECT_GT(p.y, 40);
        EXPECT_LT(p.x, 440);
        EXPECT_LT(p.y, 440);
    }
    // An area larger than the image: Count 0, the image still goes out.
    auto small = test::Make(L"ADILowAlign");
    const std::vector<cv::Mat> none = test::RunPins(*small, {{1, {cv::Mat(100, 100, CV_8UC1, cv::Scalar(7))}}});
    ASSERT_EQ(none.size(), 1u);
    EXPECT_EQ(std::wstring(small->GetResult()), L"{ \"Count\":\"0\", \"crosses\":[]}");
}

}  // namespace
}  // namespace pixmill::inspect::die

