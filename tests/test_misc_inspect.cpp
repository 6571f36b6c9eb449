// Fiducial marks drawn off the pixel grid on a textured, noisy, blurred
// ground; region statistics against OpenCV's own and naive counts; probe
// marks isolated on flat pads; and the documented failure of every bad
// input.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "enhance/PadThreshold.h"
#include "inspect/misc/FiducialMark.h"
#include "inspect/misc/FlatPad.h"
#include "inspect/misc/IntensityData.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::misc {
namespace {

class MiscInspectTest : public test::InspectionTest {
protected:
    bool Traced(const std::string& line) const { return m_trace.find(line) != std::string::npos; }
    static bool Exists(const std::wstring& proberPath) {
        return platform::FileExists(platform::NativePath(proberPath));
    }
    static cv::Mat ReadBack(const std::string& proberPath) {
        return cv::imread(platform::NativePath(proberPath), cv::IMREAD_GRAYSCALE);
    }
};

double IoU(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat i, u;
    cv::bitwise_and(a, b, i);
    cv::bitwise_or(a, b, u);
    return static_cast<double>(cv::countNonZero(i)) / std::max(1, cv::countNonZero(u));
}

// Noise of `sigma` added, then a Gaussian blur of `blur`.
cv::Mat Roughen(const cv::Mat& scene, int seed, double sigma, double blur) {
    cv::Mat noise(scene.size(), CV_32F), f;
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0, sigma);
    scene.convertTo(f, CV_32F);
    f += noise;
    cv::GaussianBlur(f, f, cv::Size(0, 0), blur);
    cv::Mat out;
    f.convertTo(out, CV_8U);
    return out;
}

// ---------------------------------------------------------------------------
// VBcvFiducialMarkFind
// ---------------------------------------------------------------------------

constexpr int kUp = 4;  // marks are drawn this many times larger, then shrunk

struct MarkCase {
    const char* name;
    int type;
    int tx, ty, lineWidth;  // in image pixels
    bool bright;            // drawn brighter than the ground
    int polarity;           // asked for
    double cx, cy;          // the true centre, off the grid
    int sx, sy;
};

// A 480 x 480 scene: stripes and blotches on the ground, a decoy of the
// other polarity, the mark drawn at kUp scale with quarter-pixel centres
// and shrunk by area (so its centre is known to a sixteenth of a pixel),
// then noise of sigma 6 and a blur of sigma 1.
cv::Mat MarkScene(const MarkCase& c, int seed) {
    const int n = 480 * kUp;
    cv::Mat big(n, n, CV_8UC1);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            big.at<uchar>(y, x) = cv::saturate_cast<uchar>(
                120 + 14 * std::sin(x * 0.011) + 10 * std::cos((x + 2 * y) * 0.004));
    cv::RNG rng(seed);
    for (int k = 0; k < 12; ++k)
        cv::circle(big, {rng.uniform(0, n), rng.uniform(0, n)}, rng.uniform(20, 90),
                   cv::Scalar(rng.uniform(95, 150)), cv::FILLED);
    const int ink = c.bright ? 215 : 40;
    // A small filled square of the other polarity away from the mark.
    const cv::Point decoy(c.cx < 240 ? 380 * kUp : 90 * kUp, c.cy < 240 ? 390 * kUp : 80 * kUp);
    cv::rectangle(big, cv::Rect(decoy, cv::Size(24 * kUp, 24 * kUp)), cv::Scalar(255 - ink + 10),
                  cv::FILLED);

    // Big-scale centre J of small centre c: c = (J - 1.5) / kUp. Shapes
    // are drawn with 2 fractional bits.
    constexpr int kShift = 2;
    const auto fx = [&](double small) { return cv::saturate_cast<int>((small * kUp + 1.5) * 4); };
    const int cx = fx(c.cx), cy = fx(c.cy);
    const int hx = c.tx * kUp * 4 / 2, hy = c.ty * kUp * 4 / 2;
    const int w = c.lineWidth * kUp * 4;
    const cv::Scalar colour(ink);
    // A filled box from (x0, y0) to (x1, y1) in fixed point: its pixels are
    // those whose centres lie within.
    const auto box = [&](int x0, int y0, int x1, int y1) {
        cv::rectangle(big, cv::Point(x0 + 2, y0 + 2), cv::Point(x1 - 2, y1 - 2), colour,
                      cv::FILLED, cv::LINE_8, kShift);
    };
    switch (c.type) {
        case kCross:
            box(cx - hx, cy - w / 2, cx + hx, cy + w / 2);
            box(cx - w / 2, cy - hy, cx + w / 2, cy + hy);
            break;
        case kSquare:
            if (c.lineWidth == 0) {
                box(cx - hx, cy - hy, cx + hx, cy + hy);
            } else {  // four sides, the ground showing inside
                box(cx - hx, cy - hy, cx + hx, cy - hy + w);
                box(cx - hx, cy + hy - w, cx + hx, cy + hy);
                box(cx - hx, cy - hy, cx - hx + w, cy + hy);
                box(cx + hx - w, cy - hy, cx + hx, cy + hy);
            }
            break;
        case kCircle:
            if (c.lineWidth == 0) {
                cv::ellipse(big, cv::Point(cx, cy), cv::Size(hx, hy), 0, 0, 360, colour,
                            cv::FILLED, cv::LINE_8, kShift);
            } else {
                cv::ellipse(big, cv::Point(cx, cy), cv::Size(hx - w / 2, hy - w / 2), 0, 0, 360,
                            colour, c.lineWidth * kUp, cv::LINE_8, kShift);
            }
            break;
    }
    cv::Mat small;
    cv::resize(big, small, cv::Size(480, 480), 0, 0, cv::INTER_AREA);
    return Roughen(small, seed + 1, 6.0, 1.0);
}

const MarkCase kMarks[] = {
    {"cross_dark", kCross, 60, 60, 6, false, kDarkMark, 231.25, 247.75, 240, 240},
    {"cross_bright_either_wide", kCross, 44, 32, 4, true, kEitherMark, 262.5, 228.0, 0, 0},
    {"ring_bright", kCircle, 50, 50, 5, true, kBrightMark, 260.5, 228.25, 200, 200},
    {"disc_dark", kCircle, 30, 30, 0, false, kDarkMark, 218.75, 251.5, 300, 300},
    {"ellipse_ring_either", kCircle, 56, 40, 4, false, kEitherMark, 246.0, 239.5, 0, 0},
    {"square_filled_either", kSquare, 40, 40, 0, false, kEitherMark, 205.75, 270.25, 240, 240},
    {"square_outline_bright", kSquare, 64, 48, 4, true, kBrightMark, 250.25, 236.75, 300, 300},
};

class FiducialFindTest : public MiscInspectTest, public ::testing::WithParamInterface<MarkCase> {};

TEST_P(FiducialFindTest, FindsTheDrawnMarkWithinAPixel) {
    const MarkCase& c = GetParam();
    for (int seed : {11, 12, 13}) {
        WriteImage("C:\\marks\\m.bmp", MarkScene(c, seed));
        m_trace.clear();
        const FiducialMarkResult r = VBcvFiducialMarkFind("C:\\marks\\m.bmp", c.type, c.tx, c.ty,
                                                          c.lineWidth, c.polarity, c.sx, c.sy, 50);
        const double error = std::hypot(r.X - c.cx, r.Y - c.cy);
        EXPECT_LE(error, 1.0) << c.name << " seed " << seed << " at (" << r.X << ", " << r.Y
                              << ") " << m_trace;
        EXPECT_GE(r.Score, 70.0) << c.name << " seed " << seed;
        EXPECT_LE(r.Score, 100.0);
        EXPECT_TRUE(Traced("[VBcvFiducialMarkFind] End \n")) << m_trace;
        RecordProperty("error_millipixel_seed" + std::to_string(seed),
                       static_cast<int>(error * 1000));
        RecordProperty("score_seed" + std::to_string(seed), static_cast<int>(r.Score));
        if (c.polarity == kEitherMark) continue;
        // The other polarity must not score as well at the mark.
        const FiducialMarkResult other =
            VBcvFiducialMarkFind("C:\\marks\\m.bmp", c.type, c.tx, c.ty, c.lineWidth,
                                 c.polarity == kDarkMark ? kBrightMark : kDarkMark, c.sx, c.sy, 0);
        EXPECT_LT(other.Score, r.Score - 20) << c.name;
    }
    EXPECT_TRUE(Exists(kFiducialDebugImage));
}

INSTANTIATE_TEST_SUITE_P(Marks, FiducialFindTest, ::testing::ValuesIn(kMarks),
                         [](const auto& info) { return std::string(info.param.name); });

// A template must be centred on its mark whatever the parity of sizes and
// widths, or every find would be off by half a pixel; and it must cover
// the figure's area.
TEST(FiducialTemplate, IsSymmetricAndCoversTheFigure) {
    struct Case {
        int type, tx, ty, w;
        double area;  // of the ideal figure, in pixels
    } cases[] = {
        {kSquare, 20, 20, 0, 400.0},
        {kSquare, 21, 14, 3, 21.0 * 14 - 15.0 * 8},
        {kCross, 31, 20, 4, 31.0 * 4 + 20 * 4 - 16},
        {kCross, 30, 30, 5, 30.0 * 5 * 2 - 25},
        {kCircle, 40, 40, 0, M_PI * 400},
        {kCircle, 33, 24, 4, M_PI * (16.5 * 12 - 12.5 * 8)},
    };
    for (const Case& c : cases) {
        const cv::Mat t = DrawFiducialTemplate(c.type, c.tx, c.ty, c.w);
        const int margin = FiducialMargin(c.tx, c.ty);
        ASSERT_EQ(t.cols, c.tx + 2 * margin);
        ASSERT_EQ(t.rows, c.ty + 2 * margin);
        for (int flip : {0, 1}) {
            cv::Mat flipped;
            cv::flip(t, flipped, flip);
            EXPECT_EQ(cv::norm(t, flipped, cv::NORM_INF), 0.0) << c.type << " flip " << flip;
        }
        EXPECT_NEAR(cv::sum(t)[0] / 255.0, c.area, c.area * 0.02) << c.type << " " << c.tx;
        // Nothing of the mark in the margin.
        EXPECT_EQ(cv::countNonZero(t.rowRange(0, margin)), 0);
        EXPECT_EQ(cv::countNonZero(t.colRange(t.cols - margin, t.cols)), 0);
    }
}

TEST_F(MiscInspectTest, FiducialFailuresAreAllMinusOne) {
    const MarkCase& c = kMarks[0];
    WriteImage("C:\\marks\\m.bmp", MarkScene(c, 3));
    WriteImage("C:\\marks\\flat.bmp", cv::Mat(480, 480, CV_8UC1, cv::Scalar(128)));
    platform::WriteWholeFile(platform::NativePath(std::string("C:\\marks\\text.bmp")), "no image");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        const char* name;
        const char* path;
        int type, tx, ty, w, polarity, sx, sy;
        double minScore;
        const char* line;
    } cases[] = {
        {"type 3", "C:\\marks\\m.bmp", 3, 60, 60, 6, 0, 240, 240, 50, "Parameter Error"},
        {"type -1", "C:\\marks\\m.bmp", -1, 60, 60, 6, 0, 240, 240, 50, "Parameter Error"},
        {"tx 3", "C:\\marks\\m.bmp", kCross, 3, 60, 6, 0, 240, 240, 50, "Parameter Error"},
        {"cross without stroke", "C:\\marks\\m.bmp", kCross, 60, 60, 0, 0, 240, 240, 50,
         "Parameter Error"},
        {"negative stroke", "C:\\marks\\m.bmp", kSquare, 60, 60, -1, 0, 240, 240, 50,
         "Parameter Error"},
        {"polarity 3", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 3, 240, 240, 50, "Parameter Error"},
        {"negative window", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 0, -1, 240, 50,
         "Parameter Error"},
        {"score above 100", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 0, 240, 240, 101,
         "Parameter Error"},
        {"score NaN", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 0, 240, 240, nan, "Parameter Error"},
        {"missing file", "C:\\marks\\none.bmp", kCross, 60, 60, 6, 0, 240, 240, 50, "File Error"},
        {"null path", nullptr, kCross, 60, 60, 6, 0, 240, 240, 50, "File Error"},
        {"not an image", "C:\\marks\\text.bmp", kCross, 60, 60, 6, 0, 240, 240, 50, "File Error"},
        {"window wider than image", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 0, 481, 240, 50,
         "Region Error"},
        {"window at int max", "C:\\marks\\m.bmp", kCross, 60, 60, 6, 0, INT_MAX, INT_MAX, 50,
         "Region Error"},
        {"mark beyond window", "C:\\marks\\m.bmp", kCross, 80, 60, 6, 0, 80, 240, 50,
         "Region Error"},
        {"mark at int max", "C:\\marks\\m.bmp", kSquare, INT_MAX, INT_MAX, 0, 0, 0, 0, 50,
         "Region Error"},
        {"no contrast", "C:\\marks\\flat.bmp", kCross, 60, 60, 6, 2, 240, 240, 1, "Low Score"},
    };
    for (const Case& k : cases) {
        m_trace.clear();
        const FiducialMarkResult r =
            VBcvFiducialMarkFind(k.path, k.type, k.tx, k.ty, k.w, k.polarity, k.sx, k.sy,
                                 k.minScore);
        EXPECT_EQ(r.X, -1.0) << k.name;
        EXPECT_EQ(r.Y, -1.0) << k.name;
        EXPECT_EQ(r.Score, -1.0) << k.name;
        EXPECT_TRUE(Traced(std::string("[VBcvFiducialMarkFind] Fail : ") + k.line))
            << k.name << ": " << m_trace;
    }
    // A window without contrast scores 0, which minScore 0 accepts.
    const FiducialMarkResult flat =
        VBcvFiducialMarkFind("C:\\marks\\flat.bmp", kCross, 60, 60, 6, 2, 240, 240, 0);
    EXPECT_EQ(flat.Score, 0.0);
}

// ---------------------------------------------------------------------------
// VBcvGetIntesityData
// ---------------------------------------------------------------------------

// 320 x 240: a gradient, a few flat boxes and noise (every level occurs).
cv::Mat IntensityScene() {
    cv::Mat scene(240, 320, CV_8UC1);
    for (int y = 0; y < scene.rows; ++y)
        for (int x = 0; x < scene.cols; ++x)
            scene.at<uchar>(y, x) = static_cast<uchar>((x * 255) / 319 / 2 + y / 3);
    cv::rectangle(scene, cv::Rect(40, 30, 60, 50), cv::Scalar(250), cv::FILLED);
    cv::rectangle(scene, cv::Rect(200, 150, 70, 40), cv::Scalar(3), cv::FILLED);
    return Roughen(scene, 5, 12.0, 0.6);
}

struct RegionCase {
    const char* name;
    int x, y, width, height;
};

const RegionCase kRegions[] = {
    {"inside", 37, 21, 150, 100},   {"whole_by_zeros", 0, 0, 0, 0},
    {"whole_given", 0, 0, 320, 240}, {"one_pixel", 319, 239, 1, 1},
    {"one_column", 5, 0, 1, 240},    {"bottom_right", 250, 170, 70, 70},
};

class IntensityRegionTest : public MiscInspectTest,
                            public ::testing::WithParamInterface<RegionCase> {};

TEST_P(IntensityRegionTest, StatisticsMatchOpenCvAndANaiveCount) {
    const RegionCase& c = GetParam();
    WriteImage("C:\\light\\a.png", IntensityScene());
    const cv::Mat image = ReadBack("C:\\light\\a.png");
    const cv::Rect rect = c.width == 0 ? cv::Rect(0, 0, image.cols, image.rows)
                                       : cv::Rect(c.x, c.y, c.width, c.height);
    const cv::Mat roi = image(rect);

    std::vector<int> hist(260, -7);
    const IntensityData r = VBcvGetIntesityData("C:\\light\\a.png", c.x, c.y, c.width, c.height,
                                                hist.data(), static_cast<int>(hist.size()));
    cv::Scalar unused, deviation;
    cv::meanStdDev(roi, unused, deviation);
    double least, greatest;
    cv::minMaxLoc(roi, &least, &greatest);
    EXPECT_DOUBLE_EQ(r.Mean, cv::mean(roi)[0]) << m_trace;
    EXPECT_EQ(r.StdDev, deviation[0]);
    EXPECT_EQ(r.Min, least);
    EXPECT_EQ(r.Max, greatest);
    EXPECT_EQ(r.Pixels, static_cast<double>(rect.area()));

    // The histogram against a plain count, and the population deviation
    // against the two-pass formula.
    std::vector<int> counted(256, 0);
    double sum = 0;
    for (int y = 0; y < roi.rows; ++y)
        for (int x = 0; x < roi.cols; ++x) {
            ++counted[roi.at<uchar>(y, x)];
            sum += roi.at<uchar>(y, x);
        }
    for (int i = 0; i < 256; ++i) EXPECT_EQ(hist[i], counted[i]) << "level " << i;
    for (int i = 256; i < 260; ++i) EXPECT_EQ(hist[i], -7) << "entry " << i << " was written";
    const double m = sum / rect.area();
    double squares = 0;
    for (int y = 0; y < roi.rows; ++y)
        for (int x = 0; x < roi.cols; ++x) squares += (roi.at<uchar>(y, x) - m) * (roi.at<uchar>(y, x) - m);
    EXPECT_NEAR(r.StdDev, std::sqrt(squares / rect.area()), 1e-9);
    EXPECT_EQ(r.Mean, m);  // the exact sum, divided once
}

INSTANTIATE_TEST_SUITE_P(Regions, IntensityRegionTest, ::testing::ValuesIn(kRegions),
                         [](const auto& info) { return std::string(info.param.name); });

// A flat region's mean is its level, never a rounding step below its
// least pixel (the fuzz target saw 215.99999999999997 for 216).
TEST_F(MiscInspectTest, FlatRegionMeanIsItsLevel) {
    WriteImage("C:\\light\\flat.png", cv::Mat(40, 40, CV_8UC1, cv::Scalar(216)));
    std::vector<int> hist(256);
    const IntensityData r = VBcvGetIntesityData("C:\\light\\flat.png", 7, 7, 7, 7, hist.data(), 256);
    EXPECT_EQ(r.Mean, 216.0);
    EXPECT_EQ(r.Min, 216.0);
    EXPECT_EQ(r.Max, 216.0);
    EXPECT_LT(r.StdDev, 1e-4);
    EXPECT_EQ(hist[216], 49);
}

// Single-precision counts are exact only up to 2^24: an odd count above it
// would come out rounded.
TEST(IntensityCount, StaysExactBeyondSinglePrecision) {
    const cv::Mat big(4099, 4201, CV_8UC1, cv::Scalar(77));
    int64_t counts[kIntensityBins];
    CountGrayLevels(big, counts);
    EXPECT_EQ(counts[77], int64_t{4099} * 4201);
    EXPECT_EQ(counts[76] + counts[78], 0);
}

TEST_F(MiscInspectTest, IntensityFailuresLeaveTheBufferAlone) {
    WriteImage("C:\\light\\a.png", IntensityScene());
    struct Case {
        const char* name;
        const char* path;
        int x, y, width, height;
        bool nullBuffer;
        int size;
        const char* line;
    } cases[] = {
        {"null buffer", "C:\\light\\a.png", 0, 0, 10, 10, true, 256, "Parameter Error"},
        {"buffer too small", "C:\\light\\a.png", 0, 0, 10, 10, false, 255, "Parameter Error"},
        {"buffer size negative", "C:\\light\\a.png", 0, 0, 10, 10, false, -1, "Parameter Error"},
        {"missing file", "C:\\light\\none.png", 0, 0, 10, 10, false, 256, "File Error"},
        {"null path", nullptr, 0, 0, 10, 10, false, 256, "File Error"},
        {"past the right side", "C:\\light\\a.png", 311, 0, 10, 10, false, 256, "Region Error"},
        {"past the bottom", "C:\\light\\a.png", 0, 231, 10, 10, false, 256, "Region Error"},
        {"negative x", "C:\\light\\a.png", -1, 0, 10, 10, false, 256, "Region Error"},
        {"negative width", "C:\\light\\a.png", 20, 20, -5, 10, false, 256, "Region Error"},
        {"zero width", "C:\\light\\a.png", 20, 20, 0, 10, false, 256, "Region Error"},
        {"zero size off the origin", "C:\\light\\a.png", 1, 0, 0, 0, false, 256, "Region Error"},
        {"x at int max", "C:\\light\\a.png", INT_MAX, 0, 1, 1, false, 256, "Region Error"},
        {"width at int max", "C:\\light\\a.png", 1, 1, INT_MAX, 1, false, 256, "Region Error"},
    };
    for (const Case& k : cases) {
        m_trace.clear();
        std::vector<int> hist(300, 42);
        const IntensityData r = VBcvGetIntesityData(k.path, k.x, k.y, k.width, k.height,
                                                    k.nullBuffer ? nullptr : hist.data(), k.size);
        const double* fields = &r.Mean;
        for (int i = 0; i < 5; ++i) EXPECT_EQ(fields[i], -1.0) << k.name << " field " << i;
        EXPECT_EQ(std::count(hist.begin(), hist.end(), 42), 300) << k.name;
        EXPECT_TRUE(Traced(std::string("[VBcvGetIntesityData] Fail : ") + k.line))
            << k.name << ": " << m_trace;
    }
}

// ---------------------------------------------------------------------------
// VBcvBinarization_for_Flat_Pad
// ---------------------------------------------------------------------------

struct FlatPadCase {
    const char* name;
    int pad, mark, surround;  // gray levels
    bool blackPad;
    int shape, x, y;          // the pad figure
    int marks;                // probe marks drawn
    double noise;             // sigma, before the blur
};

// A 220 x 180 pad image. Shape 0: the pad fills it. Shape 1: a round pad
// of diameter 220 centred, darker (or brighter) surround in the corners.
// Probe marks are rotated ellipses; noise, then a blur of sigma 1.
struct FlatPadScene {
    cv::Mat image, truth;
};

FlatPadScene DrawFlatPad(const FlatPadCase& c, int seed) {
    FlatPadScene s;
    s.image = cv::Mat(180, 220, CV_8UC1, cv::Scalar(c.surround));
    if (c.shape == 0)
        s.image.setTo(c.pad);
    else  // the pad reaches 4 pixels beyond the figure the call is given
        cv::circle(s.image, {110, 90}, 114, cv::Scalar(c.pad), cv::FILLED);
    s.truth = cv::Mat::zeros(s.image.size(), CV_8UC1);
    const cv::RotatedRect ellipses[] = {{{96, 82}, {34, 22}, 20}, {{150, 110}, {26, 18}, -35}};
    for (int i = 0; i < c.marks; ++i) {
        cv::ellipse(s.image, ellipses[i], cv::Scalar(c.mark), cv::FILLED);
        cv::ellipse(s.truth, ellipses[i], cv::Scalar(255), cv::FILLED);
    }
    s.image = Roughen(s.image, seed, c.noise, 1.0);
    return s;
}

const FlatPadCase kFlatPads[] = {
    {"bright_pad_one_mark", 185, 70, 185, false, 0, 0, 0, 1, 4.0},
    {"bright_pad_two_marks", 170, 95, 170, false, 0, 0, 0, 2, 4.0},
    {"faint_marks_noisy_pad", 160, 115, 160, false, 0, 0, 0, 2, 10.0},
    {"black_pad_one_mark", 60, 180, 60, true, 0, 0, 0, 1, 4.0},
    {"round_pad_dark_surround", 190, 80, 50, false, 1, 0, 0, 2, 4.0},
};

class FlatPadTest : public MiscInspectTest, public ::testing::WithParamInterface<FlatPadCase> {};

TEST_P(FlatPadTest, IsolatesTheDrawnProbeMarks) {
    const FlatPadCase& c = GetParam();
    for (int seed : {21, 22, 23}) {
        const FlatPadScene s = DrawFlatPad(c, seed);
        WriteImage("C:\\pads\\p.bmp", s.image);
        m_trace.clear();
        const FlatPadResult r = VBcvBinarization_for_Flat_Pad(
            "C:\\pads\\p.bmp", "C:\\pads\\out\\p_bin.png", c.x, c.y, c.shape, c.blackPad, 0, 0);
        ASSERT_GE(r.Level, 0) << c.name << " " << m_trace;
        EXPECT_GT(r.Level, std::min(c.pad, c.mark)) << c.name;
        EXPECT_LT(r.Level, std::max(c.pad, c.mark)) << c.name;
        const cv::Mat written = ReadBack("C:\\pads\\out\\p_bin.png");
        ASSERT_EQ(written.size(), s.image.size());
        const double iou = IoU(written, s.truth);
        EXPECT_GE(iou, 0.9) << c.name << " seed " << seed << " level " << r.Level;
        EXPECT_EQ(r.Marks, c.marks) << c.name << " seed " << seed;
        EXPECT_EQ(r.MarkPixels, cv::countNonZero(written));
        const cv::Rect truthBox = cv::boundingRect(s.truth);
        EXPECT_NEAR(r.MarkX, truthBox.x, 2);
        EXPECT_NEAR(r.MarkY, truthBox.y, 2);
        EXPECT_NEAR(r.MarkWidth, truthBox.width, 3);
        EXPECT_NEAR(r.MarkHeight, truthBox.height, 3);
        RecordProperty(std::string("iou_permille_seed") + std::to_string(seed),
                       static_cast<int>(iou * 1000));
    }
    EXPECT_TRUE(Exists(kFlatPadDebugImage));
}

INSTANTIATE_TEST_SUITE_P(Pads, FlatPadTest, ::testing::ValuesIn(kFlatPads),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FlatPadMarks, GroupsBelowFivePixelsAreSpecks) {
    // Pixel groups of 1, 4 and 5 pixels (8-connected) below the level.
    cv::Mat gray(20, 40, CV_8UC1, cv::Scalar(200));
    gray.at<uchar>(2, 2) = 10;
    for (int i = 0; i < 4; ++i) gray.at<uchar>(5 + i, 10 + i) = 10;  // a diagonal of 4
    gray(cv::Rect(20, 10, 5, 1)).setTo(10);                            // a row of 5
    const cv::Mat figure(gray.size(), CV_8UC1, cv::Scalar(255));
    FlatPadResult r{};
    const cv::Mat marks = IsolateMarks(gray, figure, 100, false, r);
    EXPECT_EQ(r.Marks, 1);
    EXPECT_EQ(r.MarkPixels, 5);
    EXPECT_EQ(cv::countNonZero(marks), 5);
    EXPECT_EQ(r.MarkX, 20);
    EXPECT_EQ(r.MarkY, 10);
    EXPECT_EQ(r.MarkWidth, 5);
    EXPECT_EQ(r.MarkHeight, 1);
    // Outside the figure nothing counts; a black pad reads the other way.
    cv::Mat half = figure.clone();
    half.colRange(15, 40).setTo(0);
    IsolateMarks(gray, half, 100, false, r);
    EXPECT_EQ(r.Marks, 0);
    EXPECT_EQ(r.MarkWidth, 0);
    IsolateMarks(gray, figure, 100, true, r);  // complemented: 200 -> 55 <= 100
    EXPECT_EQ(r.MarkPixels, 40 * 20 - 1 - 4 - 5);
}

TEST_F(MiscInspectTest, FlatPadFailuresAreAllMinusOne) {
    const FlatPadScene s = DrawFlatPad(kFlatPads[0], 4);
    WriteImage("C:\\pads\\p.bmp", s.image);
    WriteImage("C:\\pads\\wide.bmp", cv::Mat(20, 481, CV_8UC1, cv::Scalar(100)));
    WriteImage("C:\\pads\\flat.bmp", cv::Mat(50, 50, CV_8UC1, cv::Scalar(100)));
    platform::WriteWholeFile(platform::NativePath(std::string("C:\\pads\\file")), "x");
    struct Case {
        const char* name;
        const char* pad;
        const char* result;
        int shape, blackPad;
        const char* line;
    } cases[] = {
        {"null pad path", nullptr, "C:\\pads\\r.png", 0, 0, "Parameter Error"},
        {"null result path", "C:\\pads\\p.bmp", nullptr, 0, 0, "Parameter Error"},
        {"empty result path", "C:\\pads\\p.bmp", "", 0, 0, "Parameter Error"},
        {"unknown extension", "C:\\pads\\p.bmp", "C:\\pads\\r.xyz", 0, 0, "Parameter Error"},
        {"missing pad", "C:\\pads\\none.bmp", "C:\\pads\\r.png", 0, 0, "File Error"},
        {"pad wider than 480", "C:\\pads\\wide.bmp", "C:\\pads\\r.png", 0, 0, "Threshold Error"},
        {"shape 6", "C:\\pads\\p.bmp", "C:\\pads\\r.png", 6, 0, "Threshold Error"},
        {"negative blackPad", "C:\\pads\\p.bmp", "C:\\pads\\r.png", 0, -1, "Threshold Error"},
        {"no level in a flat image", "C:\\pads\\flat.bmp", "C:\\pads\\r.png", 0, 0,
         "Threshold Error"},
        {"result under a file", "C:\\pads\\p.bmp", "C:\\pads\\file\\r.png", 0, 0, "Write Error"},
    };
    for (const Case& k : cases) {
        m_trace.clear();
        const FlatPadResult r =
            VBcvBinarization_for_Flat_Pad(k.pad, k.result, 0, 0, k.shape, k.blackPad, 0, 0);
        const int32_t* fields = &r.Level;
        for (int i = 0; i < 7; ++i) EXPECT_EQ(fields[i], -1) << k.name << " field " << i;
        EXPECT_TRUE(Traced(std::string("[VBcvBinarization_for_Flat_Pad] Fail : ") + k.line))
            << k.name << ": " << m_trace;
    }
    EXPECT_FALSE(platform::FileExists(platform::NativePath(std::string("C:\\pads\\r.png"))));
    // The estimator's own reason comes first.
    m_trace.clear();
    VBcvBinarization_for_Flat_Pad("C:\\pads\\wide.bmp", "C:\\pads\\r.png", 0, 0, 0, 0, 0, 0);
    EXPECT_TRUE(Traced("[VBcvGetThreshold] Fail : Input Size(481, 20) is abnormal\n")) << m_trace;
}

}  // namespace
}  // namespace pixmill::inspect::misc
