// The inspection toolkit: failure image names, guarded runs, regions and
// the cut to integers.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <ctime>
#include <limits>
#include <stdexcept>

#include "TestSupport.h"
#include "inspect/Inspection.h"
#include "platform/Platform.h"

namespace pixmill::inspect {
namespace {

using InspectionTest = test::PixmillTest;

TEST_F(InspectionTest, FailureImageNameFromLocalTime) {
    EXPECT_EQ(FailureImageName('O'), "O_261121_103015");  // the pinned clock
    // The year takes two places without a leading zero.
    std::tm t{};
    t.tm_year = 2009 - 1900;
    t.tm_mon = 0;
    t.tm_mday = 2;
    t.tm_hour = 3;
    t.tm_min = 4;
    t.tm_sec = 5;
    t.tm_isdst = -1;
    platform::PinClockForTesting(static_cast<int64_t>(std::mktime(&t)) * 1000);
    EXPECT_EQ(FailureImageName('P'), "P_ 90102_030405");
}

TEST(InspectionToolTest, RunGuardedAnswersEveryEscape) {
    struct Result {
        int code = 0;
    };
    auto stray = [] { return Result{2}; };
    EXPECT_EQ(RunGuarded([] { return Result{5}; }, stray).code, 5);
    EXPECT_EQ(RunGuarded([]() -> Result { throw std::runtime_error("x"); }, stray).code, 2);
    EXPECT_EQ(RunGuarded([]() -> Result { throw Fail(3); }, stray).code, 2);
    EXPECT_EQ(RunGuarded([]() -> Result { throw 1; }, []() -> Result { throw 2; }).code, 0);
}

TEST(InspectionToolTest, FailKeepsItsLinesInOrder) {
    const Fail f = Fail(13).Line("%s Verify Fail\n", "[X]").Line("count : %d\n", 4);
    EXPECT_EQ(f.Code(), 13);
    EXPECT_EQ(f.Lines(), (std::vector<std::string>{"[X] Verify Fail\n", "count : 4\n"}));
}

TEST(InspectionToolTest, CutRegionOnlyWhollyInside) {
    cv::Mat image(10, 20, CV_8UC1);
    cv::randu(image, 0, 256);
    const cv::Mat inside = CutRegion(image, 15, 6, 5, 4);
    ASSERT_EQ(inside.size(), cv::Size(5, 4));
    EXPECT_EQ(cv::norm(inside, image(cv::Rect(15, 6, 5, 4)), cv::NORM_INF), 0.0);
    EXPECT_TRUE(CutRegion(image, 16, 6, 5, 4).empty());
    EXPECT_TRUE(CutRegion(image, -1, 0, 5, 4).empty());
    EXPECT_TRUE(CutRegion(image, 0, 0, 0, 4).empty());
    EXPECT_TRUE(CutRegion(image, 1, 1, INT_MAX, 4).empty());
}

TEST(InspectionToolTest, CutToIntIsDefinedEverywhere) {
    EXPECT_EQ(CutToInt(-1.9), -1);
    EXPECT_EQ(CutToInt(2.9), 2);
    EXPECT_EQ(CutToInt(1e12), INT_MAX);
    EXPECT_EQ(CutToInt(-1e12), INT_MIN);
    EXPECT_EQ(CutToInt(std::numeric_limits<double>::quiet_NaN()), 0);
}

}  // namespace
}  // namespace pixmill::inspect
