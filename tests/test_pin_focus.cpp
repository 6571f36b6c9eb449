// Focus and light: a focus series blurred away from a known frame, the
// blob size rule of the focus check at its boundary, and light levels
// drawn at known gray values.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"
#include "framework/TestHooks.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFocus.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pin {
namespace {

// One scene: a bright 50 x 34 tip with a slightly textured face at
// (226..275, 228..261) on a darker textured ground.
cv::Mat FocusScene() {
    cv::Mat f(480, 480, CV_32F);
    cv::RNG rng(3);
    rng.fill(f, cv::RNG::NORMAL, 60, 2);
    cv::Mat face(34, 50, CV_32F);
    rng.fill(face, cv::RNG::NORMAL, 190, 2);
    face.copyTo(f(cv::Rect(226, 228, 50, 34)));
    return f;
}

class PinFocusTest : public test::InspectionTest {
protected:
    void Write(const std::string& proberPath, const cv::Mat& image) {
        const std::string native = platform::NativePath(proberPath);
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, image));
    }
    bool Traced(const std::string& line) const { return m_trace.find(line) != std::string::npos; }
    // Frames "C:\focus\f<k>.bmp" of FocusScene, sharp at `sharp`, the blur
    // growing with the distance from it. Returns the prefix.
    std::string WriteSeries(int frames, int sharp) {
        const cv::Mat scene = FocusScene();
        for (int k = 0; k < frames; ++k) {
            cv::Mat blurred, out;
            const double sigma = 0.4 + 1.1 * std::abs(k - sharp);
            cv::GaussianBlur(scene, blurred, cv::Size(0, 0), sigma);
            blurred.convertTo(out, CV_8U);
            Write("C:\\focus\\f" + std::to_string(k) + ".bmp", out);
        }
        return "C:\\focus\\f";
    }
};

// ---------------------------------------------------------------------------
// VBcvPinFocusing
// ---------------------------------------------------------------------------

class PinFocusSeriesTest : public PinFocusTest, public ::testing::WithParamInterface<int> {};

TEST_P(PinFocusSeriesTest, SharpFramesAreChosen) {
    const int sharp = GetParam();
    const std::string path = WriteSeries(7, sharp);
    const PinFocusingResult r = VBcvPinFocusing(path.c_str(), 7, 200, 200, 40, 30, 0);
    ASSERT_EQ(r.SFrame, sharp) << m_trace;
    EXPECT_EQ(r.TFrame, sharp);
    // The row runs span the tip's width, the column runs its height: the
    // boxes cover the tip (centre 250.5, 244.5; 50 x 34).
    EXPECT_NEAR(r.SX, 250.5, 2.0);
    EXPECT_NEAR(r.SY, 244.5, 2.0);
    EXPECT_NEAR(r.SWidth, 50, 3.0);
    EXPECT_NEAR(r.SHeight, 34, 3.0);
    EXPECT_NEAR(r.TX, 250.5, 2.0);
    EXPECT_NEAR(r.TY, 244.5, 2.0);
    EXPECT_NEAR(r.TWidth, 50, 3.0);
    EXPECT_NEAR(r.THeight, 34, 3.0);
    EXPECT_TRUE(Traced(Format("[VBcvPinFocusing] Result : FNum(%d, %d)", sharp, sharp)));
    EXPECT_TRUE(platform::FileExists(
        platform::NativePath(L"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinFoc.jpg")));
}

INSTANTIATE_TEST_SUITE_P(Series, PinFocusSeriesTest, ::testing::Values(0, 3, 6));

TEST_F(PinFocusTest, DiffBelowTwentyOneActsAsTwentyOne) {
    const std::string path = WriteSeries(5, 2);
    const auto same = [](const PinFocusingResult& a, const PinFocusingResult& b) {
        return a.SFrame == b.SFrame && a.TFrame == b.TFrame && a.SX == b.SX && a.SY == b.SY &&
               a.SWidth == b.SWidth && a.SHeight == b.SHeight && a.TX == b.TX &&
               a.TY == b.TY && a.TWidth == b.TWidth && a.THeight == b.THeight;
    };
    const PinFocusingResult floor = VBcvPinFocusing(path.c_str(), 5, 200, 200, 40, 30, 21);
    ASSERT_EQ(floor.SFrame, 2) << m_trace;
    EXPECT_TRUE(same(VBcvPinFocusing(path.c_str(), 5, 200, 200, 40, 30, 0), floor));
    EXPECT_TRUE(same(VBcvPinFocusing(path.c_str(), 5, 200, 200, 40, 30, -50), floor));
    // A step no edge reaches: nothing is detected.
    m_trace.clear();
    EXPECT_EQ(VBcvPinFocusing(path.c_str(), 5, 200, 200, 40, 30, 200).SFrame, -1);
    EXPECT_TRUE(Traced("[VBcvPinFocusing] Fail : Detect fail \n")) << m_trace;
}

TEST_F(PinFocusTest, FocusingFailures) {
    const std::string path = WriteSeries(2, 0);
    Write("C:\\focus\\g0.bmp", cv::Mat(480, 480, CV_8UC3, cv::Scalar(60, 60, 60)));
    Write("C:\\focus\\g1.bmp", cv::Mat(400, 480, CV_8UC1, cv::Scalar(60)));
    struct Case {
        const char* name;
        const char* path;
        int frames, sx, tx, ty;
        const char* line;
    } cases[] = {
        {"tx 7", path.c_str(), 2, 200, 7, 30, "Parameter Error \n"},
        {"ty above sy", path.c_str(), 2, 200, 40, 201, "Parameter Error \n"},
        {"sx 0", path.c_str(), 2, 0, 40, 30, "Parameter Error \n"},
        {"no frame", path.c_str(), 0, 200, 40, 30, "Parameter Error \n"},
        {"missing frame", path.c_str(), 3, 200, 40, 30, "File Error \n"},
        {"frame of another size", "C:\\focus\\g", 2, 200, 40, 30, "File Error \n"},
        {"area beyond the frame", path.c_str(), 2, 484, 40, 30, "File Error \n"},
        {"null path", nullptr, 2, 200, 40, 30, "File Error \n"},
    };
    for (const Case& c : cases) {
        m_trace.clear();
        const PinFocusingResult r = VBcvPinFocusing(c.path, c.frames, c.sx, 200, c.tx, c.ty, 21);
        const int* fields = &r.SFrame;
        for (int i = 0; i < 10; ++i) EXPECT_EQ(fields[i], -1) << c.name << " field " << i;
        EXPECT_TRUE(Traced(c.line)) << c.name << ": " << m_trace;
    }
}

TEST_F(PinFocusTest, RunsKeepOffTheEndsOfTheirLines) {
    // One row: rises at 3|4, 10|11 and 30|31, falls at 6|7, 20|21 and 36|37
    // on a 40-pixel line.
    cv::Mat row(1, 40, CV_8UC1, cv::Scalar(10));
    row.colRange(4, 7).setTo(200);
    row.colRange(11, 21).setTo(120);
    row.colRange(31, 37).setTo(200);
    cv::Mat runs, strength;
    DrawRuns(row, 21, true, runs, strength);
    EXPECT_EQ(cv::countNonZero(runs.colRange(0, 11)), 0);  // starts at 4: too near the start
    EXPECT_EQ(cv::countNonZero(runs.colRange(11, 21)), 10);
    EXPECT_EQ(strength.at<float>(0, 15), 110.0f);            // min(rise 110, fall 110)
    EXPECT_EQ(cv::countNonZero(runs.colRange(21, 40)), 0);  // ends at 36: in the last 5
    DrawRuns(row, 111, true, runs, strength);
    EXPECT_EQ(cv::countNonZero(runs), 0);
}

// ---------------------------------------------------------------------------
// VBcvPinFocusCheck
// ---------------------------------------------------------------------------

TEST_F(PinFocusTest, FocusCheckBlobMustExceedTheTipBySixty) {
    cv::Mat image(480, 480, CV_8UC1, cv::Scalar(60));
    image(cv::Rect(180, 190, 110, 90)).setTo(200);
    Write("C:\\PROBERPARAM\\ParaImg\\PinImage\\FocimageRef.bmp", image);
    const PinFocusCheckResult wide = VBcvPinFocusCheck(240, 240, 4, 4);
    ASSERT_EQ(wide.Code, 1.0) << m_trace;
    EXPECT_NEAR(wide.X, 235, 3.0);
    EXPECT_NEAR(wide.Y, 235, 3.0);
    EXPECT_NEAR(wide.Width, 110, 4.0);
    EXPECT_NEAR(wide.Height, 90, 4.0);
    const int w = static_cast<int>(wide.Width), h = static_cast<int>(wide.Height);
    EXPECT_EQ(VBcvPinFocusCheck(240, 240, w - 61, h - 61).Code, 1.0);
    const PinFocusCheckResult atWidth = VBcvPinFocusCheck(240, 240, w - 60, 4);
    EXPECT_EQ(atWidth.Code, 2.0);
    EXPECT_EQ(atWidth.X, -1.0);
    EXPECT_EQ(VBcvPinFocusCheck(240, 240, 4, h - 60).Code, 2.0);
    EXPECT_EQ(VBcvPinFocusCheck(240, 240, INT_MAX, INT_MAX).Code, 2.0);
    EXPECT_TRUE(platform::FileExists(
        platform::NativePath(L"C:\\PROBERPARAM\\ParaImg\\PinImage\\FocimageRes.jpg")));
    // An area beyond the image, then no image.
    EXPECT_EQ(VBcvPinFocusCheck(484, 240, 4, 4).Code, 2.0);
    platform::RemoveFile(platform::NativePath(kFocusInputImage));
    m_trace.clear();
    EXPECT_EQ(VBcvPinFocusCheck(240, 240, 4, 4).Code, 2.0);
    EXPECT_TRUE(Traced("[VBcvPinFocusCheck] Fail : File Error\n"));
}

// ---------------------------------------------------------------------------
// VBcvPinLightFind
// ---------------------------------------------------------------------------

struct LightCase {
    const char* name;
    int aType, mode, tx, ty, cx, cy;
};

class LightTest : public PinFocusTest, public ::testing::WithParamInterface<LightCase> {};

TEST_P(LightTest, DifferenceOfKnownLevels) {
    const LightCase& c = GetParam();
    // Tip at 40, ground at 152 with noise; the corners of the window that
    // lie beyond sx/2 of its centre at 250: only mode 1 sees them.
    cv::Mat f(480, 480, CV_32F);
    cv::RNG rng(5);
    rng.fill(f, cv::RNG::NORMAL, 152, 6);
    cv::Mat image;
    f.convertTo(image, CV_8U);
    const int sx = 120, sy = 120;
    const cv::Point w0(c.cx - sx / 2 + 240, c.cy - sy / 2 + 240);
    cv::Mat corners = cv::Mat::zeros(480, 480, CV_8UC1);
    corners(cv::Rect(w0, cv::Size(sx, sy))).setTo(255);
    cv::circle(corners, w0 + cv::Point(sx / 2 - 1, sy / 2 - 1), sx / 2 + 1, 0, cv::FILLED);
    image.setTo(250, corners);
    if (c.aType == CIRCLE)
        cv::circle(image, {239, 239}, c.tx / 2, 40, cv::FILLED, cv::LINE_8);
    else
        cv::rectangle(image, cv::Point(239 - c.tx / 2, 239 - c.ty / 2),
                      cv::Point(239 + c.tx / 2, 239 + c.ty / 2), 40, cv::FILLED, cv::LINE_8);
    Write("C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp", image);

    const double d = VBcvPinLightFind(sx, sy, c.cx, c.cy, c.aType, c.mode, c.tx, c.ty);
    if (c.mode == 0)
        EXPECT_NEAR(d, 152 - 40, 1.0) << m_trace;
    else
        EXPECT_GT(d, 152 - 40 + 3) << m_trace;  // the bright corners count
    EXPECT_TRUE(Traced("[VBcvPinLightFind] Abs(Background - Tip) : "));
}

INSTANTIATE_TEST_SUITE_P(Levels, LightTest,
                         ::testing::Values(LightCase{"disc", CIRCLE, 0, 40, 40, 0, 0},
                                           LightCase{"discMoved", CIRCLE, 0, 30, 30, 15, -10},
                                           LightCase{"rect", RECTANGLE, 0, 40, 24, 0, 0},
                                           LightCase{"discAll", CIRCLE, 1, 40, 40, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(LightTest, UnmeasurableGivesMinusOne) {
    Write("C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp",
          cv::Mat(480, 480, CV_8UC1, cv::Scalar(100)));
    struct Case {
        const char* name;
        int sx, cx, aType, tx;
        const char* line;
    } cases[] = {
        {"unknown shape", 120, 0, 7, 40, "[VBcvPinFind] Fail : Avg Error \n"},
        {"negative tip", 120, 0, CIRCLE, -40, "[VBcvPinFind] Fail : Avg Error \n"},
        {"window off the tip", 60, 150, CIRCLE, 20, "[VBcvPinFind] Fail : Avg Error \n"},
        {"window beyond the image", 120, 200, CIRCLE, 20, "[VBcvPinLightFind] Fail : File Error\n"},
        {"huge tip", 120, 0, CIRCLE, INT_MAX, "[VBcvPinFind] Fail : Avg Error \n"},
    };
    for (const Case& c : cases) {
        m_trace.clear();
        EXPECT_EQ(VBcvPinLightFind(c.sx, c.sx, c.cx, 0, c.aType, 1, c.tx, c.tx), -1.0) << c.name;
        EXPECT_TRUE(Traced(c.line)) << c.name << ": " << m_trace;
    }
    platform::RemoveFile(platform::NativePath(kPinInputImage));
    EXPECT_EQ(VBcvPinLightFind(120, 120, 0, 0, CIRCLE, 0, 40, 40), -1.0);
}

}  // namespace
}  // namespace pixmill::inspect::pin
