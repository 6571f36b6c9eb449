// HistogramFilter: the four measures read back from the bars of its chart,
// the chart's shape and its failures.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "FilterHarness.h"
#include "TestSupport.h"

namespace pixmill::test {
namespace {

// 20 by 10 images: all 255 (nothing in the histogram), all 100, half 10 and
// half 30 (mean 20, variance 200 * 100 / 199); then 30, 10 in two pixels.
std::vector<cv::Mat> Scenes() {
    cv::Mat half(10, 20, CV_8UC1, cv::Scalar(10));
    half(cv::Rect(0, 0, 10, 10)).setTo(30);
    return {cv::Mat(10, 20, CV_8UC1, cv::Scalar(255)), cv::Mat(10, 20, CV_8UC1, cv::Scalar(100)),
            half, half(cv::Rect(9, 0, 2, 1))};
}

// The chart for two lists of values: a band of 4 rows per value, white bars
// for the first list and gray 100 bars over them for the second. Each list
// is scaled so that its largest magnitude spans `ratio`; bars of 0 or less
// are not drawn.
cv::Mat Chart(int ratio, const std::vector<double>& first, const std::vector<double>& second) {
    cv::Mat chart = cv::Mat::zeros(static_cast<int>(4 * first.size() + 8), ratio, CV_8UC1);
    for (const auto& [values, gray] : {std::pair{&first, 255}, std::pair{&second, 100}}) {
        double span = 0;
        for (double v : *values) span = std::max(span, std::fabs(v));
        for (size_t i = 0; i < values->size(); ++i) {
            const int length = static_cast<int>(std::lround((*values)[i] * ratio / span));
            if (length > 0) chart(cv::Rect(0, static_cast<int>(4 * i + 1), length, 2)).setTo(gray);
        }
    }
    return chart;
}

struct MeasureCase {
    int display, ratio;
    std::vector<double> first, second;
};
class HistogramFilterTest : public PixmillTest,
                            public ::testing::WithParamInterface<MeasureCase> {};

TEST_P(HistogramFilterTest, BarsShowTheMeasureOfEachImage) {
    const MeasureCase& k = GetParam();
    auto f = Make(L"HistogramFilter");
    SetParams(*f, {{L"Display", Num(k.display)}, {L"Ratio", Num(k.ratio)}});
    const auto out = RunPins(*f, {{1, Scenes()}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(out[0], Chart(k.ratio, k.first, k.second)));
    EXPECT_STREQ(f->GetResult(), L"{}");
}

// Mean and variance (also for an unknown Display), lowest and highest level
// (255 and 0 for the all-white image), range.
INSTANTIATE_TEST_SUITE_P(
    Histogram, HistogramFilterTest,
    ::testing::Values(MeasureCase{1, 100, {0, 100, 20, 20}, {0, 0, 20000.0 / 199, 200}},
                      MeasureCase{7, 10, {0, 100, 20, 20}, {0, 0, 20000.0 / 199, 200}},
                      MeasureCase{2, 100, {255, 100, 10, 10}, {0, 100, 30, 30}},
                      MeasureCase{3, 256, {-255, 0, 20, 20}, {}}));

// Checkerboards: the same detail on two mean levels measures the same, half
// the contrast measures less.
TEST_F(HistogramFilterTest, SpectralMeasureIgnoresTheMeanLevelAndFollowsDetail) {
    EnableFileLog(1);
    auto checker = [](int low, int high) {
        cv::Mat m(16, 16, CV_8UC1);
        for (int r = 0; r < 16; ++r)
            for (int c = 0; c < 16; ++c)
                m.at<uint8_t>(r, c) = static_cast<uint8_t>((r + c) % 2 ? high : low);
        return m;
    };
    auto f = Make(L"HistogramFilter");
    SetParams(*f, {{L"Display", L"4"}});
    const auto out = RunPins(*f, {{1, {checker(0, 200), checker(50, 250), checker(0, 100)}}});
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].size(), cv::Size(100, 20));
    EXPECT_EQ(cv::countNonZero(out[0].row(1)), 100);
    EXPECT_EQ(cv::countNonZero(out[0].row(5)), 100);
    EXPECT_GT(cv::countNonZero(out[0].row(9)), 50);
    EXPECT_LT(cv::countNonZero(out[0].row(9)), 100);
    const std::string log = ReadLog();
    EXPECT_EQ(CountOf(log, "[1] Direct transform...\n"), 3);
    EXPECT_EQ(CountOf(log, "[1] Inverse transform...\n"), 3);
}

TEST_F(HistogramFilterTest, NoImagesNoChartAndBadImagesAreLogged) {
    EnableFileLog(4);
    auto none = Make(L"HistogramFilter");
    EXPECT_TRUE(RunPins(*none, {{1, {}}}).empty());
    EXPECT_STREQ(none->GetResult(), L"{}");
    for (const auto& [display, image] :
         {std::pair{L"4", cv::Mat(8, 8, CV_8UC3, cv::Scalar::all(1))},
          std::pair{L"1", cv::Mat()}}) {
        auto f = Make(L"HistogramFilter");
        SetParams(*f, {{L"Display", display}});
        EXPECT_TRUE(RunPins(*f, {{1, {image}}}).empty());
        EXPECT_STREQ(f->GetResult(), L"\"\"");
    }
    EXPECT_EQ(CountOf(ReadLog(), "[4] <Exception>\n"), 2);
}

}  // namespace
}  // namespace pixmill::test
