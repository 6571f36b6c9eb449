#include "inspect/die/DieCornerBlack.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "inspect/die/DieCornerImage.h"

namespace pixmill::inspect::die {

namespace {

struct LevelScore {
    int level = 0;
    int solid = 0;
    double ratio = 0.0;
};

// One level on the reduced image: how many solid die-sized blobs it gives
// and how much brighter the blobs' inner rim is than their outer rim.
LevelScore ScoreLevel(const cv::Mat& reduced, int level, int minWidth, int minHeight, const cv::Mat& small,
                      const cv::Mat& large) {
    LevelScore score;
    score.level = level;
    cv::Mat mask, labels, stats, centroids;
    cv::threshold(reduced, mask, level, 255.0, cv::THRESH_BINARY);
    cv::morphologyEx(mask, mask, cv::MORPH_ERODE, small);
    const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    if (n < 2) return score;
    bool dieSized = false;
    for (int l = 1; l < n; ++l) {
        const int w = stats.at<int>(l, cv::CC_STAT_WIDTH), h = stats.at<int>(l, cv::CC_STAT_HEIGHT);
        const int area = stats.at<int>(l, cv::CC_STAT_AREA);
        if (w > minWidth / 2.0 && h > minHeight / 2.0 && w < reduced.cols && h < reduced.rows) {
            dieSized = true;
            if (area > 0.9 * w * h) ++score.solid;
        }
    }
    if (!dieSized) return score;
    cv::Mat dilated, eroded;
    cv::morphologyEx(mask, dilated, cv::MORPH_DILATE, large);
    cv::morphologyEx(mask, eroded, cv::MORPH_ERODE, large);
    const cv::Mat outer = dilated - mask, inner = mask - eroded;
    const double outerMean = cv::mean(reduced, outer)[0], innerMean = cv::mean(reduced, inner)[0];
    score.ratio = (outerMean > 0.0 && innerMean > 0.0) ? innerMean / outerMean : 0.0;
    return score;
}

// The most solid blobs first, then the best rim contrast; the first level
// wins ties. 0 when nothing qualifies.
int PickLevel(const std::vector<LevelScore>& scores) {
    int bestSolid = 0;
    for (const LevelScore& s : scores) bestSolid = std::max(bestSolid, s.solid);
    int level = 0;
    double bestRatio = 0.0;
    for (const LevelScore& s : scores) {
        if (bestSolid > 0 && s.solid != bestSolid) continue;
        if (s.ratio > bestRatio) {
            bestRatio = s.ratio;
            level = s.level;
        }
    }
    // Solid blobs with no measurable contrast: the first level with the most.
    if (level == 0 && bestSolid > 0)
        for (const LevelScore& s : scores)
            if (s.solid == bestSolid) return s.level;
    return level;
}

enum Side { kLeft, kTop, kRight, kBottom };

// The sub-pixel position, along a scan line, where the gray crosses half way
// from the background just outside the first die pixel `c` to the die just
// inside it. The binarisation level decides which pixel is first, and a
// level low in the die's range would move every side outward; the half-way
// crossing does not depend on it. `fallback` when the contrast is too weak
// to tell.
float MidCrossing(const cv::Mat& gray, bool vertical, int along, int c, int step, float fallback) {
    const int size = vertical ? gray.cols : gray.rows;
    auto value = [&](int across) -> double {
        across = std::clamp(across, 0, size - 1);
        return vertical ? gray.at<uint8_t>(along, across) : gray.at<uint8_t>(across, along);
    };
    const double outside = value(c - 3 * step), inside = value(c + 3 * step);
    if (inside - outside < 10.0) return fallback;
    const double mid = 0.5 * (outside + inside);
    for (int u = c - 3 * step; u != c + 3 * step; u += step) {
        const double v0 = value(u), v1 = value(u + step);
        if (v0 < mid && v1 >= mid) return static_cast<float>(u + step * (mid - v0) / (v1 - v0));
    }
    return fallback;
}

// The edge points of one side of a component. Points lie on the boundary
// between background and die (half a pixel outside the first die pixel).
std::vector<cv::Point2f> SidePoints(const cv::Mat& mask, const cv::Mat& gray, const cv::Mat& gradient,
                                    const cv::Mat& edge, const cv::Rect& comp, Side side, int mode) {
    const bool vertical = side == kLeft || side == kRight;
    // Work in (along, across) coordinates: `across` is the scan direction,
    // x for the left and right sides, y for top and bottom.
    const int acrossSize = vertical ? mask.cols : mask.rows;
    const int along0 = vertical ? comp.y : comp.x;
    const int alongN = vertical ? comp.height : comp.width;
    const bool nearSide = side == kLeft || side == kTop;
    const int first = vertical ? (nearSide ? comp.x : comp.x + comp.width - 1)
                               : (nearSide ? comp.y : comp.y + comp.height - 1);
    int lo, hi;  // strip, inclusive, in `across`
    if (nearSide) {
        lo = std::max(first - 5, 0);
        hi = mode == 1 ? first : first + 19;
    } else {
        hi = std::min(first + 5, acrossSize - 1);
        lo = mode == 1 ? first : first - 19;
    }
    lo = std::max(lo, 0);
    hi = std::min(hi, acrossSize - 1);
    if (lo > hi) return {};
    auto at = [&](const cv::Mat& m, int along, int across) -> int {
        return vertical ? m.at<uint8_t>(along, across) : m.at<uint8_t>(across, along);
    };
    // The band of strip lines that are edge almost all along the side.
    int bandLo = lo, bandHi = hi;
    {
        const double full = 0.9 * alongN;
        bool open = false;
        for (int c = lo; c <= hi; ++c) {
            int count = 0;
            for (int a = along0; a < along0 + alongN; ++a) count += at(edge, a, c) != 0;
            if (!open && count > full) {
                open = true;
                bandLo = c;
                bandHi = hi;
            } else if (open && count <= full) {
                bandHi = c - 1;
                break;
            }
        }
    }
    const int step = nearSide ? 1 : -1;
    const int start = nearSide ? lo : hi, stop = nearSide ? hi + 1 : lo - 1;
    const float outward = nearSide ? -0.5f : 0.5f;
    std::vector<cv::Point2f> points;
    for (int a = along0; a < along0 + alongN; ++a) {
        float across = -1.f;
        if (mode == 1) {
            int best = -1, bestAt = -1, runEnd = -1;
            for (int c = start; c != stop; c += step) {
                if (!at(edge, a, c)) continue;
                const int g = at(gradient, a, c);
                if (g > best) {
                    best = g;
                    bestAt = runEnd = c;
                } else if (g == best && runEnd == c - step) {
                    runEnd = c;
                }
            }
            if (bestAt >= 0) across = 0.5f * (bestAt + runEnd);
        } else {
            const cv::Mat& source = mode == 2 ? edge : mask;
            for (int c = start; c != stop; c += step) {
                if (at(source, a, c)) {
                    // The first mask pixel is inside the die, the first edge
                    // pixel just outside it.
                    across = static_cast<float>(c) + (mode == 2 ? -outward : outward);
                    if (mode == 2 && (c < bandLo || c > bandHi)) across = -1.f;
                    break;
                }
            }
        }
        if (across < 0.f) continue;
        const int inner = nearSide ? static_cast<int>(std::ceil(across)) : static_cast<int>(std::floor(across));
        across = MidCrossing(gray, vertical, a, inner, step, across);
        points.push_back(vertical ? cv::Point2f(across, static_cast<float>(a))
                                  : cv::Point2f(static_cast<float>(a), across));
    }
    return points;
}

}  // namespace

int ChooseDieLevel(const cv::Mat& blurred, int minWidth, int minHeight) {
    const cv::Mat small = cv::getStructuringElement(cv::MORPH_RECT, {5, 5}, {-1, -1});
    const cv::Mat large = cv::getStructuringElement(cv::MORPH_RECT, {9, 9}, {-1, -1});
    const int mx = static_cast<int>(0.05 * blurred.cols / 2), my = static_cast<int>(0.05 * blurred.rows / 2);
    const cv::Rect inner(mx, my, blurred.cols - static_cast<int>(0.05 * blurred.cols),
                         blurred.rows - static_cast<int>(0.05 * blurred.rows));
    if (inner.width < 2 || inner.height < 2) return 0;
    cv::Mat reduced;
    cv::resize(blurred(inner & cv::Rect(0, 0, blurred.cols, blurred.rows)), reduced,
               cv::Size(inner.width / 2, inner.height / 2), 0, 0, cv::INTER_LINEAR);
    std::vector<LevelScore> coarse;
    for (int level = 30; level <= 220; level += 15)
        coarse.push_back(ScoreLevel(reduced, level, minWidth, minHeight, small, large));
    const int level = PickLevel(coarse);
    std::vector<LevelScore> fine;
    for (int l = std::max(level - 10, 30); l <= std::min(level + 10, 250); l += 5)
        fine.push_back(ScoreLevel(reduced, l, minWidth, minHeight, small, large));
    return PickLevel(fine);
}

std::vector<DieCorners> DetectBlackBackgroundDies(const cv::Mat& gray, const BlackBackgroundSettings& s) {
    std::vector<DieCorners> dies;
    if (s.dieWidth < 10 || s.dieHeight < 10 || gray.rows < 100 || gray.cols < 100) return dies;
    CV_Assert(gray.type() == CV_8UC1);
    cv::Mat blurred;
    cv::GaussianBlur(gray, blurred, {3, 3}, 0, 0, cv::BORDER_REFLECT_101);
    const int minWidth = static_cast<int>(std::max(0.15 * std::min(s.dieWidth, gray.cols), 20.0));
    const int minHeight = static_cast<int>(std::max(0.15 * std::min(s.dieHeight, gray.rows), 20.0));
    const int level = ChooseDieLevel(blurred, minWidth, minHeight);
    if (level == 0) return dies;

    cv::Mat mask, dx, dy, gradient, edge;
    cv::threshold(blurred, mask, level, 255.0, cv::THRESH_BINARY);
    // Dark features inside a die (pads, marks) are holes of the inverse
    // mask that do not reach the border: they belong to the die.
    {
        cv::Mat inverse = 255 - mask, labels, stats, centroids;
        const int n = cv::connectedComponentsWithStats(inverse, labels, stats, centroids, 8, CV_32S);
        for (int l = 1; l < n; ++l) {
            const int x = stats.at<int>(l, cv::CC_STAT_LEFT), y = stats.at<int>(l, cv::CC_STAT_TOP);
            const int w = stats.at<int>(l, cv::CC_STAT_WIDTH), h = stats.at<int>(l, cv::CC_STAT_HEIGHT);
            if (x > 0 && y > 0 && x + w < mask.cols && y + h < mask.rows) mask.setTo(255, labels == l);
        }
    }
    cv::Sobel(mask, dx, CV_16S, 1, 0, 3, 1.0, 0, cv::BORDER_REPLICATE);
    cv::Sobel(mask, dy, CV_16S, 0, 1, 3, 1.0, 0, cv::BORDER_REPLICATE);
    cv::convertScaleAbs(dx, dx);
    cv::convertScaleAbs(dy, dy);
    cv::add(dx, dy, gradient);
    // The binary mask's gradient is two pixels wide along each side; an
    // opening would erase it, so the Otsu split is used as it stands.
    cv::threshold(gradient, edge, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);

    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    for (int l = 1; l < n; ++l) {
        const cv::Rect comp(stats.at<int>(l, cv::CC_STAT_LEFT), stats.at<int>(l, cv::CC_STAT_TOP),
                            stats.at<int>(l, cv::CC_STAT_WIDTH), stats.at<int>(l, cv::CC_STAT_HEIGHT));
        const int area = stats.at<int>(l, cv::CC_STAT_AREA);
        const int right = comp.x + comp.width - 1, bottom = comp.y + comp.height - 1;
        const bool touchX = comp.x <= 2 || right >= mask.cols - 3;
        const bool touchY = comp.y <= 2 || bottom >= mask.rows - 3;
        if (comp.width < minWidth || comp.height < minHeight) continue;
        if (area < 0.85 * comp.width * comp.height) continue;
        if (!touchY && std::abs(comp.height - s.dieHeight) > s.toleranceHeight) continue;
        if (!touchX && std::abs(comp.width - s.dieWidth) > s.toleranceWidth) continue;

        // Only this component's pixels take part in its sides.
        const cv::Mat own = labels == l;
        Segment sides[4];
        const bool sought[4] = {comp.x > 1, comp.y > 1, right < mask.cols - 2, bottom < mask.rows - 2};
        for (int side = 0; side < 4; ++side) {
            if (!sought[side]) continue;
            const std::vector<cv::Point2f> points =
                SidePoints(own, blurred, gradient, edge, comp, static_cast<Side>(side), s.searchMode);
            const bool vertical = side == kLeft || side == kRight;
            const int length = vertical ? comp.height : comp.width;
            sides[side] = FitSide(points, mask.size(), static_cast<int>(0.2 * length), vertical,
                                  vertical ? comp.y : comp.x, vertical ? bottom : right);
        }
        DieCorners die;
        const int pairs[4][2] = {{kLeft, kTop}, {kTop, kRight}, {kRight, kBottom}, {kBottom, kLeft}};
        for (int c = 0; c < 4; ++c) {
            cv::Point2d p;
            if (Intersect(sides[pairs[c][0]], sides[pairs[c][1]], p)) {
                die.corner[c] = cv::Point2f(static_cast<float>(p.x), static_cast<float>(p.y));
                die.found = true;
            }
        }
        if (die.found) dies.push_back(die);
    }
    return dies;
}

void DrawDieCorners(cv::Mat& bgr, const DieCorners& die) {
    // LT red, RT green, RB light blue, LB yellow; each mark points into the die.
    static const cv::Scalar kColour[4] = {{0, 0, 255}, {0, 255, 0}, {255, 100, 100}, {0, 255, 255}};
    static const cv::Point2f kInward[4] = {{1, 1}, {-1, 1}, {-1, -1}, {1, -1}};
    for (int c = 0; c < 4; ++c) {
        const cv::Point2f p = die.corner[c];
        if (p.x == -1.f && p.y == -1.f) continue;
        const cv::Point2f d = kInward[c];
        const cv::Point2f base = p + 0.5f * d;
        const cv::Point from(cvRound(base.x), cvRound(base.y));
        const cv::Point along[3] = {{cvRound(base.x + 3 * d.x), cvRound(base.y)},
                                    {cvRound(base.x + 3 * d.x), cvRound(base.y + 3 * d.y)},
                                    {cvRound(base.x), cvRound(base.y + 3 * d.y)}};
        for (const cv::Point& to : along) cv::line(bgr, from, to, kColour[c], 1, cv::LINE_8);
    }
}

}  // namespace pixmill::inspect::die
