#include "inspect/edge/EdgeFindFEX.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "inspect/edge/EdgeFind.h"
#include "inspect/edge/EdgeImage.h"
#include "logging/Trace.h"
#include "platform/Platform.h"
#include "platform/Profile.h"

namespace pixmill::inspect::edge {

const wchar_t* const kEdgeIni = L"C:\\PROBERFILES\\Parameter\\Temporary.ini";
const wchar_t* const kEdgeIniSection = L"EdgeProfile";
const wchar_t* const kEdgeDebugFolder = L"C:\\PROBERPARAM\\ParaImg\\";
const wchar_t* const kEdgeFailureFolder = L"D:\\proberfiles\\WaferEdgeFail_images\\";

namespace {

constexpr int kMargin = 30;      // diagonal steps kept from each end
constexpr int kAhead = 20;       // averaged pixels of the onward mean
constexpr int kPeakHalf = 5;     // a peak is the greatest of the 11 steps around it
constexpr int kSignSide = 10;    // frame pixels on each side that decide the sign
constexpr double kSpanLimit = 560.0;  // diagonal steps between opposite positions
constexpr double kSpanAgreement = 50.0;
constexpr int kCanvasWidth = 2 * 640 + 450, kCanvasHeight = 2 * kRegion;
constexpr int kLowestY = 31, kHighestY = 449;

const cv::Scalar kCandidateColour(0, 255, 255);
const cv::Scalar kCombinationColour(0, 255, 0);

const FEXCounts kFailedCounts{-1, -1, -1, -1, -1};

// Where each frame stands on the canvas: as it lies on the wafer.
cv::Point CanvasOrigin(int cpos) {
    return {(cpos == kTopRight || cpos == kBottomRight) ? kRegion : 0,
            (cpos == kTopRight || cpos == kTopLeft) ? 0 : kRegion};
}

struct Tables {
    std::array<std::vector<cv::Point>, 4> candidates;
    std::vector<std::array<cv::Point, 4>> combinations;
};

std::mutex g_tablesMutex;
std::unique_ptr<Tables> g_tables;  // null before a process call and after release

void Install(std::unique_ptr<Tables> tables) {
    std::unique_ptr<Tables> old;
    {
        std::lock_guard<std::mutex> lock(g_tablesMutex);
        old = std::move(g_tables);
        g_tables = std::move(tables);
    }
}

std::vector<FEXCandidate> Candidates(const cv::Mat& gray, const cv::Mat& averaged, int cpos,
                                     int threshold) {
    const std::vector<double> a = DiagonalProfile(averaged, cpos);
    const std::vector<double> f = DiagonalProfile(gray, cpos);
    std::vector<double> rise(kRegion, 0.0);
    const int first = kMargin, last = kLast - kMargin;
    for (int t = first; t <= last; ++t) {
        double sum = 0;
        for (int k = 1; k <= kAhead; ++k) sum += a[t + k];
        rise[t] = sum / kAhead - a[t];
    }
    std::vector<FEXCandidate> found;
    for (int t = first + 1; t < last; ++t) {
        const double v = std::abs(rise[t]);
        if (!(v > threshold)) continue;
        if (!(std::abs(rise[t - 1]) > 0.8 * threshold) || !(std::abs(rise[t + 1]) > 0.8 * threshold))
            continue;
        // The first greatest of the steps around it, so a flat top yields one.
        bool peak = true;
        for (int u = std::max(first, t - kPeakHalf); u <= std::min(last, t + kPeakHalf) && peak; ++u)
            peak = u < t ? std::abs(rise[u]) < v : std::abs(rise[u]) <= v;
        if (!peak) continue;
        double behind = 0, ahead = 0;
        for (int k = 1; k <= kSignSide; ++k) {
            behind += f[t - k];
            ahead += f[t + k];
        }
        found.push_back({DiagonalPoint(cpos, t), v, ahead >= behind ? 1 : -1});
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const FEXCandidate& l, const FEXCandidate& r) { return l.strength > r.strength; });
    return found;
}

// Opposite positions on the canvas, in diagonal steps.
double DiagonalSpan(cv::Point a, int ca, cv::Point b, int cb) {
    const cv::Point d = (a + CanvasOrigin(ca)) - (b + CanvasOrigin(cb));
    return std::max(std::abs(d.x), std::abs(d.y));
}

void DrawPoint(cv::Mat& canvas, cv::Point p, int cpos, const cv::Scalar& colour) {
    const cv::Point q = p + CanvasOrigin(cpos);
    cv::circle(canvas, q, 4, colour, 1, cv::LINE_8);
    cv::putText(canvas, Format("(%d, %d)", p.x, p.y), q + cv::Point(6, -6), cv::FONT_HERSHEY_PLAIN, 1.0,
                colour, 1, cv::LINE_8);
}

}  // namespace

bool ReadFEXFrames(ImageStore& store, const char* path, FEXFrames& frames) {
    if (!path) return false;
    for (int i = 0; i < 4; ++i) {
        const std::wstring file = CallerPath(path) + platform::FromUtf8(Format("%d.bmp", i));
        frames.gray[i] = SquareRegion(store.Read(file, cv::IMREAD_GRAYSCALE));
        frames.colour[i] = SquareRegion(store.Read(file, cv::IMREAD_COLOR));
        if (frames.gray[i].empty() || frames.colour[i].empty()) return false;
    }
    return true;
}

FEXOutcome ComputeFEX(const FEXFrames& frames, int grayThreshold, int quadPercent, bool thinChuck) {
    FEXOutcome out;
    out.canvas = cv::Mat(kCanvasHeight, kCanvasWidth, CV_8UC3, cv::Scalar::all(0));
    if (thinChuck) out.canvas2 = out.canvas.clone();
    std::array<cv::Mat, 4> averaged;
    for (int i = 0; i < 4; ++i) {
        const cv::Rect at(CanvasOrigin(i), cv::Size(kRegion, kRegion));
        frames.colour[i].copyTo(out.canvas(at));
        DiagonalAverage(frames.gray[i], averaged[i], i);
        if (thinChuck) cv::cvtColor(averaged[i], out.canvas2(at), cv::COLOR_GRAY2BGR);
        out.candidates[i] = Candidates(frames.gray[i], averaged[i], i, grayThreshold);
    }

    const auto& c = out.candidates;
    const double ratioLimit = quadPercent / 100.0;
    for (const FEXCandidate& p0 : c[0])
        for (const FEXCandidate& p1 : c[1])
            for (const FEXCandidate& p2 : c[2])
                for (const FEXCandidate& p3 : c[3]) {
                    if (out.combinations.size() >= kMaxCombinations) break;
                    const std::array<const FEXCandidate*, 4> q{&p0, &p1, &p2, &p3};
                    if (!(p0.sign == p1.sign && p1.sign == p2.sign && p2.sign == p3.sign)) continue;
                    double low = p0.strength, high = p0.strength;
                    for (const FEXCandidate* e : q) {
                        low = std::min(low, e->strength);
                        high = std::max(high, e->strength);
                    }
                    if (!(high > 0.0) || low / high <= ratioLimit) continue;
                    const double d1 = std::abs((p0.point.x - p2.point.x) + kRegion);
                    const double d2 = std::abs((p3.point.x - p1.point.x) - kRegion);
                    if (std::abs(d1 - d2) >= kSpanAgreement) continue;
                    if (DiagonalSpan(p0.point, 0, p2.point, 2) > kSpanLimit ||
                        DiagonalSpan(p1.point, 1, p3.point, 3) > kSpanLimit)
                        continue;
                    bool normal = true;
                    for (const FEXCandidate* e : q) normal = normal && e->point.y >= kLowestY && e->point.y <= kHighestY;
                    if (!normal) {
                        ++out.abnormal;
                        continue;
                    }
                    out.combinations.push_back({p0.point, p1.point, p2.point, p3.point});
                }

    if (!out.combinations.empty()) {
        for (cv::Mat* canvas : {&out.canvas, &out.canvas2}) {
            if (canvas->empty()) continue;
            for (int i = 0; i < 4; ++i)
                for (const FEXCandidate& e : c[i]) DrawPoint(*canvas, e.point, i, kCandidateColour);
            for (int i = 0; i < 4; ++i) DrawPoint(*canvas, out.combinations.front()[i], i, kCombinationColour);
        }
    }
    return out;
}

FEXCounts EdgeFindFEXProcess(const char* path, int sx, int sy, bool thinChuck, ImageStore& store) noexcept {
    return RunGuarded(
        kFailedCounts,
        [&]() -> FEXCounts {
            TraceVersion();
            VBcvTrace("[VBcvEdgeFindFEX_Process] Start \n");
            VBcvTrace("[VBcvEdgeFindFEX_Process] Search area(%d, %d) \n", sx, sy);
            int grayThreshold = 20, quadPercent = 40;
            if (!thinChuck) {
                grayThreshold = platform::ProfileInt(kEdgeIni, kEdgeIniSection, L"EdgeDetectGrayLevelThreshold", 20);
                quadPercent = platform::ProfileInt(kEdgeIni, kEdgeIniSection, L"EdgeGreyLevelQuadDiffThreshold", 40);
                platform::WriteProfileString(kEdgeIni, kEdgeIniSection, L"EdgeDetectGrayLevelThreshold",
                                             platform::FromUtf8(Format("%f", static_cast<double>(grayThreshold))));
                platform::WriteProfileString(kEdgeIni, kEdgeIniSection, L"EdgeGreyLevelQuadDiffThreshold",
                                             platform::FromUtf8(Format("%f", static_cast<double>(quadPercent))));
            }
            if (sx > kRegion || sy > kRegion) {
                VBcvTrace("[VBcvEdgeFindFEX_Process] Fail : Size Error \n");
                return FEXCounts{0, 0, 0, 0, -1};
            }
            FEXFrames frames;
            if (!ReadFEXFrames(store, path, frames)) {
                Install(nullptr);
                VBcvTrace("[VBcvEdgeFindFEX_Process] Fail : File Error \n");
                return kFailedCounts;
            }
            FEXOutcome out = ComputeFEX(frames, grayThreshold, quadPercent, thinChuck);
            const std::wstring folder = kEdgeDebugFolder;
            SaveDebugImage(store, folder + L"WaferSync.jpg", out.canvas);
            if (thinChuck) SaveDebugImage(store, folder + L"WaferSync2.jpg", out.canvas2);
            for (int i = 0; i < out.abnormal; ++i) VBcvTrace("[VBcvEdgeFindFEX_Process] Abnormal status\n");

            auto tables = std::make_unique<Tables>();
            for (int i = 0; i < 4; ++i)
                for (const FEXCandidate& e : out.candidates[i]) tables->candidates[i].push_back(e.point);
            tables->combinations = out.combinations;
            const FEXCounts counts{static_cast<int>(out.candidates[0].size()),
                                   static_cast<int>(out.candidates[1].size()),
                                   static_cast<int>(out.candidates[2].size()),
                                   static_cast<int>(out.candidates[3].size()),
                                   static_cast<int>(out.combinations.size())};
            Install(std::move(tables));

            if (counts.Combinations > 0) {
                SaveDebugImage(store, folder + L"WaferEdge.jpg", out.canvas);
                if (thinChuck) SaveDebugImage(store, folder + L"WaferEdge2.jpg", out.canvas2);
            } else {
                SaveFailureImage(store, kEdgeFailureFolder, 'P', out.canvas);
                if (thinChuck)
                    VBcvTrace("[VBcvEdgeFindFEX_Process] Position Count(%d, %d, %d)\n", counts.Count0,
                              counts.Count1, counts.Count2);
                else
                    VBcvTrace("[VBcvEdgeFindFEX_Process] Position Count(%d, %d, %d, %d)\n", counts.Count0,
                              counts.Count1, counts.Count2, counts.Count3);
                VBcvTrace("[VBcvEdgeFindFEX_Process] Fail : Combination is not exist.\n");
                return counts;
            }
            VBcvTrace("[VBcvEdgeFindFEX_Process] Position Count(%d, %d, %d, %d), Combination Count(%d)\n",
                      counts.Count0, counts.Count1, counts.Count2, counts.Count3, counts.Combinations);
            VBcvTrace("[VBcvEdgeFindFEX_Process] End \n");
            return counts;
        },
        [] {
            VBcvTrace("[VBcvEdgeFindFEX_Process] Fail : Unexpected Error\n");
            return kFailedCounts;
        });
}

void EdgeFindFEXRelease() noexcept {
    std::unique_ptr<Tables> old;
    std::lock_guard<std::mutex> lock(g_tablesMutex);
    old = std::move(g_tables);
}

FEXCoordinate EdgeFindFEXCoordinate(int index, int mode) noexcept {
    FEXCoordinate r{-1, -1, -1, -1, -1, -1, -1, -1};
    int* xy[4][2] = {{&r.X0, &r.Y0}, {&r.X1, &r.Y1}, {&r.X2, &r.Y2}, {&r.X3, &r.Y3}};
    std::lock_guard<std::mutex> lock(g_tablesMutex);
    if (!g_tables || index < 0) return r;
    const size_t at = static_cast<size_t>(index);
    if (mode != 0) {
        if (at >= g_tables->combinations.size()) return r;
        for (int i = 0; i < 4; ++i) {
            *xy[i][0] = g_tables->combinations[at][i].x;
            *xy[i][1] = g_tables->combinations[at][i].y;
        }
        return r;
    }
    for (int i = 0; i < 4; ++i) {
        const std::vector<cv::Point>& table = g_tables->candidates[i];
        if (at >= table.size()) continue;
        const auto shown = [](int v) { return static_cast<unsigned>(v) < static_cast<unsigned>(kRegion) ? v : -1; };
        *xy[i][0] = shown(table[at].x);
        *xy[i][1] = shown(table[at].y);
    }
    return r;
}

}  // namespace pixmill::inspect::edge
