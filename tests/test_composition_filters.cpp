// The filters that combine two image streams against per-pixel references,
// their silent pairing failures, and all three inside a recipe.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// A gray texture whose samples differ from pixel to pixel.
cv::Mat Texture(int rows, int cols, int seed) {
    cv::Mat m(rows, cols, CV_8UC1);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.at<uint8_t>(r, c) = static_cast<uint8_t>(seed + 13 * c + 29 * r);
    return m;
}

cv::Mat Bgr(const cv::Mat& gray) {
    cv::Mat out;
    cv::cvtColor(gray, out, cv::COLOR_GRAY2BGR);
    return out;
}

class CompositionFilterTest : public PixmillTest,
                              public ::testing::WithParamInterface<cv::Vec<int, 5>> {};

TEST_F(CompositionFilterTest, MaskIsPerSampleAndCutToTheCommonSize) {
    const std::vector<cv::Mat> origins{Texture(30, 40, 1), Texture(30, 40, 2), Texture(30, 40, 3)};
    const std::vector<cv::Mat> masks{Texture(30, 40, 90), Texture(20, 50, 7)};
    auto f = Make(L"ImageMaskFilter");
    const auto out = RunPins(*f, {{1, origins}, {2, masks}});
    ASSERT_EQ(out.size(), 2u);  // the shorter list decides
    for (int i = 0; i < 2; ++i) {
        const cv::Rect common(0, 0, 40, i ? 20 : 30);
        cv::Mat expected(common.size(), CV_8UC1);
        for (int r = 0; r < common.height; ++r)
            for (int c = 0; c < common.width; ++c)
                expected.at<uint8_t>(r, c) =
                    origins[i].at<uint8_t>(r, c) & masks[i].at<uint8_t>(r, c);
        EXPECT_TRUE(SameImage(out[i], expected)) << i;
    }
    EXPECT_STREQ(f->GetResult(), L"\"\"");
}

// Alpha, x, y, width, height: the base in colour, with the over image from
// its top-left corner added to green in the region at (x, y).
TEST_P(CompositionFilterTest, OverlapAddsTheOverImageToTheGreenOfTheBase) {
    const cv::Vec<int, 5> k = GetParam();
    const std::vector<cv::Mat> bases{Texture(30, 40, 5), Texture(30, 40, 6), Texture(30, 40, 8)};
    const std::vector<cv::Mat> overs{Texture(12, 16, 50), Texture(40, 50, 60)};
    auto f = Make(L"ImageOverlapFilter");
    SetParams(*f, {{L"Alpha", Num(k[0])},
                   {L"x", Num(k[1])},
                   {L"y", Num(k[2])},
                   {L"width", Num(k[3])},
                   {L"height", Num(k[4])}});
    const auto out = RunPins(*f, {{1, bases}, {2, overs}});
    ASSERT_EQ(out.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        cv::Mat expected = Bgr(bases[i]);
        const int w = std::min(k[3] > 0 ? k[3] : 99, overs[i].cols),
                  h = std::min(k[4] > 0 ? k[4] : 99, overs[i].rows);
        for (int r = std::max(0, k[2]); r < std::min(30, k[2] + h); ++r)
            for (int c = std::max(0, k[1]); c < std::min(40, k[1] + w); ++c)
                expected.at<cv::Vec3b>(r, c)[1] = cv::saturate_cast<uint8_t>(
                    bases[i].at<uint8_t>(r, c) +
                    overs[i].at<uint8_t>(r - k[2], c - k[1]) * k[0] / 100.0);
        EXPECT_LE(cv::norm(out[i], expected, cv::NORM_INF), 0) << i;  // same size and type too
    }
}

INSTANTIATE_TEST_SUITE_P(
    Composition, CompositionFilterTest,
    ::testing::Values(cv::Vec<int, 5>(0, 3, 2, 0, 0), cv::Vec<int, 5>(50, 5, 4, 0, 0),
                      cv::Vec<int, 5>(30, 30, 25, 0, 0),    // past the corner
                      cv::Vec<int, 5>(100, -3, -2, 10, 8),  // from outside, bounded
                      cv::Vec<int, 5>(50, 100, 0, 5, 5)));  // misses the base

TEST_F(CompositionFilterTest, SideBySideGivesEachPairACanvasForTheLargest) {
    const cv::Mat gray = Texture(10, 20, 3), small = Texture(4, 6, 9);
    cv::Mat colour(12, 15, CV_8UC3, cv::Scalar(10, 100, 200));
    cv::circle(colour, {7, 6}, 4, cv::Scalar(250, 0, 30), -1);
    for (bool topBottom : {false, true}) {
        auto f = Make(L"SideBySideFilter");
        SetParams(*f, {{L"T/B", topBottom ? L"true" : L"false"}});
        const auto out = RunPins(*f, {{1, {gray, small, gray}}, {2, {colour, colour}}});
        ASSERT_EQ(out.size(), 3u);  // the longer list decides; the last has no right image
        const cv::Point second = topBottom ? cv::Point(0, 10) : cv::Point(20, 0);
        for (int i = 0; i < 3; ++i) {
            cv::Mat expected =
                cv::Mat::zeros(topBottom ? cv::Size(20, 22) : cv::Size(35, 12), CV_8UC3);
            const cv::Mat& left = i == 1 ? small : gray;
            Bgr(left).copyTo(expected(cv::Rect({0, 0}, left.size())));
            if (i < 2) colour.copyTo(expected(cv::Rect(second, colour.size())));
            EXPECT_TRUE(SameImage(out[i], expected)) << i << " " << topBottom;
        }
    }
}

// A pair that cannot be combined ends the pairing without a log line; the
// outputs made before it are delivered.
TEST_F(CompositionFilterTest, FailedPairsStopSilentlyAndKeepEarlierOutputs) {
    EnableFileLog(1);
    const cv::Mat gray = Texture(8, 8, 1), colour(8, 8, CV_8UC3, cv::Scalar::all(1)),
                  deep(8, 8, CV_16UC1, cv::Scalar(1));
    const std::tuple<const wchar_t*, std::vector<cv::Mat>, std::vector<cv::Mat>, size_t> cases[] = {
        {L"ImageMaskFilter", {colour}, {gray}, 0},
        {L"ImageOverlapFilter", {gray}, {colour}, 0},
        {L"ImageMaskFilter", {gray, colour, gray}, {gray, gray, gray}, 1},
        {L"ImageOverlapFilter", {gray, gray}, {gray, deep}, 1},
        {L"SideBySideFilter", {gray, deep}, {gray}, 1}};
    for (const auto& [type, first, second, outputs] : cases) {
        auto f = Make(type);
        EXPECT_EQ(RunPins(*f, {{1, first}, {2, second}}).size(), outputs) << platform::ToUtf8(type);
        EXPECT_STREQ(f->GetResult(), L"\"\"");
    }
    EXPECT_EQ(ReadLog().find("Exception"), std::string::npos);
}

// Two sources into all three filters: the first image beside its overlay,
// at full strength, with the mask of both.
TEST_F(CompositionFilterTest, AllThreeInsideARecipe) {
    cv::Mat a = Texture(6, 8, 11), b = Texture(6, 8, 77), overlay = Bgr(a), green, expected;
    std::vector<cv::Mat> out;
    const std::wstring result = RunRecipe(
        {Source(L"a", 1), Source(L"b", 2),
         Node(L"m", L"ImageMaskFilter", false, {}, {{1, L"a"}, {2, L"b"}}),
         Node(L"o", L"ImageOverlapFilter", false, {{L"Alpha", L"100"}}, {{1, L"a"}, {2, L"m"}}),
         Node(L"s", L"SideBySideFilter", true, {}, {{1, L"a"}, {2, L"o"}})},
        {{&a, 1}, {&b, 2}}, out);
    ASSERT_EQ(out.size(), 1u);
    cv::add(a, a & b, green);  // saturating
    cv::insertChannel(green, overlay, 1);
    cv::hconcat(Bgr(a), overlay, expected);
    EXPECT_TRUE(SameImage(out[0], expected));
    EXPECT_NE(result.find(L"\"Key\":\"s\",\"Result\":\"\"}"), std::wstring::npos);
}

}  // namespace
}  // namespace pixmill::test
