// The rotated pin search: textured oblong tips drawn at known angles in a
// series of frames, the same answer whatever the threads' timing and for
// two callers at once, and the checks and frame failures.
#include <gtest/gtest.h>

#include <algorithm>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "TestSupport.h"
#include "framework/TestHooks.h"
#include "inspect/pin/RotatePinFind.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pin {
namespace {

// Frame `k` of a 480 x 480 view: background near 60 with mild noise, and a
// tip w x h turned clockwise (as displayed) by `degrees` about `centre`,
// with a clear outline and a textured face, lightly blurred.
cv::Mat TipFrame(cv::Point2f centre, int w, int h, float degrees, int k, bool textured = true) {
    cv::Mat f(480, 480, CV_32F);
    cv::RNG rng(100 + k);
    rng.fill(f, cv::RNG::NORMAL, 60, 3);
    cv::Mat tip = cv::Mat::zeros(480, 480, CV_8UC1);
    cv::Point2f p[4];
    cv::RotatedRect(centre, cv::Size2f(float(w), float(h)), degrees).points(p);
    std::vector<cv::Point> poly(p, p + 4);
    cv::fillConvexPoly(tip, poly, 255, cv::LINE_8);
    cv::Mat face(480, 480, CV_32F);
    cv::RNG texture(7);  // the same face in every frame
    texture.fill(face, cv::RNG::NORMAL, 170, textured ? 40 : 0);
    face.copyTo(f, tip);
    cv::GaussianBlur(f, f, cv::Size(3, 3), 0.7);
    cv::Mat out;
    f.convertTo(out, CV_8U);
    return out;
}

class RotateTest : public test::InspectionTest {
protected:
    // Writes frames 0..n-1 under "C:\frames\<stem>" and returns that prefix.
    std::string WriteFrames(const std::string& stem, int n, cv::Point2f c, int w, int h,
                            float degrees, bool textured = true) {
        const std::string prefix = "C:\\frames\\" + stem;
        for (int k = 0; k < n; ++k) {
            const std::string native = platform::NativePath(prefix + std::to_string(k) + ".bmp");
            platform::CreateParentDirectories(native);
            EXPECT_TRUE(cv::imwrite(native, TipFrame(c, w, h, degrees, k, textured)));
        }
        return prefix;
    }
};

// ---------------------------------------------------------------------------
// Tips found at their angle and place
// ---------------------------------------------------------------------------

struct TipCase {
    float degrees;
    float dx, dy;
    int w, h;
};

class RotatedTipTest : public RotateTest, public ::testing::WithParamInterface<TipCase> {};

TEST_P(RotatedTipTest, AngleWithinOneStepAndCentreWithinTwoPixels) {
    const TipCase& t = GetParam();
    const cv::Point2f c(240.0f + t.dx, 240.0f + t.dy);
    const std::string path = WriteFrames("tip", 3, c, t.w, t.h, t.degrees);
    const PinFindResult r = VBcvRotatePinFind(path.c_str(), 3, 9, 200, 200, t.w, t.h, 10, 1);
    ASSERT_NE(r.Code, -1.0) << m_trace;
    EXPECT_NEAR(r.Code, t.degrees, 1.0) << m_trace;
    EXPECT_NEAR(r.X, c.x, 2.0) << m_trace;
    EXPECT_NEAR(r.Y, c.y, 2.0) << m_trace;
    EXPECT_TRUE(platform::FileExists(
        platform::NativePath(L"C:\\PROBERPARAM\\ParaImg\\PinImage\\Rotate_Sync_Edge.jpg")));
}

INSTANTIATE_TEST_SUITE_P(Tips, RotatedTipTest,
                         ::testing::Values(TipCase{0, 0, 0, 100, 50}, TipCase{7, 12, -9, 120, 60},
                                           TipCase{-6, -15, 8, 120, 60},
                                           TipCase{-9, 5, 10, 50, 100},
                                           TipCase{3, 3, -7, 100, 50},
                                           TipCase{4, -10, -10, 96, 96}));

// ---------------------------------------------------------------------------
// Threads
// ---------------------------------------------------------------------------

TEST_F(RotateTest, TwoWorkersAndOneThreadScoreAlike) {
    const cv::Point2f c(250.0f, 231.0f);
    const std::string path = WriteFrames("tip", 2, c, 120, 60, 5);
    const cv::Mat source = RotateEdgeSource(Files(), path, 2, 200, 200);
    ASSERT_FALSE(source.empty());
    const std::vector<AngleScore> one = ScoreRotations(source, 120, 60, 10, 1, 21, false);
    ASSERT_EQ(one.size(), 21u);
    for (int run = 0; run < 5; ++run) {
        const std::vector<AngleScore> two = ScoreRotations(source, 120, 60, 10, 1, 21, true);
        ASSERT_EQ(two.size(), one.size());
        for (size_t i = 0; i < one.size(); ++i) {
            EXPECT_EQ(two[i].score, one[i].score) << i;
            EXPECT_EQ(two[i].x, one[i].x) << i;
            EXPECT_EQ(two[i].y, one[i].y) << i;
            EXPECT_EQ(two[i].degrees, static_cast<int>(i) - 10);
        }
    }
    EXPECT_EQ(BestAngle(one), 15);  // +5 degrees
}

TEST_F(RotateTest, FlatTipScoresAlikeAtEveryAngle) {
    // Without texture only the outline is edge, and the wide edge band of
    // the outline fills a tip-sized box nearly as well at every angle.
    const std::string path = WriteFrames("flat", 2, {240.0f, 240.0f}, 120, 60, 7, false);
    const cv::Mat source = RotateEdgeSource(Files(), path, 2, 200, 200);
    const std::vector<AngleScore> s = ScoreRotations(source, 120, 60, 10, 1, 21, false);
    const auto [low, high] = std::minmax_element(s.begin(), s.end(), [](auto& a, auto& b) {
        return a.score < b.score;
    });
    EXPECT_LT((high->score - low->score) / high->score, 0.03);
}

TEST_F(RotateTest, SameAnswerTwentyTimes) {
    const std::string path = WriteFrames("tip", 3, {245.5f, 236.5f}, 60, 30, -4);
    const PinFindResult first = VBcvRotatePinFind(path.c_str(), 3, 3, 200, 200, 60, 30, 10, 1);
    ASSERT_NE(first.Code, -1.0) << m_trace;
    for (int i = 0; i < 19; ++i) {
        const PinFindResult r = VBcvRotatePinFind(path.c_str(), 3, 3, 200, 200, 60, 30, 10, 1);
        EXPECT_EQ(r.X, first.X);
        EXPECT_EQ(r.Y, first.Y);
        EXPECT_EQ(r.Code, first.Code);
    }
}

TEST_F(RotateTest, TwoCallersAtOnceEachGetTheirOwnAnswer) {
    const std::string a = WriteFrames("a", 2, {228.0f, 250.0f}, 120, 60, 8);
    const std::string b = WriteFrames("b", 2, {252.0f, 232.0f}, 50, 100, -5);
    const PinFindResult alone[2] = {VBcvRotatePinFind(a.c_str(), 2, 2, 200, 200, 120, 60, 10, 1),
                                    VBcvRotatePinFind(b.c_str(), 2, 2, 200, 200, 50, 100, 10, 1)};
    ASSERT_NEAR(alone[0].Code, 8, 1.0);
    ASSERT_NEAR(alone[1].Code, -5, 1.0);
    logging::SetTraceSink(nullptr, nullptr);  // the sink is not shared between threads
    for (int round = 0; round < 4; ++round) {
        PinFindResult together[2];
        std::thread ta(
            [&] { together[0] = VBcvRotatePinFind(a.c_str(), 2, 2, 200, 200, 120, 60, 10, 1); });
        std::thread tb(
            [&] { together[1] = VBcvRotatePinFind(b.c_str(), 2, 2, 200, 200, 50, 100, 10, 1); });
        ta.join();
        tb.join();
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(together[k].X, alone[k].X) << round << k;
            EXPECT_EQ(together[k].Y, alone[k].Y) << round << k;
            EXPECT_EQ(together[k].Code, alone[k].Code) << round << k;
        }
    }
}

// ---------------------------------------------------------------------------
// Angles, checks and frames
// ---------------------------------------------------------------------------

TEST_F(RotateTest, AngleStepsInWholeDegrees) {
    struct Case {
        int index;
        double searchAngle, resolution;
        int degrees;
    } cases[] = {{0, 0, 1, 0}, {0, 10, 3, -10}, {6, 10, 3, 8}, {1, 10, 0.5, -9},
                 {2, 10, 0.5, -9}, {3, 10, 0.5, -8}, {20, 10, 1, 10}};
    for (const Case& c : cases)
        EXPECT_EQ(RotationDegrees(c.index, c.searchAngle, c.resolution), c.degrees) << c.index;
    // A quarter turn swaps the sides; the canvas holds the whole image.
    const cv::Mat r = RotateImage(cv::Mat(40, 100, CV_8UC1, cv::Scalar(9)), 90);
    EXPECT_EQ(r.size(), cv::Size(40, 100));
    EXPECT_EQ(RotateImage(cv::Mat(40, 100, CV_8UC1), 45).size(), cv::Size(98, 98));
}

TEST_F(RotateTest, FailuresGiveMinusOneWithTheirLine) {
    const std::string good = WriteFrames("good", 2, {239.5f, 239.5f}, 60, 30, 0);
    // Frame 1 of "odd" is smaller; frame 0 of "cut" is not an image;
    // "flat" has no tip at all.
    const std::string odd = WriteFrames("odd", 2, {239.5f, 239.5f}, 60, 30, 0);
    cv::imwrite(platform::NativePath(odd + "1.bmp"), cv::Mat(300, 300, CV_8UC1, cv::Scalar(60)));
    const std::string cut = WriteFrames("cut", 1, {239.5f, 239.5f}, 60, 30, 0);
    platform::WriteWholeFile(platform::NativePath(cut + "0.bmp"), "BM\x10\x00");
    const std::string flat = "C:\\frames\\flat";
    cv::imwrite(platform::NativePath(flat + "0.bmp"), cv::Mat(480, 480, CV_8UC1, cv::Scalar(60)));
    struct Case {
        const char* name;
        std::string path;
        int frames, sx, tx, ty;
        double angle, resolution;
        const char* line;
    } cases[] = {
        {"sx above 480", good, 2, 484, 60, 30, 10, 1, "Search Size Error(Too Big or Too Small)"},
        {"tip above area", good, 2, 96, 100, 30, 10, 1, "Tip Size Error(Too small tx or ty\n"},
        {"tip small", good, 2, 200, 3, 30, 10, 1, "Tip Size Error"},
        {"multiple of 4", good, 2, 198, 60, 30, 10, 1, "(sx or sy is not a multiple of 4)"},
        {"angle", good, 2, 200, 60, 30, 180.5, 1, "Search Angle Error"},
        {"nan angle", good, 2, 200, 60, 30, NAN, 1, "Search Angle Error"},
        {"resolution 0", good, 2, 200, 60, 30, 10, 0, "Search Angle Error"},
        {"infinite resolution", good, 2, 200, 60, 30, 0, INFINITY, "Search Angle Error"},
        {"too many angles", good, 2, 200, 60, 30, 180, 0.01, "Search Angle Error"},
        {"no frames", good, 0, 200, 60, 30, 10, 1, "Fail : File Error\n"},
        {"missing frame", good, 3, 200, 60, 30, 10, 1, "Fail : File Error\n"},
        {"frame of another size", odd, 2, 200, 60, 30, 10, 1, "Fail : File Error\n"},
        {"truncated frame", cut, 1, 200, 60, 30, 10, 1, "Fail : File Error\n"},
        {"no edge", flat, 1, 200, 60, 30, 10, 1, "Too few edge data("},
    };
    for (const Case& c : cases) {
        m_trace.clear();
        const PinFindResult r = VBcvRotatePinFind(c.path.c_str(), c.frames, 0, c.sx, 200, c.tx,
                                                  c.ty, c.angle, c.resolution);
        EXPECT_EQ(r.X, -1.0) << c.name;
        EXPECT_EQ(r.Y, -1.0) << c.name;
        EXPECT_EQ(r.Code, -1.0) << c.name;
        EXPECT_NE(m_trace.find(c.line), std::string::npos) << c.name << ": " << m_trace;
        EXPECT_EQ(test::CountOf(m_trace, "Fail"), 1) << c.name;
    }
    EXPECT_EQ(VBcvRotatePinFind(nullptr, 1, 1, 200, 200, 60, 30, 10, 1).Code, -1.0);
}

TEST_F(RotateTest, ThreeChannelFramesAreReadInGray) {
    const std::string path = "C:\\frames\\colour";
    for (int k = 0; k < 2; ++k) {
        cv::Mat colour;
        cv::cvtColor(TipFrame({244.0f, 236.0f}, 120, 60, 6, k), colour, cv::COLOR_GRAY2BGR);
        const std::string native = platform::NativePath(path + std::to_string(k) + ".bmp");
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, colour));
    }
    const PinFindResult r = VBcvRotatePinFind(path.c_str(), 2, 2, 200, 200, 120, 60, 10, 1);
    EXPECT_NEAR(r.Code, 6, 1.0) << m_trace;
    EXPECT_NEAR(r.X, 244.0, 2.0);
    EXPECT_NEAR(r.Y, 236.0, 2.0);
}

}  // namespace
}  // namespace pixmill::inspect::pin
