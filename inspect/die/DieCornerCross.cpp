#include "inspect/die/DieCornerCross.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "inspect/die/DieCornerImage.h"

namespace pixmill::inspect::die {

namespace {

}  // namespace

std::vector<Band> StreetBands(const cv::Mat& binary, bool rows) {
    const int n = rows ? binary.rows : binary.cols;
    const int across = rows ? binary.cols : binary.rows;
    std::vector<Band> bands;
    if (n < 6) return bands;
    cv::Mat counts(n - 5, 1, CV_32F);
    for (int i = 0; i < n - 5; ++i) {
        const cv::Mat strip = rows ? binary.rowRange(i, i + 5) : binary.colRange(i, i + 5);
        counts.at<float>(i) = static_cast<float>(across * 5 - cv::countNonZero(strip));
    }
    cv::Mat marks, marks8, labels, stats, centroids;
    cv::threshold(counts, marks, across * 5 * 0.99, 255.0, cv::THRESH_BINARY);
    marks.convertTo(marks8, CV_8U);
    const int k = cv::connectedComponentsWithStats(marks8, labels, stats, centroids, 8, CV_32S);
    for (int l = 1; l < k; ++l) bands.push_back({stats.at<int>(l, cv::CC_STAT_TOP), stats.at<int>(l, cv::CC_STAT_HEIGHT)});
    return bands;
}

namespace {

// The neighbours of `v` in the sorted list, or the image limits.
std::pair<int, int> Neighbours(const std::vector<int>& sorted, int v, int limit) {
    auto it = std::lower_bound(sorted.begin(), sorted.end(), v);
    const int lo = it == sorted.begin() ? 0 : *(it - 1);
    auto up = std::upper_bound(sorted.begin(), sorted.end(), v);
    const int hi = up == sorted.end() ? limit - 1 : *up;
    return {lo, hi};
}

// Angle in degrees at `at` between the far ends of two segments.
double AngleAt(cv::Point2d at, const Segment& s, const Segment& t) {
    auto far = [&](const Segment& g) { return cv::norm(g.a - at) > cv::norm(g.b - at) ? g.a : g.b; };
    const cv::Point2d u = far(s) - at, v = far(t) - at;
    const double nu = cv::norm(u), nv = cv::norm(v);
    if (nu == 0 || nv == 0) return 0.0;
    return std::acos(std::clamp(u.dot(v) / (nu * nv), -1.0, 1.0)) * 180.0 / CV_PI;
}

constexpr int kMinPoints = 60;

}  // namespace

std::vector<CrossCorners> DetectCornersNearbyCross(const cv::Mat& gray) {
    std::vector<CrossCorners> result;
    if (gray.empty() || gray.rows < 6 || gray.cols < 6) return result;
    CV_Assert(gray.type() == CV_8UC1);
    cv::Mat binary;
    cv::threshold(gray, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    cv::morphologyEx(binary, binary, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}, {-1, -1}));

    const std::vector<Band> rowBands = StreetBands(binary, true), colBands = StreetBands(binary, false);
    struct Crossing {
        cv::Point at;        // where the walks start
        cv::Point2f centre;  // where it is reported
    };
    std::vector<Crossing> crosses;
    std::vector<int> rowMid, colMid;
    for (const Band& r : rowBands)
        for (const Band& c : colBands)
            if (c.length > 0.3 * r.length && c.length < 1.7 * r.length) {
                crosses.push_back({cv::Point(c.middle(), r.middle()),
                                   cv::Point2f(static_cast<float>(c.centre()), static_cast<float>(r.centre()))});
                rowMid.push_back(r.middle());
                colMid.push_back(c.middle());
            }
    for (auto* list : {&rowMid, &colMid}) {
        std::sort(list->begin(), list->end());
        list->erase(std::unique(list->begin(), list->end()), list->end());
    }
    // Rows of crossings first, each row from left to right.
    std::sort(crosses.begin(), crosses.end(), [](const Crossing& a, const Crossing& b) {
        return a.at.y != b.at.y ? a.at.y < b.at.y : a.at.x < b.at.x;
    });

    const int W = binary.cols, H = binary.rows;
    auto fg = [&](int x, int y) { return binary.at<uint8_t>(y, x) != 0; };
    // Quadrant signs (dx, dy) and the record slot of the die's corner there.
    const int signs[4][2] = {{-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
    const int slot[4] = {2, 3, 1, 0};
    for (const Crossing& crossing : crosses) {
        const cv::Point x0 = crossing.at;
        CrossCorners rec;
        rec.cross = crossing.centre;
        const auto [rowLo, rowHi] = Neighbours(rowMid, x0.y, H);
        const auto [colLo, colHi] = Neighbours(colMid, x0.x, W);
        for (int q = 0; q < 4; ++q) {
            const int dx = signs[q][0], dy = signs[q][1];
            // Walk ends: the neighbouring street middles, and no further
            // than half the image from the crossing.
            const int xEnd = std::clamp(dx > 0 ? std::min(colHi, x0.x + W / 2) : std::max(colLo, x0.x - W / 2), 0, W - 1);
            const int yEnd = std::clamp(dy > 0 ? std::min(rowHi, x0.y + H / 2) : std::max(rowLo, x0.y - H / 2), 0, H - 1);
            // Points of the sides across x (from walks along rows) and
            // across y (from walks along columns), first and second edges.
            std::vector<cv::Point2f> vertical[2], horizontal[2];
            for (int y = x0.y + dy; y != yEnd; y += dy) {
                int found = 0;
                bool prev = fg(x0.x, y);
                if (prev) continue;  // the walk must start in the street
                for (int x = x0.x + dx; x != xEnd + dx && found < 2; x += dx) {
                    const bool now = fg(x, y);
                    if (now != prev) vertical[found++].emplace_back(x - 0.5f * dx, static_cast<float>(y));
                    prev = now;
                }
            }
            for (int x = x0.x + dx; x != xEnd; x += dx) {
                int found = 0;
                bool prev = fg(x, x0.y);
                if (prev) continue;
                for (int y = x0.y + dy; y != yEnd + dy && found < 2; y += dy) {
                    const bool now = fg(x, y);
                    if (now != prev) horizontal[found++].emplace_back(static_cast<float>(x), y - 0.5f * dy);
                    prev = now;
                }
            }
            for (int order = 0; order < 2; ++order) {
                if (vertical[order].size() <= kMinPoints || horizontal[order].size() <= kMinPoints) continue;
                const Segment v = FitSide(vertical[order], binary.size(), static_cast<int>(0.2 * vertical[order].size()),
                                          true, std::min(x0.y, yEnd), std::max(x0.y, yEnd));
                const Segment h = FitSide(horizontal[order], binary.size(),
                                          static_cast<int>(0.2 * horizontal[order].size()), false,
                                          std::min(x0.x, xEnd), std::max(x0.x, xEnd));
                cv::Point2d at;
                if (!Intersect(v, h, at)) continue;
                const double angle = AngleAt(at, v, h);
                if (!(angle > 80.0 && angle < 100.0)) continue;
                (order == 0 ? rec.first : rec.second)[slot[q]] =
                    cv::Point2f(static_cast<float>(at.x), static_cast<float>(at.y));
            }
        }
        result.push_back(rec);
    }
    return result;
}

void DrawCrossCorners(cv::Mat& bgr, const CrossCorners& c) {
    static const cv::Point2f kInward[4] = {{1, 1}, {-1, 1}, {-1, -1}, {1, -1}};
    for (const auto* corners : {&c.first, &c.second}) {
        const cv::Scalar colour = corners == &c.first ? cv::Scalar(0, 0, 255) : cv::Scalar(0, 255, 0);
        for (int k = 0; k < 4; ++k) {
            const cv::Point2f p = (*corners)[k];
            if (p.x == -1.f && p.y == -1.f) continue;
            // The second corner is the die's far corner: its strokes point
            // the other way.
            const cv::Point2f d = corners == &c.first ? kInward[k] : -kInward[k];
            const cv::Point from(cvRound(p.x), cvRound(p.y));
            cv::line(bgr, from, cv::Point(cvRound(p.x + 6 * d.x), cvRound(p.y)), colour, 1, cv::LINE_8);
            cv::line(bgr, from, cv::Point(cvRound(p.x), cvRound(p.y + 6 * d.y)), colour, 1, cv::LINE_8);
        }
    }
}

}  // namespace pixmill::inspect::die
