#include "inspect/die/DieCornerADI.h"

#include <algorithm>
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
