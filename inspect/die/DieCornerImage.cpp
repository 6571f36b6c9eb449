#include "inspect/die/DieCornerImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <cstdarg>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "platform/Platform.h"

namespace pixmill::inspect::die {

namespace {

double Distance(cv::Point a, cv::Point b) {
    return std::hypot(static_cast<double>(a.x - b.x), static_cast<double>(a.y - b.y));
}

double TriangleArea(cv::Point a, cv::Point b, cv::Point c) {
    const double cross = static_cast<double>(b.x - a.x) * (c.y - a.y) -
                         static_cast<double>(b.y - a.y) * (c.x - a.x);
    return std::abs(cross) * 0.5;
}

int64_t Cross(cv::Point o, cv::Point a, cv::Point b) {
    return static_cast<int64_t>(a.x - o.x) * (b.y - o.y) - static_cast<int64_t>(a.y - o.y) * (b.x - o.x);
}

int64_t Norm2(cv::Point a, cv::Point b) {
    const int64_t dx = a.x - b.x, dy = a.y - b.y;
    return dx * dx + dy * dy;
}

}  // namespace

bool ContourFourPoints(const std::vector<cv::Point>& c, std::array<cv::Point, 4>& points,
                       std::array<int, 4>& indices) {
    const int n = static_cast<int>(c.size());
    if (n < 4) return false;
    auto farthest = [&](auto measure) {
        int best = 0;
        double bestValue = -1.0;
        for (int i = 0; i < n; ++i) {
            const double v = measure(c[i]);
            if (v > bestValue) {
                bestValue = v;
                best = i;
            }
        }
        return best;
    };
    const int i0 = farthest([&](cv::Point p) { return Distance(p, c[0]); });
    const int i1 = farthest([&](cv::Point p) { return Distance(p, c[i0]); });
    const int i2 = farthest([&](cv::Point p) { return Distance(p, c[i0]) + Distance(p, c[i1]); });
    const int i3 = farthest([&](cv::Point p) {
        return TriangleArea(p, c[i0], c[i1]) + TriangleArea(p, c[i1], c[i2]) + TriangleArea(p, c[i0], c[i2]);
    });
    indices = {i0, i1, i2, i3};
    std::sort(indices.begin(), indices.end());
    for (int k = 0; k < 4; ++k) points[k] = c[indices[k]];
    return true;
}

std::vector<cv::Point> ConvexHullScan(const std::vector<cv::Point>& input) {
    std::vector<cv::Point> pts(input);
    std::sort(pts.begin(), pts.end(), [](cv::Point a, cv::Point b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
    pts.erase(std::unique(pts.begin(), pts.end()), pts.end());
    if (pts.size() < 3) return pts;
    const cv::Point pivot = pts.front();
    // By angle around the pivot (all lie at or below its row), nearer first
    // on equal angles.
    std::sort(pts.begin() + 1, pts.end(), [&](cv::Point a, cv::Point b) {
        const int64_t cr = Cross(pivot, a, b);
        if (cr != 0) return cr > 0;
        return Norm2(pivot, a) < Norm2(pivot, b);
    });
    std::vector<cv::Point> hull;
    hull.reserve(pts.size());
    for (const cv::Point& p : pts) {
        while (hull.size() >= 2 && Cross(hull[hull.size() - 2], hull.back(), p) <= 0) hull.pop_back();
        hull.push_back(p);
    }
    return hull;
}

void LocalContrastFilter(const cv::Mat& src, cv::Mat& dst) {
    CV_Assert(src.type() == CV_8UC1);
    dst = src.clone();
    for (int y = 2; y < src.rows - 2; ++y) {
        for (int x = 2; x < src.cols - 2; ++x) {
            int lo = 255, hi = 0;
            for (int dy = -2; dy <= 0; ++dy) {
                const uint8_t* row = src.ptr<uint8_t>(y + dy);
                for (int dx = -2; dx <= 0; ++dx) {
                    lo = std::min<int>(lo, row[x + dx]);
                    hi = std::max<int>(hi, row[x + dx]);
                }
            }
            if (hi - lo < 5) dst(cv::Rect(x - 2, y - 2, 3, 3)).setTo(0);
        }
    }
}

void PeakRemoval(const cv::Mat& src, cv::Mat& dst, double ratio) {
    CV_Assert(src.type() == CV_8UC1);
    dst = src.clone();
    const double total = static_cast<double>(dst.total());
    if (total <= 0) return;
    bool handled[256] = {};
    for (int round = 0; round < 255; ++round) {
        int64_t hist[256] = {};
        for (int y = 0; y < dst.rows; ++y) {
            const uint8_t* row = dst.ptr<uint8_t>(y);
            for (int x = 0; x < dst.cols; ++x) ++hist[row[x]];
        }
        int peak = -1;
        for (int g = 1; g < 256; ++g)
            if (!handled[g] && (peak < 0 || hist[g] > hist[peak])) peak = g;
        if (peak < 0) return;
        handled[peak] = true;
        const int lo = std::max(peak - 15, 1), hi = std::min(peak + 14, 255);
        int64_t sum = 0;
        for (int g = lo; g <= hi; ++g) sum += hist[g];
        if (!(static_cast<double>(sum) / total > ratio)) return;
        cv::Mat band;
        cv::inRange(dst, cv::Scalar(lo), cv::Scalar(hi), band);
        dst.setTo(0, band);
    }
}

void HistogramStretch(const cv::Mat& src, cv::Mat& dst, double percent) {
    CV_Assert(src.type() == CV_8UC1);
    const int cols = std::min(src.cols, 481);
    int64_t hist[256] = {};
    for (int y = 0; y < src.rows; ++y) {
        const uint8_t* row = src.ptr<uint8_t>(y);
        for (int x = 0; x < cols; ++x) ++hist[row[x]];
    }
    const double total = static_cast<double>(cols) * src.rows;
    int level = 255;
    int64_t running = 0;
    for (int g = 0; g < 256 && total > 0; ++g) {
        running += hist[g];
        if (running * 100.0 / total >= percent) {
            level = g;
            break;
        }
    }
    uint8_t lut[256];
    for (int g = 0; g < 256; ++g) {
        if (level == 0) lut[g] = g == 0 ? 0 : 255;
        else lut[g] = g <= level ? static_cast<uint8_t>(255 * g / level) : 255;
    }
    cv::LUT(src, cv::Mat(1, 256, CV_8U, lut), dst);
}

bool Intersect(const Segment& s, const Segment& t, cv::Point2d& at) {
    if (!s.valid || !t.valid) return false;
    const double x1 = s.a.x, y1 = s.a.y, x2 = s.b.x, y2 = s.b.y;
    const double x3 = t.a.x, y3 = t.a.y, x4 = t.b.x, y4 = t.b.y;
    const double d = (x1 - x2) * (y3 - y4) - (y1 - y2) * (x3 - x4);
    if (d == 0.0 || !std::isfinite(d)) return false;
    const double p = x1 * y2 - y1 * x2, q = x3 * y4 - y3 * x4;
    at.x = (p * (x3 - x4) - (x1 - x2) * q) / d;
    at.y = (p * (y3 - y4) - (y1 - y2) * q) / d;
    return std::isfinite(at.x) && std::isfinite(at.y);
}

Segment FitSide(const std::vector<cv::Point2f>& points, cv::Size canvasSize, int houghThreshold,
                bool vertical, double from, double to) {
    Segment side;
    if (points.empty() || canvasSize.width <= 0 || canvasSize.height <= 0) return side;
    // The canvas covers the points only (plus the circles' reach), so a side
    // of a small die on a large frame costs what the die costs.
    cv::Rect box = cv::boundingRect(points);
    box.x -= 2;
    box.y -= 2;
    box.width += 5;
    box.height += 5;
    box &= cv::Rect(0, 0, canvasSize.width, canvasSize.height);
    std::vector<cv::Point2f> fit;
    if (!box.empty()) {
        cv::Mat canvas = cv::Mat::zeros(box.size(), CV_8UC1);
        for (const cv::Point2f& p : points)
            cv::circle(canvas, cv::Point(cvRound(p.x) - box.x, cvRound(p.y) - box.y), 1, cv::Scalar(255),
                       cv::FILLED);
        std::vector<cv::Vec2f> lines;
        cv::HoughLines(canvas, lines, 1.0, 0.034906585, std::max(houghThreshold, 1), 0, 0, 0, CV_PI);
        if (!lines.empty()) {
            const double rho = lines[0][0], theta = lines[0][1];
            const double c = std::cos(theta), s = std::sin(theta);
            for (const cv::Point2f& p : points)
                if (std::abs((p.x - box.x) * c + (p.y - box.y) * s - rho) <= 5.0) fit.push_back(p);
        } else {
            fit = points;
        }
    }
    if (fit.size() < 4) return side;
    cv::Vec4f l;
    cv::fitLine(fit, l, cv::DIST_L2, 0, 0.01, 0.01);
    const double vx = l[0], vy = l[1], x0 = l[2], y0 = l[3];
    if (vertical) {
        if (std::abs(vy) < 1e-9) return side;
        side.a = {x0 + (from - y0) * vx / vy, from};
        side.b = {x0 + (to - y0) * vx / vy, to};
    } else {
        if (std::abs(vx) < 1e-9) return side;
        side.a = {from, y0 + (from - x0) * vy / vx};
        side.b = {to, y0 + (to - x0) * vy / vx};
    }
    side.valid = true;
    return side;
}

}  // namespace pixmill::inspect::die

namespace pixmill::inspect::die {

cv::Mat DieGray(const cv::Mat& image, const char* filter) {
    if (image.empty()) return cv::Mat();
    if (image.type() == CV_8UC1) return image;
    cv::Mat gray;
    if (image.type() == CV_8UC3) cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
    else if (image.type() == CV_8UC4) cv::cvtColor(image, gray, cv::COLOR_BGRA2GRAY);
    else throw std::invalid_argument(std::string(filter) + " needs 8-bit gray or colour images");
    return gray;
}

cv::Mat DieCanvas(const cv::Mat& gray) {
    cv::Mat bgr;
    if (!gray.empty()) cv::cvtColor(gray, bgr, cv::COLOR_GRAY2BGR);
    return bgr;
}

void AppendWide(std::wstring& text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring piece;
    const bool ok = platform::FormatWide(format, args, piece);
    va_end(args);
    if (ok) text += piece;
}

}  // namespace pixmill::inspect::die
