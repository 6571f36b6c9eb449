// The two wafer edge filters: the corner-pair rim find in a recipe on four
// drawn corner images, and the band edge find on drawn bands.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <regex>
#include <string>

#include "EdgeScenes.h"
#include "FilterHarness.h"
#include "Filters/WaferEdgeFilter.h"
#include "Filters/WaferEdgeFindFilter.h"
#include "TestSupport.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// ---------------------------------------------------------------------------
// WaferEdgeFilter
// ---------------------------------------------------------------------------

// Corner images of a dark wafer on a bright chuck: squares of side S whose
// middles lie on the nominal rim (radius R about the origin) on the four
// diagonals, with the wafer moved by `shift`.
struct Corners {
    std::array<cv::Mat, 4> images;  // RT, LT, LB, RB
    WaferScene scene;
    std::array<cv::Point2d, 4> origin;  // top-left corner of each image in scene coordinates
};

Corners MakeCorners(int S, double R, cv::Point2d shift) {
    Corners c;
    c.scene.radius = R;
    c.scene.centre = cv::Point2d(2000, 2000) + shift;
    c.scene.wafer = 60;
    c.scene.chuck = 190;
    const double k = R / std::sqrt(2.0);
    const cv::Point2d middles[4] = {{k, -k}, {-k, -k}, {-k, k}, {k, k}};
    for (int i = 0; i < 4; ++i) {
        c.origin[i] = cv::Point2d(2000, 2000) + middles[i] - cv::Point2d(S / 2, S / 2);
        WaferScene local = c.scene;
        local.centre = c.scene.centre - c.origin[i];
        local.seed = 30 + i;
        c.images[i] = RenderScene(local, {S, S});
    }
    return c;
}

class WaferEdgeFilterTest : public PixmillTest, public ::testing::WithParamInterface<cv::Point2d> {};

TEST_P(WaferEdgeFilterTest, RecipeFindsBothPairsOnTheRim) {
    const int S = 200;
    const double R = 600;
    const Corners c = MakeCorners(S, R, GetParam());
    std::vector<cv::Mat> masters(c.images.begin(), c.images.end());
    std::vector<MasterImage> inputs;
    for (int i = 0; i < 4; ++i) inputs.push_back({&masters[i], i + 1});
    std::vector<cv::Mat> out;
    const std::wstring result = RunRecipe(
        {Source(L"rt", 1), Source(L"lt", 2), Source(L"lb", 3), Source(L"rb", 4),
         Node(L"edge", L"WaferEdgeFilter", true, {}, {{1, L"rt"}, {2, L"lt"}, {3, L"lb"}, {4, L"rb"}})},
        inputs, out);
    const std::string text = platform::ToUtf8(result);
    EXPECT_NE(text.find("\"FIND_RT_LB\" : \"SUCCESS\", \"FIND_LT_RB\" : \"SUCCESS\"} }"), std::string::npos) << text;
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].size(), cv::Size(2 * S, 2 * S));

    const std::regex point("\"(RT|LT|LB|RB)\":\\{\"X\": (-?[0-9]+), \"Y\": (-?[0-9]+)\\}");
    const char* names[4] = {"RT", "LT", "LB", "RB"};
    int seen = 0;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), point); it != std::sregex_iterator(); ++it) {
        const int i = int(std::find(names, names + 4, (*it)[1].str()) - names);
        const cv::Point2d p(std::stod((*it)[2]), std::stod((*it)[3]));
        const cv::Point2d inScene = p + c.origin[i];
        EXPECT_LE(RimDistance(c.scene, inScene, R), 3.0) << names[i] << " " << p;
        ++seen;
    }
    EXPECT_EQ(seen, 4);
}

INSTANTIATE_TEST_SUITE_P(Shifts, WaferEdgeFilterTest,
                         ::testing::Values(cv::Point2d(0, 0), cv::Point2d(12, -7), cv::Point2d(-15, -10),
                                           cv::Point2d(5, 18)));

TEST(WaferEdgeFilterSets, ShortestPinLimitsTheSetsAndPlotsFollow) {
    const Corners c = MakeCorners(160, 500, {8, 4});
    auto filter = Make(L"WaferEdgeFilter");
    SetParams(*filter, {{L"DrawDebug", L"true"}});
    std::vector<cv::Mat> out = RunPins(*filter, {{1, {c.images[0], c.images[0]}}, {2, {c.images[1]}},
                                                 {3, {c.images[2], c.images[2]}}, {4, {c.images[3]}}});
    ASSERT_EQ(out.size(), 3u) << "one set: the composite and the two pairs' plots";
    EXPECT_EQ(out[0].size(), cv::Size(320, 320));
    EXPECT_GT(out[1].rows, 500);

    auto empty = Make(L"WaferEdgeFilter");
    EXPECT_TRUE(RunPins(*empty, {{1, {c.images[0]}}, {2, {c.images[1]}}, {3, {c.images[2]}}}).empty());

    // A mask wider than the score list has no candidates.
    filters::WaferEdgeSettings wide;
    wide.mask = 960;
    EXPECT_FALSE(filters::FindWaferEdge(c.images, wide).pairs[0].found);
    // Images smaller than RT's rows are refused.
    EXPECT_THROW(filters::FindWaferEdge({c.images[0], c.images[1], c.images[2], cv::Mat(50, 50, CV_8UC1)}, {}),
                 std::invalid_argument);
}

// ---------------------------------------------------------------------------
// WaferEdgeFindFilter
// ---------------------------------------------------------------------------

struct BandCase {
    int direction;
    cv::Point expected;
};

class WaferEdgeFindTest : public ::testing::TestWithParam<BandCase> {};

// A bright band across a 300 x 200 image: rows 60 to 119 for directions 0
// and 2, columns 100 to 159 for 1 and 3; and a bright blob that spans
// nothing.
cv::Mat Bands(int direction) {
    cv::Mat image(200, 300, CV_8UC1, cv::Scalar(40));
    if (direction % 2 == 0) image.rowRange(60, 120).setTo(200);
    else image.colRange(100, 160).setTo(200);
    cv::circle(image, {250, 170}, 12, 210, cv::FILLED);
    cv::Mat noise(image.size(), CV_8SC1);
    cv::randn(noise, 0, 4);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

TEST_P(WaferEdgeFindTest, ReportsTheChosenSideOfEachBand) {
    const BandCase& b = GetParam();
    auto filter = Make(L"WaferEdgeFindFilter");
    SetParams(*filter, {{L"Direction", Num(b.direction)}, {L"BlurSize", L"4"}});
    const std::vector<cv::Mat> out = RunPins(*filter, {{1, {Bands(b.direction)}}});
    ASSERT_EQ(out.size(), 1u);
    const std::string text = platform::ToUtf8(filter->GetResult());
    std::smatch m;
    ASSERT_TRUE(std::regex_search(text, m, std::regex("\"Count\":\"1\", \"Blobs\":\\[\\{\"Blob\":\"0\", \"X\":\"(\\d+)\", \"Y\":\"(\\d+)\"\\}\\]\\}")))
        << text;
    EXPECT_NEAR(std::stoi(m[1]), b.expected.x, 2);
    EXPECT_NEAR(std::stoi(m[2]), b.expected.y, 2);
    EXPECT_EQ(out[0].at<uint8_t>(170, 250), 0) << "the refused blob is removed from the mask";
}

INSTANTIATE_TEST_SUITE_P(Directions, WaferEdgeFindTest,
                         ::testing::Values(BandCase{0, {150, 60}}, BandCase{1, {100, 100}}, BandCase{2, {150, 120}},
                                           BandCase{3, {160, 100}}));

TEST(WaferEdgeFindBands, FullImageAndDimBandsDoNotQualify) {
    EXPECT_TRUE(filters::FindBands(cv::Mat(50, 80, CV_8UC1, cv::Scalar(200)), 0, 11, 11).points.empty());
    // A band only a little above the ground, beside a bright one: below 0.9
    // of the bright pixels' mean.
    cv::Mat image(200, 300, CV_8UC1, cv::Scalar(20));
    image.rowRange(20, 60).setTo(250);
    image.rowRange(120, 160).setTo(150);
    const filters::BandFind found = filters::FindBands(image, 0, 5, 3);
    ASSERT_EQ(found.points.size(), 1u);
    EXPECT_EQ(found.points[0], cv::Point(150, 20));
    EXPECT_THROW(filters::FindBands(cv::Mat(), 0, 11, 11), std::invalid_argument);
}

}  // namespace
}  // namespace pixmill::test
