#include "inspect/die/DieCornerADI.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "enhance/Enhance.h"

namespace pixmill::inspect::die {

cv::Mat ADIBinaryArea(const cv::Mat& gray, const ADISettings& s, cv::Point& origin) {
    if (gray.empty() || s.inspWidth < 10 || s.inspHeight < 10 || s.inspWidth > gray.cols || s.inspHeight > gray.rows)
        return cv::Mat();
    if (!(s.sigma >= 0.0f) || !(s.scale >= 0.0f) || s.sigma > kMaxKernelSigma) return cv::Mat();
    const cv::Rect area(gray.cols / 2 - s.inspWidth / 2, gray.rows / 2 - s.inspHeight / 2, s.inspWidth, s.inspHeight);
    if ((area & cv::Rect(0, 0, gray.cols, gray.rows)) != area) return cv::Mat();
    const int p = static_cast<int>(s.sigma * 4.0);
    cv::Mat padded, enhanced;
    cv::copyMakeBorder(gray(area), padded, p, p, p, p, cv::BORDER_REPLICATE);
    enhanced.create(padded.size(), CV_8UC1);
    EnhanceImage(padded.data, enhanced.data, padded.cols, padded.rows, 0, s.sigma, s.scale);
    const cv::Mat flat = enhanced(cv::Rect(p, p, s.inspWidth, s.inspHeight)).clone();
    cv::Mat binary(flat.size(), CV_8UC1);
    Enhance_Threshold_Otsu(flat.data, binary.data, flat.cols, flat.rows, s.bright, s.absolute);
    origin = area.tl();
    return binary;
}

ADIHighResult ADIHighAlign(const cv::Mat& gray, const ADISettings& s) {
    ADIHighResult r;
    cv::Point origin;
    const cv::Mat binary = ADIBinaryArea(gray, s, origin);
    if (binary.empty()) return r;
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S);
    int best = 0, bestArea = 0;
    for (int l = 1; l < n; ++l) {
        const int area = stats.at<int>(l, cv::CC_STAT_AREA);
        if (area > bestArea && stats.at<int>(l, cv::CC_STAT_WIDTH) < binary.cols &&
            stats.at<int>(l, cv::CC_STAT_HEIGHT) < binary.rows) {
            bestArea = area;
            best = l;
        }
    }
    if (best == 0) return r;
    const int left = stats.at<int>(best, cv::CC_STAT_LEFT), top = stats.at<int>(best, cv::CC_STAT_TOP);
    r.width = stats.at<int>(best, cv::CC_STAT_WIDTH);
    r.height = stats.at<int>(best, cv::CC_STAT_HEIGHT);
    r.centre = cv::Point2f(static_cast<float>(origin.x + centroids.at<double>(best, 0)),
                           static_cast<float>(origin.y + centroids.at<double>(best, 1)));
    r.left = left < 1;
    r.top = top < 1;
    r.right = left + r.width - 1 > binary.cols - 2;
    r.bottom = top + r.height - 1 > binary.rows - 2;
    r.found = true;
    return r;
}

}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {
namespace {

struct Band {
    int length;
    int middle;
};

// Runs of 5-pixel strips along one direction that are at least 99 % zero.
// Horizontal bands run along the rows, vertical ones along the columns.
std::vector<Band> Bands(const cv::Mat& binary, bool horizontal, double& sumLength) {
    const int along = horizontal ? binary.rows : binary.cols;
    const int across = horizontal ? binary.cols : binary.rows;
    std::vector<Band> bands;
    if (along < 6) return bands;
    cv::Mat counts(along - 5, 1, CV_32F);
    for (int i = 0; i + 5 < along; ++i) {
        const cv::Mat strip = horizontal ? binary(cv::Rect(0, i, across, 5)) : binary(cv::Rect(i, 0, 5, across));
        counts.at<float>(i) = static_cast<float>(across * 5 - cv::countNonZero(strip));
    }
    cv::Mat marked, marked8, labels, stats, centroids;
    cv::threshold(counts, marked, across * 5 * 0.99, 255.0, cv::THRESH_BINARY);
    marked.convertTo(marked8, CV_8U);
    const int n = cv::connectedComponentsWithStats(marked8, labels, stats, centroids, 8, CV_32S);
    for (int l = 1; l < n; ++l) {
        const int length = stats.at<int>(l, cv::CC_STAT_HEIGHT);
        bands.push_back({length, stats.at<int>(l, cv::CC_STAT_TOP) + length / 2});
        sumLength += length;
    }
    return bands;
}

// Streets among the bands: longer than 1.5 times the mean band, at most
// `widest`, and strictly between the least and greatest blob coordinate.
std::vector<int> Streets(const std::vector<Band>& bands, double mean, int widest, int least, int greatest) {
    std::vector<int> streets;
    for (const Band& b : bands)
        if (b.length > mean * 1.5 && b.length <= widest && b.middle > least && b.middle < greatest)
            streets.push_back(b.middle);
    return streets;
}

}  // namespace

std::vector<cv::Point> ADILowAlign(const cv::Mat& gray, const ADILowSettings& s) {
    std::vector<cv::Point> crosses;
    cv::Point origin;
    cv::Mat binary = ADIBinaryArea(gray, s.area, origin);
    if (binary.empty()) return crosses;
    cv::morphologyEx(binary, binary, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)),
                     cv::Point(-1, -1), 1);
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S);
    if (n <= 4) return crosses;
    std::vector<cv::Point> centres;
    std::vector<int> xs, ys, widths, heights;
    for (int l = 1; l < n; ++l) {
        centres.emplace_back(cvRound(centroids.at<double>(l, 0)), cvRound(centroids.at<double>(l, 1)));
        xs.push_back(centres.back().x);
        ys.push_back(centres.back().y);
        widths.push_back(stats.at<int>(l, cv::CC_STAT_WIDTH));
        heights.push_back(stats.at<int>(l, cv::CC_STAT_HEIGHT));
    }
    double sumLength = 0.0;
    const std::vector<Band> rowBands = Bands(binary, true, sumLength);
    const std::vector<Band> columnBands = Bands(binary, false, sumLength);
    const size_t bandCount = rowBands.size() + columnBands.size();
    if (bandCount == 0) return crosses;
    const double mean = sumLength / static_cast<double>(bandCount);
    std::sort(xs.begin(), xs.end());
    std::sort(ys.begin(), ys.end());
    const std::vector<int> rowStreets = Streets(rowBands, mean, s.lineY, ys.front(), ys.back());
    const std::vector<int> columnStreets = Streets(columnBands, mean, s.lineX, xs.front(), xs.back());

    for (const int cy : rowStreets) {
        for (const int cx : columnStreets) {
            // Quadrants in order: right above, right below, left below, left above.
            int nearest[4] = {-1, -1, -1, -1};
            double best[4];
            std::fill(best, best + 4, 3.4028235e+38);
            for (size_t i = 0; i < centres.size(); ++i) {
                const cv::Point c = centres[i];
                if (c.x == cx || c.y == cy) continue;
                const int q = c.x > cx ? (c.y < cy ? 0 : 1) : (c.y > cy ? 2 : 3);
                const double d = std::hypot(double(c.x - cx), double(c.y - cy));
                if (d < best[q]) {
                    best[q] = d;
                    nearest[q] = static_cast<int>(i);
                }
            }
            if (std::find(nearest, nearest + 4, -1) != nearest + 4) continue;
            int minW = INT_MAX, maxW = 0, minH = INT_MAX, maxH = 0;
            cv::Point2d p[4];
            for (int q = 0; q < 4; ++q) {
                const int i = nearest[q];
                minW = std::min(minW, widths[i]);
                maxW = std::max(maxW, widths[i]);
                minH = std::min(minH, heights[i]);
                maxH = std::max(maxH, heights[i]);
                p[q] = cv::Point2d(centres[i].x + origin.x, centres[i].y + origin.y);
            }
            double shortest = 3.4028235e+38, longest = 0.0;
            for (int q = 0; q < 4; ++q) {
                const double side = cv::norm(p[(q + 1) % 4] - p[q]);
                shortest = std::min(shortest, side);
                longest = std::max(longest, side);
            }
            if (longest <= 0.0 || double(minW) / maxW <= 0.5 || double(minH) / maxH <= 0.5 ||
                shortest / longest <= 0.8)
                continue;
            // Area centroid of the quadrilateral. The quadrants run clockwise
            // on the screen, so the signed area is negative; dividing by the
            // signed (not absolute) area keeps the position in image
            // coordinates whatever the winding.
            double twiceArea = 0.0, sx = 0.0, sy = 0.0;
            for (int q = 0; q < 4; ++q) {
                const cv::Point2d& a = p[q];
                const cv::Point2d& b = p[(q + 1) % 4];
                const double c = b.x * a.y - a.x * b.y;
                twiceArea += c;
                sx += (a.x + b.x) * c;
                sy += (a.y + b.y) * c;
            }
            if (std::abs(twiceArea) < 1e-9) continue;
            crosses.emplace_back(static_cast<int>(sx / (3.0 * twiceArea)), static_cast<int>(sy / (3.0 * twiceArea)));
        }
    }
    return crosses;
}

}  // namespace pixmill::inspect::die
