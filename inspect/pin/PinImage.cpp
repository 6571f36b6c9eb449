#include "inspect/pin/PinImage.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace pixmill::inspect::pin {

namespace {

const cv::Scalar kWhite(255, 255, 255, 0);

// Makes `destination` an 8-bit image of the source's size, zeroed when it
// had to be created, keeping a caller's image of the right size as it is.
void EnsureLike(const cv::Mat& source, cv::Mat& destination, int type = CV_8UC1) {
    if (destination.size() != source.size() || destination.depth() != CV_8U) {
        destination.create(source.size(), type);
        destination.setTo(cv::Scalar::all(0));
    }
}

// Contours as the pin routines search them: the whole tree, simple chains.
void FindContours(const cv::Mat& source, std::vector<std::vector<cv::Point>>& contours,
                  std::vector<cv::Vec4i>& hierarchy) {
    contours.clear();
    hierarchy.clear();
    if (source.empty()) return;
    cv::Mat binary = source;
    if (source.type() != CV_8UC1) {
        cv::Mat gray;
        if (source.channels() != 1)
            cv::extractChannel(source, gray, 0);
        else
            gray = source;
        gray.convertTo(binary, CV_8U);
    }
    cv::findContours(binary, contours, hierarchy, cv::RETR_TREE, cv::CHAIN_APPROX_SIMPLE);
}

}  // namespace

double GrayMean(const cv::Mat& image) {
    if (image.channels() != 1) return 0.0;
    if (image.total() == 0) return std::numeric_limits<double>::quiet_NaN();
    return cv::sum(image)[0] / static_cast<double>(image.total());
}

double GrayMeanNonZero(const cv::Mat& image) {
    if (image.channels() != 1) return 0.0;
    const int count = image.empty() ? 0 : cv::countNonZero(image);
    if (count == 0) return std::numeric_limits<double>::quiet_NaN();
    return cv::sum(image)[0] / count;
}

void SobelEdgeImage(const cv::Mat& source, cv::Mat& destination) {
    cv::Mat dx, dy, ax, ay;
    cv::Sobel(source, dx, CV_32F, 1, 0, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
    cv::Sobel(source, dy, CV_32F, 0, 1, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
    cv::convertScaleAbs(dx, ax, 1.0, 0.0);
    cv::convertScaleAbs(dy, ay, 1.0, 0.0);
    cv::add(ax, ay, destination);
}

void ConvexHullImage(const cv::Mat& source, cv::Mat& destination) {
    std::vector<cv::Point> points;
    if (!source.empty()) cv::findNonZero(source, points);
    EnsureLike(source, destination);
    destination.setTo(cv::Scalar::all(0));
    if (points.empty()) return;
    std::vector<cv::Point> hull;
    cv::convexHull(points, hull, /*clockwise=*/true, /*returnPoints=*/true);
    // From the last hull point round to it again, so the outline closes.
    cv::Point previous = hull.back();
    for (const cv::Point& p : hull) {
        cv::line(destination, previous, p, kWhite, 1, cv::LINE_8, 0);
        previous = p;
    }
}

void AreaFilterContours(const cv::Mat& source, cv::Mat& destination, double minimumArea) {
    EnsureLike(source, destination, destination.channels() == 3 ? CV_8UC3 : CV_8UC1);
    destination.setTo(cv::Scalar::all(0));
    cv::Scalar colour(255, 255, 255, 255);
    if (destination.channels() == 3) {
        const int first = std::rand() & 255;
        const int second = std::rand() & 255;
        const int third = std::rand() & 255;
        colour = cv::Scalar(first, second, third, 0);
    }
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    FindContours(source, contours, hierarchy);
    // Top level only, along the "next" links; inner contours are never
    // visited, and a filled outer contour covers its holes.
    for (int i = contours.empty() ? -1 : 0; i >= 0; i = hierarchy[i][0]) {
        if (std::fabs(cv::contourArea(contours[i])) >= minimumArea)
            cv::drawContours(destination, contours, i, colour, cv::FILLED, cv::LINE_8, hierarchy,
                             0);
    }
}

namespace {

// Prepares the destination like the source and gives the first contour of
// the source; false when it has none.
bool FirstContour(const cv::Mat& source, cv::Mat& destination, std::vector<cv::Point>& first) {
    EnsureLike(source, destination);
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    FindContours(source, contours, hierarchy);
    if (contours.empty()) return false;
    first = std::move(contours[0]);
    return true;
}

}  // namespace

PinCircleResult EnclosingCircleOf(const cv::Mat& source, cv::Mat& destination) {
    PinCircleResult result;
    std::vector<cv::Point> contour;
    if (!FirstContour(source, destination, contour)) return result;
    cv::Point2f center;
    float radius = 0.0f;
    cv::minEnclosingCircle(contour, center, radius);
    result.center = cv::Point(static_cast<int>(center.x), static_cast<int>(center.y));
    result.radius = radius;
    cv::circle(destination, result.center, static_cast<int>(radius), kWhite, cv::FILLED, cv::LINE_8,
               0);
    return result;
}

PinBoxResult BoundingBoxOf(const cv::Mat& source, cv::Mat& destination, int thickness) {
    PinBoxResult result;
    std::vector<cv::Point> contour;
    if (!FirstContour(source, destination, contour)) return result;
    const cv::Rect r = cv::boundingRect(contour);
    cv::rectangle(destination, cv::Point(r.x, r.y), cv::Point(r.x + r.width, r.y + r.height),
                  kWhite, thickness, cv::LINE_8, 0);
    result.width = r.width;
    result.height = r.height;
    result.center = cv::Point(static_cast<int>((2 * r.x + r.width) * 0.5),
                              static_cast<int>((2 * r.y + r.height) * 0.5));
    return result;
}

void IntegralArray(const float* source, float* destination, int width, int height) {
    if (!source || !destination || width <= 0 || height <= 0) return;
    float run = 0.0f;
    for (int c = 0; c < width; ++c) {
        run += source[c];
        destination[c] = run;
    }
    for (int r = 1; r < height; ++r) {
        const float* in = source + static_cast<size_t>(r) * width;
        const float* above = destination + static_cast<size_t>(r - 1) * width;
        float* out = destination + static_cast<size_t>(r) * width;
        run = 0.0f;
        for (int c = 0; c < width; ++c) {
            run += in[c];
            out[c] = run + above[c];
        }
    }
}

void IntegralImage(const cv::Mat& source, cv::Mat& integral) {
    cv::Mat plane = source, floats;
    if (source.channels() != 1) cv::extractChannel(source, plane, 0);
    if (plane.type() == CV_32FC1)
        floats = plane;
    else
        plane.convertTo(floats, CV_32F);
    if (!floats.isContinuous()) floats = floats.clone();
    integral.create(source.size(), CV_32FC1);
    IntegralArray(floats.ptr<float>(), integral.ptr<float>(), floats.cols, floats.rows);
}

cv::Point BrightCentroid(const cv::Mat& image, int left, int top, int right, int bottom) {
    if (image.empty() || image.depth() != CV_8U || image.channels() != 1) return {-1, -1};
    if (left < 0) left = 0;
    if (top < 0) top = 0;
    if (right < 1 || right > image.cols) right = image.cols;
    if (bottom < 1 || bottom > image.rows) bottom = image.rows;
    int64_t count = 0, sumX = 0, sumY = 0;
    for (int y = top; y < bottom; ++y) {
        const uchar* row = image.ptr<uchar>(y);
        for (int x = left; x < right; ++x) {
            if (row[x] > 254) {
                ++count;
                sumX += x;
                sumY += y;
            }
        }
    }
    if (count == 0) return {-1, -1};
    return {static_cast<int>(sumX / count), static_cast<int>(sumY / count)};
}

void DrawArrow(cv::Mat& image, cv::Point from, cv::Point to, const cv::Scalar& colour) {
    const double direction =
        to.x == 0 ? 1.5708 : std::atan2(to.y - from.y, static_cast<double>(to.x - from.x));
    cv::line(image, from, to, colour, 1, cv::LINE_8, 0);
    const double c = std::cos(direction), s = std::sin(direction);
    cv::Point a, b;
    if (direction == 1.5708 && from.y > to.y) {
        a = cv::Point(static_cast<int>(to.x + c - s), static_cast<int>(to.y + c + s));
        b = cv::Point(static_cast<int>(to.x + c + s), static_cast<int>(to.y + s - c));
    } else {
        a = cv::Point(static_cast<int>(to.x - c - s), static_cast<int>(to.y + c - s));
        b = cv::Point(static_cast<int>(to.x + s - c), static_cast<int>(to.y - s - c));
    }
    cv::line(image, a, to, colour, 1, cv::LINE_8, 0);
    cv::line(image, b, to, colour, 1, cv::LINE_8, 0);
}

void PseudoColorImage(const cv::Mat& source, cv::Mat& destination) {
    // One colour per gray level, the same for every pixel of that level.
    cv::Mat lut(1, 256, CV_8UC3);
    for (int v = 0; v < 256; ++v) {
        const double angle = ((v * 360) >> 8) * 0.017453292519943295;
        const double s = std::sin(angle), c = std::cos(angle);
        lut.at<cv::Vec3b>(0, v) = cv::Vec3b(static_cast<uchar>(static_cast<int>((1 + s) * 127.5)),
                                            static_cast<uchar>(static_cast<int>((1 - c) * 127.5)),
                                            static_cast<uchar>(static_cast<int>((1 - s) * 127.5)));
    }
    cv::Mat gray3;
    cv::cvtColor(source, gray3, cv::COLOR_GRAY2BGR);
    cv::LUT(gray3, lut, destination);
}

}  // namespace pixmill::inspect::pin
