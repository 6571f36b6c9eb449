#include "inspect/edge/EdgeFind.h"

#include <algorithm>
#include <atomic>
#include <opencv2/imgcodecs.hpp>

#include "inspect/edge/EdgeImage.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::edge {

namespace {

// Where the walks keep away from the region's sides.
constexpr int kMargin = 30;
constexpr int kMaxSteps = 1000;
constexpr double kFindStart = -8000.0;
constexpr double kFindEXStart = -10000.0;

// The score of the last VBcvEdgeFind; written and taken whole, so calls
// from two threads never leave a torn value.
std::atomic<double> g_edgeFindScore{0.0};

constexpr EdgePoint kNoPoint{-1.0, -1.0};
constexpr EdgePointPair kNoPair{-1.0, -1.0, -1.0, -1.0, -1.0, -1.0};

bool Inside(cv::Point p) {
    return p.x >= 0 && p.x <= kLast && p.y >= 0 && p.y <= kLast;
}

// A pixel of the averaged region with its coordinates held at the region's
// sides: the walk of VBcvEdgeFind starts 30 pixels from a side, so its
// behind window and its last step reach one pixel past the region, where
// the side pixel is read instead.
int Clamped(const cv::Mat& a, cv::Point p) {
    return a.at<uint8_t>(std::clamp(p.y, 0, kLast), std::clamp(p.x, 0, kLast));
}

int At(const cv::Mat& a, cv::Point p) {
    return a.at<uint8_t>(p.y, p.x);
}

// Distance to the nearer top or bottom side: how far the walk may look ahead.
int AheadLength(int y) {
    return y < kMid ? y : kLast - y;
}

bool InBand(int x, int size) {
    const int half = size / 2;
    return x > kMid - half && x < kMid + size - half;
}

// Reads the frame and cuts its region; raises the given file error.
cv::Mat AveragedRegion(ImageStore& store, const char* path, int cpos, const Fail& fileError) {
    const std::wstring file = CallerPath(path);
    cv::Mat region = file.empty() ? cv::Mat() : CameraRegion(store.Read(file, cv::IMREAD_GRAYSCALE));
    if (region.empty()) throw fileError;
    cv::Mat averaged;
    DiagonalAverage(region, averaged, cpos);
    return averaged;
}

}  // namespace

std::wstring CallerPath(const char* path) {
    return path ? platform::FromUtf8(path) : std::wstring();
}

EdgePoint ScanInner(const cv::Mat& a, int cpos, int size, double* bestScore) {
    const cv::Point step = InnerStep(cpos);
    const bool down = step.x < 0;
    cv::Point p(down ? kRegion - kMargin : kMargin,
                (cpos == kTopRight || cpos == kTopLeft) ? kMargin : kRegion - kMargin);
    EdgePoint best = kNoPoint;
    double bestValue = kFindStart;
    for (int n = 0; n < kMaxSteps; ++n, p += step) {
        if (down ? p.x < kMargin : p.x > kRegion - kMargin) break;
        if (!InBand(p.x, size)) continue;
        const int g = Clamped(a, p + step) - Clamped(a, p);
        if (g < 2) continue;
        const int m = AheadLength(p.y);
        double behind = 0, ahead = 0;
        for (int k = -kMargin; k <= m; ++k) {
            if (k == 0) continue;
            (k < 0 ? behind : ahead) += Clamped(a, p + step * k);
        }
        const double behindMean = behind != 0 ? behind / kMargin : 0.0;
        const double aheadMean = ahead != 0 && m > 0 ? ahead / m : 0.0;
        const double score = aheadMean - behindMean;
        if (score > bestValue) {
            bestValue = score;
            best = EdgePoint{static_cast<double>(p.x), static_cast<double>(p.y)};
        }
    }
    if (bestScore) *bestScore = bestValue;
    return best;
}

EdgePoint EdgeFind(const char* path, int cpos, int sx, int sy, ImageStore& store) noexcept {
    return RunGuarded(
        kNoPoint,
        [&]() -> EdgePoint {
            try {
                TraceVersion();
                VBcvTrace("[VBcvEdgeFind] Start \n");
                const cv::Mat a =
                    AveragedRegion(store, path, cpos, Fail(0).Line("[VBcvEdgeFind] Fail : File Error \n"));
                if (!KnownQuadrant(cpos)) throw Fail(0).Line("[VBcvEdgeFind] Fail : cpos error \n");
                const int size = std::max(sx, sy);
                if (size < 30 || size > kRegion) throw Fail(0).Line("[VBcvEdgeFind] Fail : size error \n");
                double best = kFindStart;
                const EdgePoint point = ScanInner(a, cpos, size, &best);
                g_edgeFindScore.store(best);
                if (!(point.X > 0.0) || !(point.Y > 0.0))
                    throw Fail(0).Line("[VBcvEdgeFind] Fail : Line detect fail\n");
                VBcvTrace("[VBcvEdgeFind] Pos(%d). Pixel X : %0.0lf, Pixel Y : %0.0lf, Score : %0.02lf\n",
                          cpos, point.X, point.Y, best);
                VBcvTrace("[VBcvEdgeFind] End \n");
                return point;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoPoint;
            }
        },
        [] {
            VBcvTrace("[VBcvEdgeFind] Fail : Unexpected Error\n");
            return kNoPoint;
        });
}

namespace {

// One walk of VBcvEdgeFindEX. Returns false when an index or division check
// stopped the call; `out` then holds what was found so far.
bool ScanEX(const cv::Mat& a, cv::Point p, cv::Point step, bool outer, int size, double& x,
            double& y, double& score) {
    const int behindLength = outer ? 20 : kMargin;
    for (int n = 0; n < kMaxSteps; ++n, p += step) {
        if (outer) {
            if (step.x > 0 ? p.x > kRegion - kMargin : p.x < kMargin) break;
        } else if (step.x < 0 ? p.x < kMargin : p.x > kRegion - kMargin - 1) {
            break;
        }
        if (!InBand(p.x, size)) continue;
        const cv::Point next = p + step;
        if (!Inside(p) || !Inside(next)) {
            VBcvTrace("[%s] Fail : Index Error(I2J2) : %d, %d, %d, %d\n", "VBcvEdgeFindEX", p.x, p.y,
                      next.x, next.y);
            return false;
        }
        const int g = At(a, next) - At(a, p);
        if (g < 2) continue;
        const int m = AheadLength(p.y);
        double behind = 0, ahead = 0;
        for (int k = -behindLength; k <= m; ++k) {
            if (k == 0) continue;
            const cv::Point s = p + step * k;
            if (!Inside(s)) {
                VBcvTrace("[%s] Fail : Index Error(I1J1) : %d, %d\n", "VBcvEdgeFindEX", s.x, s.y);
                return false;
            }
            (k < 0 ? behind : ahead) += At(a, s);
        }
        if (ahead != 0 && m == 0) {
            VBcvTrace("[VBcvEdgeFindEX] Fail : Division by zero Error\n");
            return false;
        }
        const double behindMean = behind != 0 ? behind / behindLength : 0.0;
        const double aheadMean = ahead != 0 ? ahead / m : 0.0;
        const double value = aheadMean - behindMean + (outer ? 3.0 * g : 0.0);
        if (value > score) {
            score = value;
            x = p.x;
            y = p.y;
        }
    }
    return true;
}

}  // namespace

EdgePointPair EdgeFindEX(const char* path, int cpos, int sx, int sy, ImageStore& store) noexcept {
    return RunGuarded(
        kNoPair,
        [&]() -> EdgePointPair {
            try {
                TraceVersion();
                VBcvTrace("[VBcvEdgeFindEX] Start \n");
                VBcvTrace("[VBcvEdgeFindEX] Input : cpos : %d, sx : %d, sy : %d\n", cpos, sx, sy);
                const cv::Mat a =
                    AveragedRegion(store, path, cpos, Fail(0).Line("[VBcvEdgeFindEX] Fail : File Error \n"));
                if (!KnownQuadrant(cpos)) throw Fail(0).Line("[VBcvEdgeFindEX] Fail : cpos error \n");
                const int size = std::max(sx, sy);
                // The size error bears the tag of VBcvEdgeFind, as the prober's
                // log readers expect.
                if (size < 30 || size > kRegion) throw Fail(0).Line("[VBcvEdgeFind] Fail : size error \n");

                EdgePointPair r = kNoPair;
                r.InnerScore = kFindEXStart;
                const cv::Point step = InnerStep(cpos);
                const cv::Point start(step.x < 0 ? kRegion - kMargin - 1 : kMargin,
                                      step.y > 0 ? kMargin : kRegion - kMargin - 1);
                if (!ScanEX(a, start, step, false, size, r.InnerX, r.InnerY, r.InnerScore)) return r;
                if (!(r.InnerX > 0.0) || !(r.InnerY > 0.0))
                    throw Fail(0).Line("[VBcvEdgeFindEX] Fail : Line detect fail\n");
                r.OuterScore = kFindEXStart;
                const cv::Point inner(static_cast<int>(r.InnerX), static_cast<int>(r.InnerY));
                if (!ScanEX(a, inner, -step, true, size, r.OuterX, r.OuterY, r.OuterScore)) return r;
                VBcvTrace("[VBcvEdgeFindEX] Inner Pos(%d), Pixel X : %0.0lf, Pixel Y : %0.0lf, Score : %0.02lf\n",
                          cpos, r.InnerX, r.InnerY, r.InnerScore);
                VBcvTrace("[VBcvEdgeFindEX] Outer Pos(%d), Pixel X : %0.0lf, Pixel Y : %0.0lf, Score : %0.02lf\n",
                          cpos, r.OuterX, r.OuterY, r.OuterScore);
                VBcvTrace("[VBcvEdgeFindEX] End \n");
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoPair;
            }
        },
        [] {
            VBcvTrace("[VBcvEdgeFindEX] Fail : Unexpected Error\n");
            return kNoPair;
        });
}

double TakeEdgeFindScore() noexcept {
    return g_edgeFindScore.exchange(0.0);
}

}  // namespace pixmill::inspect::edge
