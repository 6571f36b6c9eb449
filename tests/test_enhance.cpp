// The enhancement core: kernel taps against their formulas, the enhancement
// against a brute-force convolution, the restricted Otsu level against an
// exhaustive search, the refined triangle threshold on histograms worked out
// by hand, the exports' outcomes for bad input, and the three enhancement
// filters inside recipes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <opencv2/imgproc.hpp>
#include <tuple>
#include <vector>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "enhance/Enhance.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

int RoundAway(double v) {
    return v >= 0 ? static_cast<int>(v + 0.5) : static_cast<int>(v - 0.5);
}

// Integer taps in natural order (x from -n/2 upward), straight from the
// formulas. The derivative's rounding remainder goes to its first tap.
struct Taps {
    std::vector<double> smooth, derivative;
    double rawDerivativeSum = 0;
};

Taps FormulaTaps(double s, double scale) {
    Taps t;
    const int nG = static_cast<int>(s * 4), nD = static_cast<int>(s * 8);
    for (int i = 0; i < nG; ++i) {
        const double x = i - nG / 2;
        t.smooth.push_back(RoundAway(71 * std::exp(-x * x / (2 * s * s))));
    }
    for (int i = 0; i < nD; ++i) {
        const double x = i - nD / 2, q = x * x / (s * s);
        t.derivative.push_back(RoundAway(10 * scale * (1 - q) * std::exp(-q / 2)));
        t.rawDerivativeSum += t.derivative.back();
    }
    t.derivative.front() -= t.rawDerivativeSum;
    return t;
}

cv::Mat1b RandomImage(int rows, int cols, int low, int high, uint64_t seed) {
    cv::Mat1b m(rows, cols);
    cv::RNG rng(seed);
    rng.fill(m, cv::RNG::UNIFORM, low, high + 1);
    return m;
}

// ---- Kernels ---------------------------------------------------------------

struct KernelCase {
    double sigma, scale;  // as given to the builder
    double s, gain;       // what the builder works with after its limits
    int nG, nD;
    bool corrected;  // the rounded derivative taps do not sum to zero
};

class KernelTaps : public ::testing::TestWithParam<KernelCase> {};

TEST_P(KernelTaps, FollowFormulasReversedAndSumToZero) {
    const KernelCase c = GetParam();
    EnhanceKernel g, d;
    BuildEnhanceKernels(c.sigma, c.scale, &g, &d);
    EXPECT_EQ(std::pair(g.size, d.size), std::pair(c.nG, c.nD));
    const Taps t = FormulaTaps(c.s, c.gain);
    EXPECT_EQ(t.rawDerivativeSum != 0, c.corrected);
    EXPECT_EQ(g.data, std::vector<float>(t.smooth.rbegin(), t.smooth.rend()));
    EXPECT_EQ(d.data, std::vector<float>(t.derivative.rbegin(), t.derivative.rend()));
    EXPECT_EQ(g.divisor, static_cast<int>(std::accumulate(t.smooth.begin(), t.smooth.end(), 0.0)));
    EXPECT_EQ(d.divisor, 32);
    EXPECT_EQ(std::accumulate(d.data.begin(), d.data.end(), 0.0), 0.0);
}

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(Sigmas, KernelTaps,
                         ::testing::Values(KernelCase{1.0, 1.0, 1.0, 1.0, 4, 8, false},
                                           KernelCase{1.3, 1.0, 1.3, 1.0, 5, 10, false},
                                           KernelCase{4.0, 1.0, 4.0, 1.0, 16, 32, true},
                                           KernelCase{10.0, 5.0, 10.0, 5.0, 40, 80, false},
                                           KernelCase{0.1, 1.0, 0.3, 1.0, 1, 2, true},
                                           KernelCase{kNaN, kNaN, 0.3, 0.0, 1, 2, false},
                                           KernelCase{kInf, 1e9, 100.0, 3276.0, 400, 800, true}));

// ---- EnhanceImage ----------------------------------------------------------

// Brute force in double precision: each kernel convolved about x = 0 (an
// odd-length kernel one pixel beside it), borders repeated.
cv::Mat1d ReferenceEnhance(const cv::Mat1b& src, int direction, double sigma, double scale) {
    const Taps t = FormulaTaps(sigma, scale);
    double divisor = 0;
    for (double v : t.smooth) divisor += v;
    std::vector<double> g, d;
    for (double v : t.smooth) g.push_back(v / static_cast<int>(divisor));
    for (double v : t.derivative) d.push_back(v / 32);
    auto pass = [&](const std::vector<double>& kx, const std::vector<double>& ky) {
        cv::Mat1d out(src.size(), 0.0);
        const int nx = static_cast<int>(kx.size()), ny = static_cast<int>(ky.size());
        for (int r = 0; r < src.rows; ++r)
            for (int c = 0; c < src.cols; ++c)
                for (int j = 0; j < ny; ++j)
                    for (int i = 0; i < nx; ++i) {
                        const int y = std::clamp(r - (j - ny / 2) + ny % 2, 0, src.rows - 1);
                        const int x = std::clamp(c - (i - nx / 2) + nx % 2, 0, src.cols - 1);
                        out(r, c) += ky[j] * kx[i] * (src(y, x) - 128.0);
                    }
        return out;
    };
    cv::Mat1d out(src.size(), 128.0);
    if (direction != 2) out += pass(d, g);
    if (direction != 1) out += pass(g, d);
    return out;
}

class EnhanceAgainstReference : public ::testing::TestWithParam<std::tuple<int, float, float>> {};

TEST_P(EnhanceAgainstReference, IsTheRoundedConvolution) {
    const auto [direction, sigma, scale] = GetParam();
    const cv::Mat1b src = RandomImage(11, 530, 108, 148, 7);  // several strips wide
    cv::Mat1b dst(src.size(), 0);
    ASSERT_EQ(::EnhanceImage(src.data, dst.data, src.cols, src.rows, direction, sigma, scale), 0);
    const cv::Mat1d ref = ReferenceEnhance(src, direction, sigma, scale);
    double worst = 0;
    for (int r = 0; r < src.rows; ++r)
        for (int c = 0; c < src.cols; ++c)
            worst = std::max(worst, std::abs(dst(r, c) - std::clamp(ref(r, c), 0.0, 255.0)));
    EXPECT_LE(worst, 0.501);  // a correct rounding, up to float noise
}

INSTANTIATE_TEST_SUITE_P(Directions, EnhanceAgainstReference,
                         ::testing::Combine(::testing::Values(0, 1, 2, 5),
                                            ::testing::Values(1.0f, 1.3f, 2.5f),
                                            ::testing::Values(1.0f, 2.0f)));

TEST(EnhanceImage, UniformImageComesOutAt128) {
    for (int level : {0, 1, 77, 255})
        for (float sigma : {1.0f, 1.3f, 4.0f, 10.0f})
            for (int direction : {0, 1, 2}) {
                const cv::Mat1b src(30, 40, static_cast<uint8_t>(level));
                cv::Mat1b dst(src.size(), 0);
                EnhanceImage(src.data, dst.data, 40, 30, direction, sigma, 5.0f);
                EXPECT_EQ(cv::countNonZero(dst != 128), 0)
                    << level << " " << sigma << " " << direction;
            }
}

TEST(EnhanceImage, ArgumentsOutsideTheirRangeActAsTheLimits) {
    const cv::Mat1b src = RandomImage(21, 17, 0, 255, 3);
    auto run = [&](float sigma, float scale) {
        cv::Mat1b dst(src.size(), 0);
        EXPECT_EQ(pixmill::EnhanceImage(src.data, dst.data, src.cols, src.rows, 0, sigma, scale),
                  0);
        return dst;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const cv::Mat1b atOne = run(1.0f, 1.0f), atFloor = run(2.0f, 0.1f);
    for (float sigma : {0.5f, 0.0f, -3.0f, nan})
        EXPECT_TRUE(SameImage(run(sigma, 1.0f), atOne)) << sigma;
    for (float scale : {0.0f, -1.0f, nan})
        EXPECT_TRUE(SameImage(run(2.0f, scale), atFloor)) << scale;
    EXPECT_FALSE(SameImage(atOne, run(1.5f, 1.0f)));  // the comparisons above can fail
    EXPECT_TRUE(SameImage(run(inf, inf), run(100.0f, 3276.0f)));
}

// ---- Thresholds ------------------------------------------------------------

// Exhaustive Otsu over the pixels on one side of mid-grey: the between-class
// variance of every split, the lowest level winning ties.
int ExhaustiveOtsu(const cv::Mat1b& image, bool bright) {
    std::vector<double> v;
    for (uint8_t p : image)
        if (bright ? p > 127 : p <= 128) v.push_back(p);
    double best = 0;
    int level = 0;
    for (int t = 0; t < 256; ++t) {
        double n1 = 0, s1 = 0, n2 = 0, s2 = 0;
        for (double p : v) p <= t ? (n1 += 1, s1 += p) : (n2 += 1, s2 += p);
        if (n1 == 0 || n2 == 0) continue;
        const double m = s1 / n1 - s2 / n2, sigma = n1 * n2 * m * m / (v.size() * v.size());
        if (sigma > best * (1 + 1e-12)) best = sigma, level = t;
    }
    return level;
}

TEST(EnhanceThresholdOtsu, CallerThresholdIsFloorForBrightAndCeilingForDark) {
    // Background near 150 with bright and dark features, noisy enough that
    // every level near the valleys is occupied.
    cv::Mat1b image(120, 160);
    cv::Mat1d noise(image.size());
    cv::RNG(11).fill(noise, cv::RNG::NORMAL, 0, 10);
    cv::Mat1d scene(image.size(), 150.0);
    cv::rectangle(scene, cv::Rect(10, 10, 60, 40), 210.0, -1);
    cv::circle(scene, cv::Point(115, 80), 30, 50.0, -1);
    cv::Mat1d(scene + noise).convertTo(image, CV_8U);

    for (bool bright : {true, false}) {
        const int otsu = ExhaustiveOtsu(image, bright);
        EXPECT_TRUE(bright ? otsu > 150 && otsu < 210 : otsu > 50 && otsu < 150) << otsu;
        for (int threshold : {bright ? 0 : 255, bright ? otsu + 25 : otsu - 25}) {
            const int expected = bright ? std::max(threshold, otsu) : std::min(threshold, otsu);
            cv::Mat1b dst(image.size(), 7);
            EXPECT_EQ(::Enhance_Threshold_Otsu(image.data, dst.data, image.cols, image.rows, bright,
                                               threshold),
                      expected);
            const cv::Mat expectedImage = bright ? image > expected : image <= expected;
            EXPECT_TRUE(SameImage(dst, expectedImage))
                << "bright " << bright << " at " << threshold;
        }
    }
}

// Two-level images (left half, right half): which levels each side
// searches, and an empty side, where Otsu's level counts as 0.
TEST(EnhanceThresholdOtsu, SearchedSidesAndEmptySides) {
    // Left, right, bright, the caller's threshold, the level.
    const std::array<int, 5> cases[] = {{50, 50, 1, 90, 90},   {50, 50, 1, -5, 0},
                                        {127, 250, 1, 0, 0},   {128, 250, 1, 0, 128},
                                        {10, 128, 0, 255, 10}, {10, 129, 0, 255, 0}};
    for (const auto& [left, right, bright, threshold, expected] : cases) {
        cv::Mat1b image(6, 8, static_cast<uint8_t>(left)), dst(6, 8, 7);
        image.colRange(4, 8).setTo(right);
        EXPECT_EQ(::Enhance_Threshold_Otsu(image.data, dst.data, 8, 6, bright, threshold), expected)
            << left << "/" << right;
        EXPECT_TRUE(SameImage(dst, bright ? image > expected : image <= expected));
    }
    EXPECT_EQ(MaskedOtsuThreshold(cv::Mat1b(4, 4, 9), cv::Mat1b(4, 4, uint8_t{0})),
              0.0);  // no pixel
}

struct TriangleCase {
    const char* name;
    std::vector<std::pair<int, int>> levels;  // level, pixel count
    int expected;                             // worked out by hand
    int classic;                              // without the refinement
};

class TriangleThreshold : public ::testing::TestWithParam<TriangleCase> {};

// The pixels in a single column in level order, so that the flip of the
// output is visible.
TEST_P(TriangleThreshold, RefinesTheClassicLevelAndFlipsTheImage) {
    const TriangleCase& c = GetParam();
    std::vector<uint8_t> pixels;
    for (auto [level, count] : c.levels) pixels.insert(pixels.end(), count, level);
    const cv::Mat1b src(static_cast<int>(pixels.size()), 1, pixels.data());
    cv::Mat scratch;
    EXPECT_EQ(cv::threshold(src, scratch, 0, 255, cv::THRESH_BINARY | cv::THRESH_TRIANGLE),
              c.classic);

    cv::Mat1b dst(src.size(), 7), expected;
    EXPECT_EQ(::Threshold_Triangle(src.data, dst.data, 1, src.rows), c.expected);
    cv::threshold(src, expected, c.expected, 255, cv::THRESH_BINARY);
    cv::flip(expected, expected, 0);
    EXPECT_TRUE(SameImage(dst, expected));
}

INSTANTIATE_TEST_SUITE_P(Histograms, TriangleThreshold,
                         ::testing::Values(
                             // Uniform images: the refinement never applies (t - 1 < left).
                             TriangleCase{"Uniform0", {{0, 30}}, 1, 1},  // mirrored; output all 0
                             TriangleCase{"Uniform1", {{1, 30}}, -1, -1},
                             TriangleCase{"Uniform5", {{5, 30}}, 4, 4},
                             // Tail 3..5 below a peak at 8: the foot is 6, the mean height of
                             // bins 2..5 is 10 / 4 = 2.5, and bin 5 (2 pixels) is the first below.
                             TriangleCase{"Refined", {{3, 5}, {4, 3}, {5, 2}, {8, 20}}, 5, 6},
                             // Peak at 20, tail up to 200: mirrored, foot 233, refined to 232,
                             // mirrored back to 23.
                             TriangleCase{"MirroredAndRefined", {{20, 84}, {200, 36}}, 23, 22}),
                         [](const ::testing::TestParamInfo<TriangleCase>& info) {
                             return info.param.name;
                         });

// ---- Exports ---------------------------------------------------------------

// Negative sizes and null pointers give -1; a width or height of 0 gives
// each export's own answer; neither touches the destination.
TEST(EnhanceExports, BadInputReturnsWithoutTouchingDestination) {
    using Export = std::function<int(const uint8_t*, uint8_t*, int, int)>;
    const std::pair<Export, int> exports[] = {
        {[](auto s, auto d, int w, int h) { return ::EnhanceImage(s, d, w, h, 0, 4, 1); }, 0},
        {[](auto s, auto d, int w, int h) { return ::Enhance_Threshold_Otsu(s, d, w, h, 1, 90); },
         90},
        {[](auto s, auto d, int w, int h) { return ::Enhance_Threshold_Otsu(s, d, w, h, 0, 90); },
         0},
        {::Threshold_Triangle, 2},
        {::FuncTest, 0}};
    const cv::Mat1b src = RandomImage(4, 4, 0, 255, 5);
    cv::Mat1b dst(4, 4, 7);
    for (const auto& [call, withoutPixels] : exports) {
        for (auto [w, h] : {std::pair{-1, 4}, {4, -1}, {-5, 0}})
            EXPECT_EQ(call(src.data, dst.data, w, h), -1);
        EXPECT_EQ(call(nullptr, dst.data, 4, 4), -1);
        EXPECT_EQ(call(src.data, nullptr, 4, 4), -1);
        for (auto [w, h] : {std::pair{0, 4}, {4, 0}, {0, 0}}) {
            EXPECT_EQ(call(nullptr, nullptr, w, h), withoutPixels);
            EXPECT_EQ(call(src.data, dst.data, w, h), withoutPixels);
        }
    }
    EXPECT_EQ(cv::countNonZero(dst != 7), 0);
}

// ---- The filters inside real recipes ----------------------------------------
// A SourceFilter feeds two images to each; both outputs and the result text
// (which reports the last image) are checked against the core run directly.

// A pad-like scene: a gradient with a wide bright rectangle and a dark disc,
// so that the two directions and both sides of mid-grey differ.
cv::Mat Scene(int shift) {
    cv::Mat1b m(48, 64);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.cols; ++c) m(r, c) = static_cast<uint8_t>(110 + c + r / 2 + shift);
    cv::rectangle(m, cv::Rect(6, 8, 30, 12), cv::Scalar(230), -1);
    cv::circle(m, cv::Point(46, 32), 9, cv::Scalar(30 + shift), -1);
    return m;
}

// What the core gives for each image: the enhancement with `sigma` and
// `scale` (when sigma is 0, the image is not checked), or the Otsu threshold
// when `otsu`; and the result text, which the Otsu filter fills with its level.
struct FilterCase {
    const char* name;
    const wchar_t* type;
    ParamList params;
    std::wstring reported;
    int direction = 0;
    float sigma = 0, scale = 0;
    bool otsu = false, bright = false;
    int absolute = 0;
};

class EnhanceFilters : public PixmillTest, public ::testing::WithParamInterface<FilterCase> {};

TEST_P(EnhanceFilters, RunInARecipe) {
    const FilterCase& c = GetParam();
    cv::Mat images[] = {Scene(0), Scene(12)};
    std::vector<cv::Mat> out;
    const std::wstring result =
        RunRecipe({Source(L"s", 1), Node(L"e", c.type, true, c.params, {{1, L"s"}})},
                  {{&images[0], 1}, {&images[1], 1}}, out);
    ASSERT_EQ(out.size(), 2u);
    std::wstring reported = c.reported;
    for (int i = 0; i < 2; ++i) {
        const cv::Mat& in = images[i];
        cv::Mat expected(in.size(), CV_8UC1);
        if (c.otsu)
            reported = L"{\"threshold\":" +
                       std::to_wstring(Enhance_Threshold_Otsu(in.data, expected.data, in.cols,
                                                              in.rows, c.bright, c.absolute)) +
                       L"}";
        else
            EnhanceImage(in.data, expected.data, in.cols, in.rows, c.direction, c.sigma, c.scale);
        EXPECT_EQ(out[i].size(), in.size());
        EXPECT_TRUE((!c.otsu && c.sigma == 0) || SameImage(out[i], expected)) << i;
    }
    EXPECT_NE(result.find(L"\"Key\":\"e\",\"Result\":" + reported + L"}"), std::wstring::npos)
        << platform::ToUtf8(result);
}

// The auto-scaled gain is known exactly only on its floor, 0.15.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Recipes, EnhanceFilters, ::testing::Values(
    FilterCase{"EnhanceDefaults", L"EnhanceFilter", {}, L"\"\"", 0, 4.0f, 1.0f},
    FilterCase{"EnhanceRows", L"EnhanceFilter",
               {{L"Diretion", L"1"}, {L"Sigma", L"2.5"}, {L"Scale", L"1.5"}}, L"\"\"", 1, 2.5f, 1.5f},
    FilterCase{"AutoScaleDefaults", L"EnhanceFilter_AutoScale", {}, L"{\"fScale\":1.34}"},
    FilterCase{"AutoScaleSigma14_4", L"EnhanceFilter_AutoScale", {{L"Sigma", L"14.4"}},
               L"{\"fScale\":0.15}"},
    FilterCase{"AutoScaleFloor", L"EnhanceFilter_AutoScale", {{L"Sigma", L"20"}, {L"Diretion", L"2"}},
               L"{\"fScale\":0.15}", 2, 20, 0.15f},
    FilterCase{"AutoScaleNotANumber", L"EnhanceFilter_AutoScale", {{L"Sigma", L"nan"}},
               L"{\"fScale\":0.15}"},
    FilterCase{"OtsuDefaults", L"EnhanceOtsuFilter", {}, L"", 0, 0, 0, true, false, 128},
    FilterCase{"OtsuBright", L"EnhanceOtsuFilter", {{L"W/B", L"true"}, {L"ABSolute", L"0"}}, L"",
               0, 0, 0, true, true, 0}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
}  // namespace pixmill::test
