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
// An outline starts at its top-left point and runs down its left side
// first, so the slots hold top-left, bottom-left, bottom-right and
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
        if (at >= 0) positions.push_back(at);
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

double SideAngle(cv::Point a, cv::Point b) {
    return std::atan2(static_cast<double>(b.y - a.y), static_cast<double>(b.x - a.x)) * 180.0 / CV_PI;
}

bool SquareSet(double angle) {
    return (angle >= 170 && angle <= 190) || (angle >= -190 && angle <= -170) || (angle >= -10 && angle <= 10) ||
           (angle >= 80 && angle <= 100) || (angle >= -100 && angle <= -80);
}

}  // namespace

CornerLists FusedCorners(const cv::Mat& fusedIn, bool extended, const char* tag) {
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
        int nearLimit = 0;
        for (const cv::Point2f& p : corners)
            nearLimit += p.x <= 5 || p.y <= 5 || p.x >= W - 1 - 5 || p.y >= H - 1 - 5;
        if (nearLimit < 2 || area <= 500.0 || box.size.width <= 20.0 || box.size.height <= 20.0)
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
                const CornerLists lists = FusedCorners(fused, extended, tag);
                FDPoint r = kNoFDPoint;
                const cv::Point ref = Reference(cpos);
                double best = 10000.0;
                for (const cv::Point& p : lists[CornerSlot(cpos)]) {
                    const double d = cv::norm(p - ref);
                    if (d < best) {
                        best = d;
                        r.X = p.x;
                        r.Y = p.y;
                    }
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
                // No frame with a step scoring above 0: nothing chosen.
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
