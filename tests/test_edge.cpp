// The wafer edge functions on synthetic rim frames with known truth: the
// diagonal mean, the single-frame finds, the four-frame find and its
// tables, the alignment check, and their failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <thread>
#include <vector>

#include "EdgeScenes.h"
#include "TestSupport.h"
#include "framework/TestHooks.h"
#include "inspect/edge/EdgeFindFEX.h"
#include "inspect/edge/EdgeFindIA.h"
#include "inspect/edge/EdgeImage.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "platform/Profile.h"

namespace pixmill::inspect::edge {
namespace {

using test::Inward;
using test::QuadrantScene;
using test::RenderScene;
using test::RimDistance;
using test::WaferScene;

class EdgeTest : public test::InspectionTest {
protected:
    void SetUp() override {
        InspectionTest::SetUp();
        VBcvEdgeFindFEX_Release();
    }
    void TearDown() override {
        VBcvEdgeFindFEX_Release();
        InspectionTest::TearDown();
    }
    // Writes `image` at the prober path `path` (under the root).
    static void Write(const std::string& path, const cv::Mat& image) {
        const std::string native = platform::NativePath(path);
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, image));
    }
    static bool Exists(const std::wstring& proberPath) {
        return platform::FileExists(platform::NativePath(proberPath));
    }
};

const char* const kFrame = "C:\\frames\\rim.bmp";

// ---------------------------------------------------------------------------
// DiagonalAverage
// ---------------------------------------------------------------------------

class DiagonalAverageTest : public ::testing::TestWithParam<int> {};

TEST_P(DiagonalAverageTest, EveryPixelIsTheTruncatedMeanOfItsDiagonal) {
    const int cpos = GetParam();
    for (const cv::Size size : {cv::Size(480, 480), cv::Size(11, 7), cv::Size(3, 9)}) {
        cv::Mat src(size, CV_8UC1);
        cv::randu(src, 0, 256);
        const cv::Mat before = src.clone();
        cv::Mat dst;
        DiagonalAverage(src, dst, cpos);
        ASSERT_EQ(dst.size(), size);
        EXPECT_EQ(cv::norm(src, before, cv::NORM_INF), 0) << "the source is left alone";
        const bool falling = cpos == 0 || cpos == 2;
        for (int r = 0; r < size.height; r += 3)
            for (int c = 0; c < size.width; c += 5) {
                double sum = 0;
                int n = 0;
                for (int y = 0; y < size.height; ++y)
                    for (int x = 0; x < size.width; ++x)
                        if (falling ? x - y == c - r : x + y == c + r) sum += src.at<uint8_t>(y, x), ++n;
                ASSERT_EQ(dst.at<uint8_t>(r, c), static_cast<int>(sum / n)) << r << "," << c;
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Cpos, DiagonalAverageTest, ::testing::Values(0, 1, 2, 3));

TEST(EdgeRegion, CutsTheFrameOrRefusesIt) {
    EXPECT_EQ(CameraRegion(cv::Mat(480, 640, CV_8UC1)).size(), cv::Size(480, 480));
    EXPECT_EQ(CameraRegion(cv::Mat(600, 800, CV_8UC1)).size(), cv::Size(480, 480));
    EXPECT_TRUE(CameraRegion(cv::Mat(480, 639, CV_8UC1)).empty());
    EXPECT_TRUE(CameraRegion(cv::Mat(479, 640, CV_8UC1)).empty());
    EXPECT_TRUE(CameraRegion(cv::Mat()).empty());
    EXPECT_EQ(SquareRegion(cv::Mat(480, 480, CV_8UC1)).size(), cv::Size(480, 480));
    EXPECT_TRUE(SquareRegion(cv::Mat(480, 479, CV_8UC1)).empty());
}

// ---------------------------------------------------------------------------
// VBcvEdgeFind and VBcvEdgeFindEX on rims of known position
// ---------------------------------------------------------------------------

struct RimCase {
    int cpos;
    double shift;  // of the rim along the walk from the frame's middle
    double radius;
};

class EdgeFindAccuracy : public EdgeTest, public ::testing::WithParamInterface<RimCase> {};

TEST_P(EdgeFindAccuracy, PointsLieOnTheRim) {
    const RimCase& c = GetParam();
    const cv::Point2d rim = cv::Point2d(240, 240) + Inward(c.cpos) * c.shift;
    WaferScene scene = QuadrantScene(c.cpos, rim, c.radius);
    Write(kFrame, RenderScene(scene, {640, 480}));
    const EdgePoint p = VBcvEdgeFind(kFrame, c.cpos, 200, 200);
    ASSERT_GT(p.X, 0) << m_trace;
    EXPECT_LE(RimDistance(scene, {p.X, p.Y}, c.radius), 2.0) << p.X << "," << p.Y;
    const double score = VBcvEdgeFind_GetScore();
    EXPECT_GT(score, 50.0) << "about the wafer's contrast over the chuck";
    EXPECT_EQ(VBcvEdgeFind_GetScore(), 0.0) << "a read clears the score";

    // With a dark bevel ring beyond the rim and a brighter chuck past it.
    scene = QuadrantScene(c.cpos, rim, c.radius, 14);
    scene.chuck = 90;
    Write(kFrame, RenderScene(scene, {640, 480}));
    const EdgePointPair pair = VBcvEdgeFindEX(kFrame, c.cpos, 200, 200);
    ASSERT_GT(pair.InnerX, 0) << m_trace;
    ASSERT_GT(pair.OuterX, 0) << m_trace;
    EXPECT_LE(RimDistance(scene, {pair.InnerX, pair.InnerY}, c.radius), 2.0);
    EXPECT_LE(RimDistance(scene, {pair.OuterX, pair.OuterY}, c.radius + 14), 2.0);
    EXPECT_GT(pair.OuterScore, 50.0);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindEX] Outer Pos("), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Quadrants, EdgeFindAccuracy,
                         ::testing::Values(RimCase{0, 0, 30000}, RimCase{1, 0, 30000}, RimCase{2, 0, 30000},
                                           RimCase{3, 0, 30000}, RimCase{0, 25, 30000}, RimCase{1, -30, 30000},
                                           RimCase{2, 40, 30000}, RimCase{3, -20, 30000},
                                           RimCase{0, 10, 60000}, RimCase{2, -10, 60000}),
                         [](const ::testing::TestParamInfo<RimCase>& info) {
                             const RimCase& c = info.param;
                             return "Cpos" + std::to_string(c.cpos) + "Shift" +
                                    std::to_string(int(c.shift) + 100) + "R" + std::to_string(int(c.radius));
                         });

TEST_F(EdgeTest, LargerAndColourFramesUseTheirRegion) {
    WaferScene scene = QuadrantScene(1, {250, 250});
    cv::Mat gray = RenderScene(scene, {800, 600}), colour;
    cv::cvtColor(gray, colour, cv::COLOR_GRAY2BGR);
    for (const cv::Mat& frame : {gray, colour}) {
        Write(kFrame, frame);
        const EdgePoint p = VBcvEdgeFind(kFrame, 1, 480, 480);
        ASSERT_GT(p.X, 0) << m_trace;
        EXPECT_LE(RimDistance(scene, {p.X, p.Y}, scene.radius), 2.0);
    }
}

struct EdgeFailure {
    const char* name;
    int frame;  // 0 a good frame, 1 none, 2 too narrow, 3 flat, 4 not an image
    int cpos, sx, sy;
    const char* line;  // of VBcvEdgeFind; for VBcvEdgeFindEX "EdgeFind]" becomes "EdgeFindEX]"
    bool exTagged;     // the line carries VBcvEdgeFindEX's tag in VBcvEdgeFindEX
};

class EdgeFindFailures : public EdgeTest, public ::testing::WithParamInterface<EdgeFailure> {};

TEST_P(EdgeFindFailures, EveryMemberIsMinusOne) {
    const EdgeFailure& f = GetParam();
    const WaferScene scene = QuadrantScene(0, {240, 240});
    if (f.frame == 0) Write(kFrame, RenderScene(scene, {640, 480}));
    if (f.frame == 2) Write(kFrame, RenderScene(scene, {639, 480}));
    if (f.frame == 3) Write(kFrame, cv::Mat(480, 640, CV_8UC1, cv::Scalar(90)));
    if (f.frame == 4) {
        platform::CreateParentDirectories(platform::NativePath(std::string(kFrame)));
        platform::WriteWholeFile(platform::NativePath(std::string(kFrame)), "BM not a bitmap");
    }

    // The score stays as it was for file, cpos and size errors.
    Write("C:\\frames\\good.bmp", RenderScene(scene, {640, 480}));
    ASSERT_GT(VBcvEdgeFind("C:\\frames\\good.bmp", 0, 200, 200).X, 0);
    const EdgePoint p = VBcvEdgeFind(kFrame, f.cpos, f.sx, f.sy);
    EXPECT_EQ(p.X, -1.0);
    EXPECT_EQ(p.Y, -1.0);
    EXPECT_NE(m_trace.find(f.line), std::string::npos) << m_trace;
    const double score = VBcvEdgeFind_GetScore();
    if (f.frame == 3) {
        EXPECT_EQ(score, -8000.0) << "a scan that found nothing leaves its start value";
    } else {
        EXPECT_GT(score, 50.0) << "the score of the earlier call";
    }

    m_trace.clear();
    const EdgePointPair r = VBcvEdgeFindEX(kFrame, f.cpos, f.sx, f.sy);
    for (double v : {r.InnerX, r.InnerY, r.InnerScore, r.OuterX, r.OuterY, r.OuterScore}) EXPECT_EQ(v, -1.0);
    std::string line = f.line;
    if (f.exTagged) line.replace(line.find("EdgeFind]"), 9, "EdgeFindEX]");
    EXPECT_NE(m_trace.find(line), std::string::npos) << m_trace;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, EdgeFindFailures,
    ::testing::Values(EdgeFailure{"NoFile", 1, 0, 200, 200, "[VBcvEdgeFind] Fail : File Error \n", true},
                      EdgeFailure{"NotAnImage", 4, 0, 200, 200, "[VBcvEdgeFind] Fail : File Error \n", true},
                      EdgeFailure{"NarrowFrame", 2, 0, 200, 200, "[VBcvEdgeFind] Fail : File Error \n", true},
                      EdgeFailure{"Cpos4", 0, 4, 200, 200, "[VBcvEdgeFind] Fail : cpos error \n", true},
                      EdgeFailure{"CposNegative", 0, -1, 200, 200, "[VBcvEdgeFind] Fail : cpos error \n", true},
                      EdgeFailure{"Size29", 0, 0, 29, 20, "[VBcvEdgeFind] Fail : size error \n", false},
                      EdgeFailure{"Size481", 0, 0, 481, 481, "[VBcvEdgeFind] Fail : size error \n", false},
                      EdgeFailure{"FlatFrame", 3, 0, 200, 200, "[VBcvEdgeFind] Fail : Line detect fail\n", true}),
    [](const ::testing::TestParamInfo<EdgeFailure>& info) { return info.param.name; });

TEST_F(EdgeTest, SizeLimitsCountTheLargerSide) {
    Write(kFrame, RenderScene(QuadrantScene(2, {240, 240}), {640, 480}));
    EXPECT_GT(VBcvEdgeFind(kFrame, 2, 30, 20).X, 0) << "30 x 20: the larger side counts";
    EXPECT_GT(VBcvEdgeFind(kFrame, 2, 480, 480).X, 0);
    EXPECT_GT(VBcvEdgeFindEX(kFrame, 2, 20, 480).InnerX, 0);
    // A band of 30 around column 240 far from the rim finds nothing there.
    Write(kFrame, RenderScene(QuadrantScene(2, cv::Point2d(240, 240) + Inward(2) * 120.0), {640, 480}));
    EXPECT_EQ(VBcvEdgeFind(kFrame, 2, 30, 30).X, -1.0);
}

TEST_F(EdgeTest, TwoThreadsKeepTheirOwnResults) {
    const WaferScene a = QuadrantScene(0, {240, 240}), b = QuadrantScene(3, {220, 220});
    Write("C:\\frames\\a.bmp", RenderScene(a, {640, 480}));
    Write("C:\\frames\\b.bmp", RenderScene(b, {640, 480}));
    const EdgePoint pa = VBcvEdgeFind("C:\\frames\\a.bmp", 0, 200, 200);
    const EdgePoint pb = VBcvEdgeFind("C:\\frames\\b.bmp", 3, 200, 200);
    std::atomic<int> wrong{0};
    auto run = [&](const char* path, int cpos, EdgePoint expected) {
        for (int i = 0; i < 6; ++i) {
            const EdgePoint p = VBcvEdgeFind(path, cpos, 200, 200);
            if (p.X != expected.X || p.Y != expected.Y) ++wrong;
            const double s = VBcvEdgeFind_GetScore();
            if (!(s == 0.0 || s > 50.0)) ++wrong;  // a whole score or a cleared one
        }
    };
    std::thread t1(run, "C:\\frames\\a.bmp", 0, pa), t2(run, "C:\\frames\\b.bmp", 3, pb);
    t1.join();
    t2.join();
    EXPECT_EQ(wrong.load(), 0);
}

// ---------------------------------------------------------------------------
// The four-frame find
// ---------------------------------------------------------------------------

class FourFrameTest : public EdgeTest {
protected:
    // Frames of one wafer whose rim crosses each frame's diagonal at
    // `shift[i]` from the middle, toward the wafer centre.
    std::array<WaferScene, 4> WriteFrames(const std::string& prefix, std::array<double, 4> shift, bool darkWafer) {
        std::array<WaferScene, 4> scenes;
        for (int i = 0; i < 4; ++i) {
            scenes[i] = QuadrantScene(i, cv::Point2d(240, 240) + Inward(i) * shift[i]);
            if (darkWafer) std::swap(scenes[i].wafer, scenes[i].chuck);
            Write(prefix + std::to_string(i) + ".bmp", RenderScene(scenes[i], {640, 480}));
        }
        return scenes;
    }
};

TEST_F(FourFrameTest, CombinationLiesOnTheRimForEitherPolarity) {
    for (bool dark : {false, true}) {
        const auto scenes = WriteFrames("C:\\frames\\fex", {0, 12, -15, 8}, dark);
        const FEXCounts c = VBcvEdgeFindFEX_Process("C:\\frames\\fex", 200, 200);
        ASSERT_GE(c.Combinations, 1) << m_trace;
        for (int n : {c.Count0, c.Count1, c.Count2, c.Count3}) EXPECT_GE(n, 1);
        const FEXCoordinate k = VBcvEdgeFindFEX_GetCoordinate(0, 1);
        const int xy[4][2] = {{k.X0, k.Y0}, {k.X1, k.Y1}, {k.X2, k.Y2}, {k.X3, k.Y3}};
        for (int i = 0; i < 4; ++i)
            EXPECT_LE(RimDistance(scenes[i], cv::Point2d(xy[i][0], xy[i][1]), scenes[i].radius), 3.5)
                << "position " << i << (dark ? " dark" : " bright");
        const FEXCoordinate strongest = VBcvEdgeFindFEX_GetCoordinate(0, 0);
        EXPECT_GE(strongest.X0, 0);
        EXPECT_LT(strongest.X0, 480);
        EXPECT_TRUE(Exists(L"C:\\PROBERPARAM\\ParaImg\\WaferSync.jpg"));
        EXPECT_TRUE(Exists(L"C:\\PROBERPARAM\\ParaImg\\WaferEdge.jpg"));
        VBcvEdgeFindFEX_Release();
    }
    const std::wstring ini = L"C:\\PROBERFILES\\Parameter\\Temporary.ini";
    EXPECT_EQ(platform::ProfileString(ini, L"EdgeProfile", L"EdgeDetectGrayLevelThreshold", L""), L"20.000000");
    EXPECT_EQ(platform::ProfileString(ini, L"EdgeProfile", L"EdgeGreyLevelQuadDiffThreshold", L""), L"40.000000");
}

TEST_F(FourFrameTest, IniThresholdsAreReadAndWrittenBack) {
    WriteFrames("C:\\frames\\fex", {0, 0, 0, 0}, false);
    const std::wstring ini = L"C:\\PROBERFILES\\Parameter\\Temporary.ini";
    // A threshold above the wafer's contrast leaves no position at all.
    platform::WriteProfileString(ini, L"EdgeProfile", L"EdgeDetectGrayLevelThreshold", L"250.000000");
    const FEXCounts c = VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480);
    EXPECT_EQ(c.Count0 + c.Count1 + c.Count2 + c.Count3, 0);
    EXPECT_EQ(c.Combinations, 0);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindFEX_Process] Fail : Combination is not exist.\n"), std::string::npos);
    EXPECT_EQ(platform::ProfileString(ini, L"EdgeProfile", L"EdgeDetectGrayLevelThreshold", L""), L"250.000000");
    // No candidates: (-1, -1) at index 0, and one failure image.
    const FEXCoordinate k = VBcvEdgeFindFEX_GetCoordinate(0, 0);
    EXPECT_EQ(k.X0, -1);
    EXPECT_EQ(k.Y3, -1);
    const auto folder = platform::NativePath(std::wstring(kEdgeFailureFolder));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()), 1);
}

TEST_F(FourFrameTest, ThinChuckKeepsTheIniAndWritesItsSecondCanvas) {
    const auto scenes = WriteFrames("C:\\frames\\thin", {5, 5, 5, 5}, false);
    const FEXCounts c = VBcvEdgeFindFEX_Process_Thin_Chuck("C:\\frames\\thin", 100, 100);
    ASSERT_GE(c.Combinations, 1) << m_trace;
    EXPECT_FALSE(Exists(L"C:\\PROBERFILES\\Parameter\\Temporary.ini"));
    EXPECT_TRUE(Exists(L"C:\\PROBERPARAM\\ParaImg\\WaferSync2.jpg"));
    EXPECT_TRUE(Exists(L"C:\\PROBERPARAM\\ParaImg\\WaferEdge2.jpg"));
    const FEXCoordinate k = VBcvEdgeFindFEX_GetCoordinate(0, 1);
    EXPECT_LE(RimDistance(scenes[2], cv::Point2d(k.X2, k.Y2), scenes[2].radius), 3.5);
}

TEST_F(FourFrameTest, FailuresAndTableBounds) {
    // Before any process, after release, twice released: all harmless.
    VBcvEdgeFindFEX_Release();
    VBcvEdgeFindFEX_Release();
    FEXCoordinate k = VBcvEdgeFindFEX_GetCoordinate(0, 1);
    EXPECT_EQ(k.X0, -1);

    FEXCounts c = VBcvEdgeFindFEX_Process("C:\\frames\\fex", 481, 100);
    EXPECT_EQ(c.Count0, 0);
    EXPECT_EQ(c.Combinations, -1);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindFEX_Process] Fail : Size Error \n"), std::string::npos);

    WriteFrames("C:\\frames\\fex", {0, 0, 0, 0}, false);
    c = VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480);
    ASSERT_GE(c.Combinations, 1);
    for (int index : {-1, c.Combinations, 1 << 30}) {
        k = VBcvEdgeFindFEX_GetCoordinate(index, 1);
        EXPECT_EQ(k.X0, -1) << index;
        EXPECT_EQ(k.Y3, -1) << index;
    }
    k = VBcvEdgeFindFEX_GetCoordinate(std::max({c.Count0, c.Count1, c.Count2, c.Count3}), 0);
    EXPECT_EQ(k.X0, -1);

    // A missing frame fails whole, and clears the tables.
    std::filesystem::remove(platform::NativePath(std::string("C:\\frames\\fex3.bmp")));
    c = VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480);
    for (int n : {c.Count0, c.Count1, c.Count2, c.Count3, c.Combinations}) EXPECT_EQ(n, -1);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindFEX_Process] Fail : File Error \n"), std::string::npos);
    EXPECT_EQ(VBcvEdgeFindFEX_GetCoordinate(0, 1).X0, -1);
    // A frame smaller than the region is unreadable to this find.
    Write("C:\\frames\\fex3.bmp", cv::Mat(479, 640, CV_8UC1, cv::Scalar(7)));
    EXPECT_EQ(VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480).Combinations, -1);
}

TEST_F(FourFrameTest, ReadersInAnotherThreadSeeWholeTables) {
    WriteFrames("C:\\frames\\fex", {0, 10, 0, 10}, false);
    ASSERT_GE(VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480).Combinations, 1);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done) {
            const FEXCoordinate k = VBcvEdgeFindFEX_GetCoordinate(0, 1);
            // Either no tables (between release and process) or a whole row.
            const bool none = k.X0 == -1 && k.Y0 == -1 && k.X3 == -1 && k.Y3 == -1;
            if (!none && (k.X0 < 0 || k.X1 < 0 || k.X2 < 0 || k.X3 < 0)) ++torn;
        }
    });
    for (int i = 0; i < 4; ++i) {
        VBcvEdgeFindFEX_Process("C:\\frames\\fex", 480, 480);
        VBcvEdgeFindFEX_Release();
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn.load(), 0);
}

// ---------------------------------------------------------------------------
// VBcvEdgeFindIA
// ---------------------------------------------------------------------------

TEST_F(EdgeTest, AlignmentCheckRatesARimInItsBand) {
    const char* path = "C:\\frames\\ia.bmp";
    for (int cpos = 0; cpos < 4; ++cpos) {
        // The rim at the diagonal's middle, then 100 steps away from it.
        Write(path, RenderScene(QuadrantScene(cpos, {240, 240}), {640, 480}));
        const int inBand = VBcvEdgeFindIA(path, cpos, 40, 60);
        Write(path, RenderScene(QuadrantScene(cpos, cv::Point2d(240, 240) + Inward(cpos) * 141.0), {640, 480}));
        const int outside = VBcvEdgeFindIA(path, cpos, 40, 60);
        EXPECT_GT(inBand, 60) << "cpos " << cpos << m_trace;
        EXPECT_EQ(outside, -1) << "no step of the band above the tolerance, cpos " << cpos;
    }
    EXPECT_NE(m_trace.find("Return Value :-1\n"), std::string::npos);
    EXPECT_TRUE(Exists(L"C:\\PROBERPARAM\\ParaImg\\WaferEdgeIA.jpg"));

    // Width 3 is one step each side of 239; 2 is refused.
    Write(path, RenderScene(QuadrantScene(1, {240, 240}), {640, 480}));
    const std::vector<double> v = [&] {
        cv::Mat region = SquareRegion(cv::imread(platform::NativePath(std::string(path)), cv::IMREAD_GRAYSCALE));
        cv::Mat averaged;
        DiagonalAverage(region, averaged, 1);
        return AlignmentStrength(region, averaged, 1);
    }();
    const int peak = int(std::max_element(v.begin(), v.end()) - v.begin());
    EXPECT_NEAR(peak, 239, 2);
    EXPECT_EQ(VBcvEdgeFindIA(path, 1, 3, int(v[240]) - 1), int(v[240]));
    EXPECT_EQ(VBcvEdgeFindIA(path, 1, 2, 0), -1);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindIA] width Error \n"), std::string::npos);
    EXPECT_EQ(VBcvEdgeFindIA(path, 4, 40, 0), -1);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindIA] cpos Error \n"), std::string::npos);
    EXPECT_EQ(VBcvEdgeFindIA("C:\\frames\\none.bmp", 1, 40, 0), -1);
    EXPECT_NE(m_trace.find("[VBcvEdgeFindIA_Ori] Fail : File Error\n"), std::string::npos);
    Write(path, cv::Mat(300, 300, CV_8UC1, cv::Scalar(5)));
    EXPECT_EQ(VBcvEdgeFindIA(path, 1, 40, 0), -1) << "smaller than the region";
    EXPECT_EQ(VBcvEdgeFindIA(nullptr, 1, 40, 0), -1);
    EXPECT_EQ(VBcvEdgeFind(nullptr, 1, 40, 40).X, -1.0);
}

}  // namespace
}  // namespace pixmill::inspect::edge
