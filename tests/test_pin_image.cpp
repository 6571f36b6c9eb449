// The pin image routines, on drawn images whose answers follow from the
// drawing.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "inspect/pin/PinImage.h"

namespace pixmill::inspect::pin {
namespace {

cv::Mat Black(int w = 40, int h = 30) {
    return cv::Mat::zeros(h, w, CV_8UC1);
}

TEST(PinImageTest, MeansAndTheirEmptyCases) {
    cv::Mat img = Black(4, 2);
    img.at<uchar>(0, 0) = 200;
    img.at<uchar>(1, 3) = 40;
    EXPECT_DOUBLE_EQ(GrayMean(img), 30.0);
    EXPECT_DOUBLE_EQ(GrayMeanNonZero(img), 120.0);
    EXPECT_TRUE(std::isnan(GrayMean(cv::Mat())));
    EXPECT_TRUE(std::isnan(GrayMeanNonZero(Black())));
    EXPECT_EQ(GrayMean(cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(9))), 0.0);
}

TEST(PinImageTest, SobelEdgeSaturatesEachDerivativeAndTheirSum) {
    // Value 60 in the quadrant x >= 10, y >= 10.
    cv::Mat img = Black();
    img(cv::Rect(10, 10, 30, 20)).setTo(60);
    cv::Mat edge;
    SobelEdgeImage(img, edge);
    EXPECT_EQ(edge.at<uchar>(9, 9), 120);    // dx 60, dy 60
    EXPECT_EQ(edge.at<uchar>(20, 9), 240);   // vertical side: dx 240
    EXPECT_EQ(edge.at<uchar>(10, 10), 255);  // dx 180 + dy 180 saturates
    EXPECT_EQ(edge.at<uchar>(20, 25), 0);

    // The border is replicated: a bright first column has a gradient there
    // (a reflected border would mirror the dark second column and give none).
    cv::Mat column = Black();
    column.col(0).setTo(100);
    SobelEdgeImage(column, edge);
    EXPECT_EQ(edge.at<uchar>(15, 0), 255);
}

TEST(PinImageTest, ConvexHullOutline) {
    cv::Mat hull;
    ConvexHullImage(Black(), hull);
    EXPECT_EQ(cv::countNonZero(hull), 0);

    cv::Mat one = Black();
    one.at<uchar>(7, 5) = 1;
    ConvexHullImage(one, hull);
    EXPECT_EQ(cv::countNonZero(hull), 1);
    EXPECT_EQ(hull.at<uchar>(7, 5), 255);

    // Three points: the triangle's sides are drawn, its inside is not.
    cv::Mat three = Black();
    three.at<uchar>(2, 2) = three.at<uchar>(2, 30) = three.at<uchar>(20, 2) = 9;
    ConvexHullImage(three, hull);
    EXPECT_EQ(hull.at<uchar>(2, 16), 255);
    EXPECT_EQ(hull.at<uchar>(11, 2), 255);
    EXPECT_EQ(hull.at<uchar>(11, 16), 255);  // on the hypotenuse
    EXPECT_EQ(hull.at<uchar>(6, 6), 0);
}

TEST(PinImageTest, AreaFilterKeepsTheMinimumAreaAndFillsHoles) {
    cv::Mat img = Black(60, 30);
    img(cv::Rect(2, 2, 3, 6)).setTo(255);                 // contour area 2 x 5 = 10: kept
    img(cv::Rect(10, 2, 4, 4)).setTo(255);                // area 3 x 3 = 9: dropped
    cv::rectangle(img, cv::Rect(20, 2, 20, 20), 255, 2);  // a frame: filled
    cv::Mat out;
    AreaFilterContours(img, out, 10.0);
    EXPECT_EQ(cv::countNonZero(out(cv::Rect(2, 2, 3, 6))), 18);
    EXPECT_EQ(cv::countNonZero(out(cv::Rect(10, 2, 4, 4))), 0);
    EXPECT_EQ(cv::countNonZero(out(cv::Rect(20, 2, 20, 20))), 400);
}

TEST(PinImageTest, CircleAndBoxOfTheFirstContour) {
    cv::Mat drawn;
    const PinCircleResult none = EnclosingCircleOf(Black(), drawn);
    EXPECT_EQ(none.radius, 0.0);
    EXPECT_EQ(cv::countNonZero(drawn), 0);
    const PinBoxResult noBox = BoundingBoxOf(Black(), drawn, -1);
    EXPECT_EQ(noBox.width, 0.0);
    EXPECT_EQ(cv::countNonZero(drawn), 0);

    // The outline of a square from (10, 5) to (20, 15).
    cv::Mat square = Black();
    cv::rectangle(square, cv::Point(10, 5), cv::Point(20, 15), 255, 1);
    cv::Mat circleImage = Black(), boxImage = Black();
    const PinCircleResult c = EnclosingCircleOf(square, circleImage);
    EXPECT_EQ(c.center, cv::Point(15, 10));
    EXPECT_NEAR(c.radius, 5.0 * std::sqrt(2.0), 0.01);  // unrounded
    EXPECT_EQ(circleImage.at<uchar>(10, 22), 255);      // drawn with radius 7
    EXPECT_EQ(circleImage.at<uchar>(10, 23), 0);

    const PinBoxResult b = BoundingBoxOf(square, boxImage, -1);
    EXPECT_EQ(b.width, 11.0);
    EXPECT_EQ(b.height, 11.0);
    EXPECT_EQ(b.center, cv::Point(15, 10));          // (2 * 10 + 11) / 2 cut
    EXPECT_EQ(cv::countNonZero(boxImage), 12 * 12);  // (x, y) to (x + w, y + h)
}

TEST(PinImageTest, IntegralIsInclusive) {
    cv::Mat img(7, 9, CV_8UC1);
    cv::randu(img, 0, 256);
    cv::Mat S, reference;
    IntegralImage(img, S);
    cv::integral(img, reference, CV_64F);  // one row and column larger
    ASSERT_EQ(S.size(), img.size());
    for (int r = 0; r < img.rows; ++r)
        for (int c = 0; c < img.cols; ++c)
            ASSERT_EQ(S.at<float>(r, c), reference.at<double>(r + 1, c + 1)) << r << "," << c;

    cv::Mat floats, arrayOut(img.size(), CV_32F, cv::Scalar(-1));
    img.convertTo(floats, CV_32F);
    IntegralArray(floats.ptr<float>(), arrayOut.ptr<float>(), img.cols, img.rows);
    EXPECT_EQ(cv::norm(arrayOut, S, cv::NORM_INF), 0.0);
    IntegralArray(floats.ptr<float>(), arrayOut.ptr<float>(), 0, img.rows);
    IntegralArray(nullptr, arrayOut.ptr<float>(), img.cols, img.rows);
    EXPECT_EQ(cv::norm(arrayOut, S, cv::NORM_INF), 0.0);  // left alone
}

TEST(PinImageTest, BrightCentroidCountsOnly255) {
    cv::Mat img = Black();
    img.at<uchar>(4, 2) = 255;
    img.at<uchar>(8, 6) = 255;
    img.at<uchar>(20, 30) = 254;
    EXPECT_EQ(BrightCentroid(img, -5, -5, 0, 0), cv::Point(4, 6));
    EXPECT_EQ(BrightCentroid(img, 3, 0, 1000, 1000),
              cv::Point(6, 8));  // far sides held at the edge
    EXPECT_EQ(BrightCentroid(img, 10, 10, 40, 30), cv::Point(-1, -1));  // 254 does not count
    EXPECT_EQ(BrightCentroid(img, 5, 5, 5, 9), cv::Point(-1, -1));      // empty range
}

TEST(PinImageTest, ArrowToColumnZeroTakesTheFixedDirection) {
    // From (10, 5) to (0, 5): a leftward line, but q.x == 0 makes the barbs
    // those of the direction 1.5708, ending at (0, 3) and (1, 4).
    cv::Mat img = Black(20, 12);
    DrawArrow(img, cv::Point(10, 5), cv::Point(0, 5), cv::Scalar(255));
    EXPECT_EQ(img.at<uchar>(3, 0), 255);
    EXPECT_EQ(img.at<uchar>(4, 1), 255);
    EXPECT_EQ(img.at<uchar>(6, 1), 0);  // where a leftward arrow's barb would end
    EXPECT_EQ(cv::countNonZero(img.row(5)), 11);
}

TEST(PinImageTest, PseudoColourByAngle) {
    const cv::Mat levels = (cv::Mat_<uchar>(1, 3) << 0, 64, 128);  // 0, 90 and 180 degrees
    cv::Mat colour;
    PseudoColorImage(levels, colour);
    EXPECT_EQ(colour.at<cv::Vec3b>(0, 0), cv::Vec3b(127, 0, 127));
    EXPECT_EQ(colour.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 127, 0));
    EXPECT_EQ(colour.at<cv::Vec3b>(0, 2), cv::Vec3b(127, 255, 127));
}

}  // namespace
}  // namespace pixmill::inspect::pin
