#include "inspect/die/DieCornerFramed.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "enhance/OtsuLevel.h"
#include "inspect/die/DieCornerImage.h"
#include "inspect/edge/EdgeImage.h"
#include "inspect/pin/PinImage.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::die {

namespace {

using edge::kLast;
using edge::kMid;
using edge::kRegion;

constexpr FDPoint kNoFDPoint{-1.0, -1.0, -1.0};
constexpr int kMargin = 30;
constexpr int kMaxSteps = 1000;
constexpr int kBehind = 20;
constexpr const wchar_t* kCornerImage = L"C:\\PROBERPARAM\\ParaImg\\FrmadeDieCorner.jpg";

// The slot of the four-point outline holding the corner kind of `cpos`.
// The four points are put in outline order from the top-left point down
// the left side, so the slots hold top-left, bottom-left, bottom-right and
// top-right corners in turn; cpos 0 to 3 look for top-left, top-right,
// bottom-right and bottom-left.
int CornerSlot(int cpos) {
    static const int kSlot[4] = {0, 3, 2, 1};
    return kSlot[cpos & 3];
}

bool KnownCpos(int cpos) {
    return static_cast<unsigned>(cpos) <= 3u;
}

cv::Point WalkStart(int cpos, int w, int h) {
    switch (cpos) {
        case 0: return {kMargin, h - kMargin};
        case 1: return {w - kMargin, h - kMargin};
        case 2: return {w - kMargin, kMargin};
        default: return {kMargin, kMargin};
    }
}

cv::Point WalkStep(int cpos) {
    switch (cpos) {
        case 0: return {1, -1};
        case 1: return {-1, -1};
        case 2: return {-1, 1};
        default: return {1, 1};
    }
}

cv::Point Reference(int cpos) {
    switch (cpos) {
        case 0: return {0, 0};
        case 1: return {kLast, 0};
        case 2: return {kLast, kLast};
        default: return {0, kLast};
    }
}

// A pixel with its coordinates held inside the image: the walk's ahead
// window reaches one pixel past the region on some diagonals (x + m = 480
// for cpos 0 above the middle row), where the side pixel is read instead.
int Clamped(const cv::Mat& a, cv::Point p) {
    return a.at<uint8_t>(std::clamp(p.y, 0, a.rows - 1), std::clamp(p.x, 0, a.cols - 1));
}

std::wstring SeriesFile(const char* path, const char* stem, int index) {
    return platform::FromUtf8(Format("%s%s%d.bmp", path ? path : "", stem, index));
}

// The 480 x 480 regions of files 0 to count - 1; raises `fileError` at the
// first that cannot be read (the ones read so far are simply dropped).
std::vector<cv::Mat> LoadSeries(ImageStore& store, const char* path, const char* stem, int count,
                                const Fail& fileError) {
    std::vector<cv::Mat> regions;
    if (!path) throw fileError;
    for (int i = 0; i < count; ++i) {
        cv::Mat region = edge::CameraRegion(store.Read(SeriesFile(path, stem, i), cv::IMREAD_GRAYSCALE));
        if (region.empty()) throw fileError;
        regions.push_back(std::move(region));
    }
    return regions;
}

// Mean of a column (vertical = false: of a row) segment [from, to).
double SegmentMean(const cv::Mat& sums, int line, int from, int to) {
    return (sums.at<double>(to, line) - sums.at<double>(from, line)) / (to - from);
}

}  // namespace

FramedEdge ScanFramedEdge(const cv::Mat& a, int cpos) {
    FramedEdge best;
    if (a.empty() || !KnownCpos(cpos)) return best;
    const cv::Point step = WalkStep(cpos);
    cv::Point p = WalkStart(cpos, a.cols, a.rows);
    for (int n = 0; n < kMaxSteps; ++n, p += step) {
        if (p.x > a.cols - kMargin || p.x < kMargin) break;
        const int g = Clamped(a, p + step) - Clamped(a, p);
        if (g < 2) continue;
        const int m = p.y < kMid ? p.y : kLast - p.y;
        double behind = 0, ahead = 0;
        for (int k = -kBehind; k <= m; ++k) {
            if (k == 0) continue;
            (k < 0 ? behind : ahead) += Clamped(a, p + step * k);
        }
        const double behindMean = behind != 0 ? behind / kBehind : 0.0;
        const double aheadMean = ahead != 0 && m > 0 ? ahead / m : 0.0;
        const double score = 3.0 * g + aheadMean - behindMean;
        if (score > best.score) {
            best.score = score;
            best.at = p;
        }
    }
    return best;
}

// Least step of a column's 5-line means, in grays, for the column to show
// the die's side.
constexpr double kMinLineStep = 10.0;

FramedLine ScanFramedLine(const cv::Mat& region, int cpos) {
    FramedLine line;
    if (region.empty() || !KnownCpos(cpos)) return line;
    // cpos 0 and 2 seek a horizontal line, scanning columns; 1 and 3 a
    // vertical one, scanning rows: transpose so that the scan runs down
    // the rows in both cases.
    const bool horizontal = cpos == 0 || cpos == 2;
    cv::Mat img = horizontal ? region : region.t();
    // cpos 0 and 3 slide from the top (left) side inward, 1 and 2 from the
    // bottom (right) side: flip so that the dark side is always above.
    const bool fromFar = cpos == 1 || cpos == 2;
    if (fromFar) cv::flip(img, img, 0);
    cv::Mat sums;
    cv::integral(img, sums, CV_64F);  // (rows + 1) x (cols + 1)
    cv::Mat columnSums(img.rows + 1, img.cols, CV_64F);
    for (int r = 0; r <= img.rows; ++r)
        for (int c = 0; c < img.cols; ++c)
            columnSums.at<double>(r, c) = sums.at<double>(r, c + 1) - sums.at<double>(r, c);
    const int margin = 5;
    std::vector<int> positions;
    for (int c = margin; c < img.cols - margin; ++c) {
        double best = 1000.0;
        int at = -1;
        for (int r = margin; r + 10 <= img.rows - 2; ++r) {
            const double diff = SegmentMean(columnSums, c, r, r + 5) - SegmentMean(columnSums, c, r + 5, r + 10);
            if (diff < best) {
                best = diff;
                at = r + 5;
            }
        }
        // A line with no step from dark to bright (a column of border
        // alone, beside a die that does not span the frame) has its least
        // difference in the noise, anywhere: it takes no part.
        if (at >= 0 && best <= -kMinLineStep) positions.push_back(at);
    }
    if (positions.empty()) return line;
    double sum = 0;
    for (int p : positions) sum += p;
    const double mean = sum / static_cast<double>(positions.size());
    double kept = 0;
    int keptCount = 0;
    for (int p : positions)
        if (p <= mean + 20) {
            kept += p;
            ++keptCount;
        }
    int position = keptCount > 0 ? static_cast<int>(kept / keptCount) : static_cast<int>(mean);
    // Strength: the edge image over the 10 lines around the line.
    cv::Mat edges;
    pin::SobelEdgeImage(img, edges);
    const int from = std::max(position - 5, 0), to = std::min(position + 5, img.rows);
    line.strength = from < to ? cv::sum(edges.rowRange(from, to))[0] : 0.0;
    // Back to the region's coordinates; on the far sides the line is the
    // last row (column) of the die.
    line.position = fromFar ? img.rows - 1 - position : position;
    return line;
}

cv::Mat FuseSeries(const std::vector<cv::Mat>& regions, bool extended) {
    if (regions.empty()) return cv::Mat();
    const cv::Size size = regions.front().size();
    cv::Mat acc = cv::Mat::zeros(size, CV_64F);
    for (const cv::Mat& input : regions) {
        if (input.size() != size) break;
        cv::Mat work = input;
        if (extended) {
            cv::Mat peaks;
            PeakRemoval(input, peaks, 0.7);
            HistogramStretch(peaks, work, 99.0);
        }
        cv::Mat edges;
        pin::SobelEdgeImage(work, edges);
        const double t = cv::mean(edges)[0];
        edges.setTo(0, edges < t);
        const cv::Mat flat = edges == 0;
        const double a = cv::countNonZero(flat) ? cv::mean(work, flat)[0] : 0.0;
        const double b = cv::countNonZero(~flat) ? cv::mean(work, ~flat)[0] : 0.0;
        if (b < a) break;
        cv::Mat bright = work > (a + a) / 1.5;
        cv::Mat work64;
        work.convertTo(work64, CV_64F);
        cv::add(acc, work64, acc, bright);
    }
    cv::Mat fused(size, CV_8UC1);
    const double n = static_cast<double>(regions.size());
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            fused.at<uint8_t>(y, x) = static_cast<uint8_t>(std::min(acc.at<double>(y, x) / n, 255.0));
    cv::Mat cleaned;
    LocalContrastFilter(fused, cleaned);
    return cleaned;
}

namespace {

// The lines (rows of `image`) whose projection reaches 0.95 of the mean,
// with notches of fewer than 11 lines between marked lines filled.
std::vector<bool> MarkedLines(const cv::Mat& image, double level) {
    const int n = image.rows, inner = 5;
    std::vector<double> projection(n, 0.0);
    for (int y = inner; y < n - inner; ++y) {
        double sum = 0;
        int count = 0;
        for (int r = y - 2; r <= y + 2; ++r) {
            const uint8_t* row = image.ptr<uint8_t>(r);
            for (int x = 0; x < image.cols; ++x)
                if (row[x] > level) {
                    sum += row[x];
                    ++count;
                }
        }
        projection[y] = count ? sum / count : 0.0;
    }
    double mean = 0;
    for (int y = inner; y < n - inner; ++y) mean += projection[y];
    mean = n - 2 * inner > 0 ? mean / (n - 2 * inner) * 0.95 : 0.0;
    std::vector<bool> marked(n, false);
    for (int y = inner; y < n - inner; ++y) marked[y] = projection[y] >= mean && projection[y] > 0.0;
    int lastMarked = -1;
    for (int y = 0; y < n; ++y) {
        if (!marked[y]) continue;
        if (lastMarked >= 0 && y - lastMarked - 1 > 0 && y - lastMarked - 1 < 11)
            for (int k = lastMarked + 1; k < y; ++k) marked[k] = true;
        lastMarked = y;
    }
    return marked;
}

// Puts the four points of an outline in the order top-left, bottom-left,
// bottom-right, top-right by their places in the object, not by where its
// contour happens to start: a die turned a fraction of a degree one way
// starts its contour at another point than one turned the other way. Left
// as found when the four places do not fall on four distinct points.
void InOutlineOrder(std::array<cv::Point, 4>& p) {
    auto pick = [&](auto key, bool greatest) {
        int best = 0;
        for (int k = 1; k < 4; ++k)
            if (greatest ? key(p[k]) > key(p[best]) : key(p[k]) < key(p[best])) best = k;
        return best;
    };
    const auto sum = [](cv::Point q) { return q.x + q.y; };
    const auto diff = [](cv::Point q) { return q.x - q.y; };
    const int tl = pick(sum, false), br = pick(sum, true), tr = pick(diff, true), bl = pick(diff, false);
    const int mask = (1 << tl) | (1 << br) | (1 << tr) | (1 << bl);
    if (mask != 0xF) return;
    p = {p[tl], p[bl], p[br], p[tr]};
}

double SideAngle(cv::Point a, cv::Point b) {
    return std::atan2(static_cast<double>(b.y - a.y), static_cast<double>(b.x - a.x)) * 180.0 / CV_PI;
}

bool SquareSet(double angle) {
    return (angle >= 170 && angle <= 190) || (angle >= -190 && angle <= -170) || (angle >= -10 && angle <= 10) ||
           (angle >= 80 && angle <= 100) || (angle >= -100 && angle <= -80);
}

}  // namespace

CornerLists FusedCorners(const cv::Mat& fusedIn, bool extended, const char* tag, bool anywhere) {
    CornerLists lists;
    for (auto& l : lists) l.reserve(512);
    if (fusedIn.empty()) return lists;
    cv::Mat fused = fusedIn.clone();
    const int W = fused.cols, H = fused.rows;
    // Clear a 3-pixel border.
    fused.rowRange(0, std::min(3, H)).setTo(0);
    fused.rowRange(std::max(H - 3, 0), H).setTo(0);
    fused.colRange(0, std::min(3, W)).setTo(0);
    fused.colRange(std::max(W - 3, 0), W).setTo(0);
    const double level = pin::GrayMean(fused);
    const std::vector<bool> rows = MarkedLines(fused, level);
    const std::vector<bool> cols = MarkedLines(fused.t(), level);
    cv::Mat kept = cv::Mat::zeros(fused.size(), CV_8UC1);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            if (rows[y] && cols[x]) kept.at<uint8_t>(y, x) = fused.at<uint8_t>(y, x);
    const double keptMean = cv::mean(kept)[0];
    kept.setTo(0, kept < keptMean);

    // Objects that reach the frame's sides, large and not thin.
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(kept.clone(), contours, hierarchy, cv::RETR_TREE, cv::CHAIN_APPROX_SIMPLE);
    for (size_t i = 0; i < contours.size(); ++i) {
        const double area = std::abs(cv::contourArea(contours[i]));
        const cv::RotatedRect box = cv::minAreaRect(contours[i]);
        cv::Point2f corners[4];
        box.points(corners);
        // Box points come out of a rotation in single precision: a point on
        // the fifth line from a side may read 473.99998. A hundredth of a
        // pixel of slack keeps such a point on the line it lies on.
        int nearLimit = 0;
        constexpr float kSlack = 0.01f;
        for (const cv::Point2f& p : corners)
            nearLimit += p.x <= 5 + kSlack || p.y <= 5 + kSlack || p.x >= W - 1 - 5 - kSlack ||
                         p.y >= H - 1 - 5 - kSlack;
        if ((nearLimit < 2 && !anywhere) || area <= 500.0 || box.size.width <= 20.0 || box.size.height <= 20.0)
            cv::drawContours(kept, contours, static_cast<int>(i), cv::Scalar(0), cv::FILLED);
    }
    // Their convex outlines.
    cv::findContours(kept.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    cv::Mat hulls = cv::Mat::zeros(fused.size(), CV_8UC1);
    for (const auto& c : contours) {
        const std::vector<cv::Point> hull = ConvexHullScan(c);
        if (!hull.empty()) cv::polylines(hulls, hull, true, cv::Scalar(255), 1, cv::LINE_8);
    }
    cv::findContours(hulls, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    int accepted = 0;
    for (const auto& c : contours) {
        std::array<cv::Point, 4> p;
        std::array<int, 4> idx;
        if (!ContourFourPoints(c, p, idx)) continue;
        InOutlineOrder(p);
        const cv::RotatedRect box = cv::minAreaRect(c);
        if (cv::norm(p[1] - p[0]) < 20.0 || cv::norm(p[3] - p[2]) < 20.0) continue;
        double angle[4];
        int square = 0;
        for (int k = 0; k < 4; ++k) {
            angle[k] = SideAngle(p[k], p[(k + 1) % 4]);
            square += SquareSet(angle[k]);
        }
        if (extended) {
            if (box.size.width < 50.0 || box.size.height < 50.0) continue;
            VBcvTrace("[%d] Width : %0.2lf, Height : %0.2lf\n", accepted, static_cast<double>(box.size.width),
                      static_cast<double>(box.size.height));
            VBcvTrace("[Theta Info] %0.2lf, %0.2lf, %0.2lf, %0.2lf, Angle over tol = %d\n", angle[0], angle[1],
                      angle[2], angle[3], 4 - square);
            for (const cv::Point& q : p) VBcvTrace("[4 Point] (%.1d, %.1d)\n", q.x, q.y);
            ++accepted;
            const double a2 = std::abs(angle[2]), a3 = std::abs(angle[3]);
            // A rectangle-like outline starting at its top-left point and
            // running down its left side has its third side going up
            // (|angle| about 90) and its fourth going back left (about 180).
            if (!(a2 >= 80 && a2 <= 100) || !(a3 >= 170 && a3 <= 190)) continue;
        }
        if (square == 0) continue;
        for (int k = 0; k < 4; ++k)
            if (p[k].x > 20 && p[k].y > 20 && p[k].x < W - 1 - 20 && p[k].y < H - 1 - 20) lists[k].push_back(p[k]);
    }
    if (extended) {
        VBcvTrace("Convex Object A Num : %d\n", accepted);
        VBcvTrace("Convex Object Num : %d\n", static_cast<int>(contours.size()));
    }
    (void)tag;
    return lists;
}

namespace {

// Refinement of a corner found on the fused image. The fused outline runs
// along the outermost bright pixels that survive the contrast cleaning, so
// its vertices sit a pixel or three off the die's sides, more on blurred
// frames. The sides themselves are measured in the sharpest frame of the
// series: along each side, a short scan across it finds the strongest
// dark-to-bright step (to sub-pixel by a parabola through the three best
// values), a line is fitted through those steps, and the two lines meet at
// the corner. The answer is the centre of the die's corner pixel, as the
// outline gives it. Without enough clean steps on both sides, or with a
// meeting point more than kRefineReach pixels from the outline's corner,
// the outline's corner stands.
constexpr int kRefineReach = 6;
constexpr int kSideFrom = 6, kSideTo = 46;  // distance along a side from the corner
constexpr int kAcross = 10;                 // half length of a scan across a side
constexpr double kMinStep = 4.0;            // grays per pixel, after averaging 3 lines

// A line a + b * t through (t, u) points by least squares, fitted again
// without points more than a pixel off the first fit. False with fewer
// than 8 points left.
bool FitLine(const std::vector<cv::Point2d>& pts, double& a, double& b) {
    auto fit = [&](const std::vector<cv::Point2d>& q) {
        const double n = static_cast<double>(q.size());
        double st = 0, su = 0, stt = 0, stu = 0;
        for (const cv::Point2d& p : q) st += p.x, su += p.y, stt += p.x * p.x, stu += p.x * p.y;
        const double det = n * stt - st * st;
        if (q.size() < 8 || std::abs(det) < 1e-9) return false;
        b = (n * stu - st * su) / det;
        a = (su - b * st) / n;
        return true;
    };
    if (!fit(pts)) return false;
    std::vector<cv::Point2d> close;
    for (const cv::Point2d& p : pts)
        if (std::abs(p.y - (a + b * p.x)) <= 1.0) close.push_back(p);
    return fit(close);
}

// Steps across one side of the die: for each position t along the side
// (columns for a top or bottom side, rows for a left or right side), the
// sub-pixel place u of the strongest change from dark to bright going
// into the die (`inward` +1 or -1 along u).
std::vector<cv::Point2d> SideSteps(const cv::Mat& f, bool alongX, cv::Point corner, int along, int inward) {
    std::vector<cv::Point2d> steps;
    const int tLimit = alongX ? f.cols : f.rows, uLimit = alongX ? f.rows : f.cols;
    const int t0 = alongX ? corner.x : corner.y, u0 = alongX ? corner.y : corner.x;
    auto at = [&](int t, int u) { return f.at<float>(alongX ? u : t, alongX ? t : u); };
    for (int d = kSideFrom; d <= kSideTo; ++d) {
        const int t = t0 + along * d;
        if (t < 1 || t > tLimit - 2) break;
        const int uFrom = std::max(u0 - kAcross, 1), uTo = std::min(u0 + kAcross, uLimit - 2);
        if (uTo - uFrom < 4) break;
        double best = 0;
        int bestU = -1;
        std::vector<double> g(uTo - uFrom + 1, 0.0);
        for (int u = uFrom; u <= uTo; ++u) {
            double step = 0;
            for (int k = -1; k <= 1; ++k) step += at(t + k, u + 1) - at(t + k, u - 1);
            g[u - uFrom] = inward * step / 6.0;
            if (g[u - uFrom] > best) best = g[u - uFrom], bestU = u;
        }
        if (bestU <= uFrom || bestU >= uTo || best < kMinStep) continue;
        const double l = g[bestU - 1 - uFrom], c = g[bestU - uFrom], r = g[bestU + 1 - uFrom];
        const double den = l - 2 * c + r;
        const double shift = den < 0 ? std::clamp(0.5 * (l - r) / den, -0.5, 0.5) : 0.0;
        steps.emplace_back(t, bestU + shift);
    }
    return steps;
}

// The frame of the series sharpest inside `window` (by the spread of its
// Laplacian); null for an empty series or window.
const cv::Mat* SharpestFrame(const std::vector<cv::Mat>& frames, cv::Rect window) {
    const cv::Mat* sharpest = nullptr;
    double sharpness = -1.0;
    for (const cv::Mat& frame : frames) {
        const cv::Rect inside = window & cv::Rect(0, 0, frame.cols, frame.rows);
        if (inside.area() == 0) continue;
        cv::Mat lap;
        cv::Laplacian(frame(inside), lap, CV_32F);
        cv::Scalar mean, dev;
        cv::meanStdDev(lap, mean, dev);
        if (dev[0] > sharpness) sharpness = dev[0], sharpest = &frame;
    }
    return sharpest;
}

// The die of a frame as a solid mask: the frame split at its Otsu level.
// Empty when the two sides differ by less than kMinSplit grays, as in a
// frame of border or die alone, where the split would only cut noise.
constexpr double kMinSplit = 30.0;
cv::Mat SplitMask(const cv::Mat& frame) {
    cv::Mat mask;
    cv::threshold(frame, mask, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    const int bright = cv::countNonZero(mask);
    if (bright == 0 || bright == static_cast<int>(mask.total())) return cv::Mat();
    if (cv::mean(frame, mask)[0] - cv::mean(frame, ~mask)[0] < kMinSplit) return cv::Mat();
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}));
    return mask;
}

cv::Point2d RefineCorner(const std::vector<cv::Mat>& frames, cv::Point corner, int cpos) {
    const cv::Point2d coarse(corner.x, corner.y);
    // The die lies to the right of a left corner and below a top corner.
    const int sx = (cpos == 0 || cpos == 3) ? 1 : -1, sy = cpos < 2 ? 1 : -1;
    const cv::Mat* sharpest =
        SharpestFrame(frames, cv::Rect(corner.x - kSideTo, corner.y - kSideTo, 2 * kSideTo + 1, 2 * kSideTo + 1));
    if (!sharpest) return coarse;
    cv::Mat f;
    sharpest->convertTo(f, CV_32F);
    double a1, b1, a2, b2;
    // Top or bottom side: y = a1 + b1 * x. Left or right side: x = a2 + b2 * y.
    if (!FitLine(SideSteps(f, true, corner, sx, sy), a1, b1)) return coarse;
    if (!FitLine(SideSteps(f, false, corner, sy, sx), a2, b2)) return coarse;
    const double den = 1.0 - b1 * b2;
    if (std::abs(den) < 1e-6) return coarse;
    const double x = (a2 + b2 * a1) / den, y = a1 + b1 * x;
    const cv::Point2d refined(x + 0.5 * sx, y + 0.5 * sy);
    if (!std::isfinite(refined.x) || !std::isfinite(refined.y) || std::abs(refined.x - coarse.x) > kRefineReach ||
        std::abs(refined.y - coarse.y) > kRefineReach)
        return coarse;
    return refined;
}

FDPoint CornerFind(const char* path, int cpos, int count, ImageStore& store, bool extended) noexcept {
    const char* tag = extended ? "VBcvFDCornerFind_Ex" : "VBcvFDCornerFind";
    return RunGuarded(
        kNoFDPoint,
        [&]() -> FDPoint {
            try {
                TraceVersion();
                VBcvTrace("[%s] Start \n", tag);
                if (!KnownCpos(cpos)) throw Fail(0).Line("[%s] Fail : cpos error \n", tag);
                std::vector<cv::Mat> regions =
                    LoadSeries(store, path, "FDC", count, Fail(0).Line("[%s] Fail : File Error \n", tag));
                std::vector<cv::Mat> used;
                if (extended) {
                    // Frames whose Otsu level stands above their threshold
                    // level (the mean gray) less 5 grays: a frame split in
                    // die and border has its Otsu level near its mean; one
                    // dominated by a glare above the die has it far below.
                    for (const cv::Mat& r : regions)
                        if (OtsuLevel(r.data, r.cols, r.rows) > pin::GrayMean(r) - 5.0) used.push_back(r);
                    // A die covering more than half the frame has its Otsu
                    // level below the mean in every frame: then the whole
                    // series is fused, as the plain search does.
                    if (used.empty()) used = regions;
                } else {
                    // Trailing frames equal in mean gray to the one before are
                    // repeats of a stalled camera: the usable count ends at
                    // the last change.
                    int usable = static_cast<int>(regions.size());
                    for (int i = usable - 2; i >= 0; --i)
                        if (pin::GrayMean(regions[i]) != pin::GrayMean(regions[i + 1])) {
                            usable = i + 1;
                            break;
                        }
                    used.assign(regions.begin(), regions.begin() + usable);
                }
                const cv::Mat fused = FuseSeries(used, extended);
                CornerLists lists = FusedCorners(fused, extended, tag);
                // A die without texture fuses to its rim alone, which is open
                // where the die runs out of the frame and outlines no corner.
                // Its sharpest frame, split at its Otsu level, gives the die
                // as a solid shape to outline instead.
                // A whole die inside its border reaches no side of the frame;
                // it is outlined last, from the same solid shape.
                if (lists[CornerSlot(cpos)].empty()) {
                    const cv::Mat* sharpest = SharpestFrame(regions, cv::Rect(0, 0, kRegion, kRegion));
                    const cv::Mat mask = sharpest ? SplitMask(*sharpest) : cv::Mat();
                    if (!mask.empty()) lists = FusedCorners(mask, extended, tag);
                    if (!mask.empty() && lists[CornerSlot(cpos)].empty())
                        lists = FusedCorners(mask, extended, tag, true);
                }
                FDPoint r = kNoFDPoint;
                const cv::Point ref = Reference(cpos);
                double best = 10000.0;
                cv::Point nearest(-1, -1);
                for (const cv::Point& p : lists[CornerSlot(cpos)]) {
                    const double d = cv::norm(p - ref);
                    if (d < best) {
                        best = d;
                        nearest = p;
                    }
                }
                if (nearest.x >= 0) {
                    const cv::Point2d refined = RefineCorner(regions, nearest, cpos);
                    r.X = refined.x;
                    r.Y = refined.y;
                }
                cv::Mat canvas;
                cv::cvtColor(fused.empty() ? cv::Mat::zeros(kRegion, kRegion, CV_8UC1) : fused, canvas,
                             cv::COLOR_GRAY2BGR);
                static const cv::Scalar kColour[4] = {{0, 0, 255}, {0, 255, 0}, {255, 0, 0}, {0, 255, 255}};
                for (int k = 0; k < 4; ++k)
                    for (const cv::Point& p : lists[k]) cv::circle(canvas, p, 3, kColour[k], 1);
                if (r.X != -1.0)
                    cv::circle(canvas, cv::Point(CutToInt(r.X), CutToInt(r.Y)), 10, cv::Scalar(0, 0, 255), 2);
                SaveDebugImage(store, kCornerImage, canvas);
                if (r.X == -1.0 || r.Y == -1.0) throw Fail(0).Line("[%s] Fail : Corner Detect Fail. \n", tag);
                VBcvTrace("[%s] Corner Count(0 : %d, 1 : %d, 2 : %d, 3 : %d)\n", tag, static_cast<int>(lists[0].size()),
                          static_cast<int>(lists[1].size()), static_cast<int>(lists[2].size()),
                          static_cast<int>(lists[3].size()));
                VBcvTrace("[%s] Corner Pos(%0.0lf, %0.0lf)\n", tag, r.X, r.Y);
                VBcvTrace("[%s] End \n", tag);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoFDPoint;
            }
        },
        [tag] {
            VBcvTrace("[%s] Fail : Unexpected Error\n", tag);
            return kNoFDPoint;
        });
}

}  // namespace

namespace {

// The border step on the frames themselves. The averaged walk finds where
// the die begins only when its border runs along the averaged diagonals:
// across a die's corner the diagonal means rise over many steps, and their
// best score lands up to some thirty steps inside the die, in whichever
// frame. So the step is then looked for on the frames: along the same walk,
// the greatest rise from one step to the next, from kRawBack steps before
// the averaged answer to kRawAhead after it (along the whole walk when
// there is none). The frame with the greatest rise is the sharpest at the
// border; the point is the last one before the rise.
constexpr int kRawBack = 40, kRawAhead = 15;
constexpr double kMinRawStep = 6.0;

struct RawStep {
    int frame = -1;
    cv::Point at{-1, -1};
    double rise = 0.0;
};

RawStep FindRawStep(const std::vector<cv::Mat>& regions, int cpos, int fromStep, int toStep) {
    RawStep best;
    const cv::Point step = WalkStep(cpos);
    for (size_t i = 0; i < regions.size(); ++i) {
        const cv::Mat& a = regions[i];
        const cv::Point start = WalkStart(cpos, a.cols, a.rows);
        for (int n = std::max(fromStep, 0); n <= toStep && n < kMaxSteps; ++n) {
            const cv::Point p = start + step * n;
            if (p.x > a.cols - kMargin || p.x < kMargin) break;
            const double rise = Clamped(a, p + step) - Clamped(a, p);
            if (rise > best.rise) best = RawStep{static_cast<int>(i), p, rise};
        }
    }
    return best.rise >= kMinRawStep ? best : RawStep{};
}

}  // namespace

FDPoint FDEdgeFind(const char* path, int cpos, int count, ImageStore& store) noexcept {
    return RunGuarded(
        kNoFDPoint,
        [&]() -> FDPoint {
            try {
                TraceVersion();
                VBcvTrace("[VBcvFDEdgeFind] Start \n");
                const std::vector<cv::Mat> regions = LoadSeries(
                    store, path, "FrameEdge", count, Fail(0).Line("[VBcvFDEdgeFind] Fail : File Error \n"));
                if (!KnownCpos(cpos)) throw Fail(0).Line("[VBcvFDEdgeFind] Fail : cpos(%d) Error \n", cpos);
                FDPoint r = kNoFDPoint;
                double best = 0.0;
                for (size_t i = 0; i < regions.size(); ++i) {
                    cv::Mat averaged;
                    edge::DiagonalAverage(regions[i], averaged, cpos);
                    const FramedEdge e = ScanFramedEdge(averaged, cpos);
                    if (e.score > best) {
                        best = e.score;
                        r = FDPoint{static_cast<double>(e.at.x), static_cast<double>(e.at.y), static_cast<double>(i)};
                    }
                }
                const int averagedStep = r.Value < 0 ? -1 : (static_cast<int>(r.X) - WalkStart(cpos, kRegion, kRegion).x) * WalkStep(cpos).x;
                const RawStep raw = averagedStep < 0 ? FindRawStep(regions, cpos, 0, kMaxSteps)
                                                     : FindRawStep(regions, cpos, averagedStep - kRawBack,
                                                                   averagedStep + kRawAhead);
                if (raw.frame >= 0)
                    r = FDPoint{static_cast<double>(raw.at.x), static_cast<double>(raw.at.y), static_cast<double>(raw.frame)};
                // No frame with a step: nothing chosen.
                if (r.Value < 0) return kNoFDPoint;
                VBcvTrace("[VBcvFDEdgeFind] Image Num : %d, Center Pos(%d), Pixel X : %0.0lf, Pixel Y : %0.0lf\n",
                          static_cast<int>(r.Value), cpos, r.X, r.Y);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoFDPoint;
            }
        },
        [] {
            VBcvTrace("[VBcvFDEdgeFind] Fail : Unexpected Error\n");
            return kNoFDPoint;
        });
}

FDPoint FDThetaFind(const char* path, int cpos, int count, ImageStore& store) noexcept {
    return RunGuarded(
        kNoFDPoint,
        [&]() -> FDPoint {
            try {
                TraceVersion();
                VBcvTrace("[VBcvFDThetaFind] Start \n");
                const std::vector<cv::Mat> regions = LoadSeries(
                    store, path, "FrameTheta", count, Fail(0).Line("[VBcvFDThetaFind] Fail : File Error \n"));
                if (!KnownCpos(cpos)) throw Fail(0).Line("[VBcvFDThetaFind] Fail : cpos(%d) Error \n", cpos);
                FDPoint r = kNoFDPoint;
                double best = 1000.0;
                for (size_t i = 0; i < regions.size(); ++i) {
                    const FramedLine l = ScanFramedLine(regions[i], cpos);
                    if (l.position >= 0 && l.strength > best) {
                        best = l.strength;
                        const bool horizontal = cpos == 0 || cpos == 2;
                        r = FDPoint{horizontal ? 240.0 : l.position, horizontal ? l.position : 240.0,
                                    static_cast<double>(i)};
                    }
                }
                if (r.Value < 0) return kNoFDPoint;
                VBcvTrace("[VBcvFDEdgeFind] Image Num : %d, Pos(%d), Pixel X : %0.0lf, Pixel Y : %0.0lf\n",
                          static_cast<int>(r.Value), cpos, r.X, r.Y);
                VBcvTrace("[VBcvFDThetaFind] End \n");
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoFDPoint;
            }
        },
        [] {
            VBcvTrace("[VBcvFDThetaFind] Fail : Unexpected Error\n");
            return kNoFDPoint;
        });
}

FDPoint FDCornerFind(const char* path, int cpos, int count, ImageStore& store) noexcept {
    return CornerFind(path, cpos, count, store, false);
}

FDPoint FDCornerFindEx(const char* path, int cpos, int count, ImageStore& store) noexcept {
    return CornerFind(path, cpos, count, store, true);
}

}  // namespace pixmill::inspect::die
