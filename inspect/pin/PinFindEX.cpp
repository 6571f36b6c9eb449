#include "inspect/pin/PinFindEX.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "logging/Trace.h"

namespace pixmill::inspect::pin {

namespace {

const cv::Scalar kOutside(255, 255, 0, 0);   // profile outside the tip's band
const cv::Scalar kInside(0, 255, 0, 0);      // profile inside it
const cv::Scalar kBandEnd(0, 255, 255, 0);   // guard band ends
const cv::Scalar kTipEnd(255, 0, 255, 0);    // window ends
const cv::Scalar kRival(0, 0, 255, 0);       // rival samples and corners
const cv::Scalar kBorder(128, 128, 128, 0);  // separators in the composite
constexpr int kGraphHeight = 255;
constexpr int kEXBand = 30;  // guard band of VBcvPinFindEX, pixels each side

// Normalises a profile so that its largest value becomes 255.
std::vector<double> Normalised(const std::vector<double>& sums) {
    double top = 0.0;
    for (double v : sums) top = std::max(top, v);
    std::vector<double> norm(sums.size(), 0.0);
    if (top > 0.0)
        for (size_t k = 0; k < sums.size(); ++k) norm[k] = sums[k] / top * 255.0;
    return norm;
}

// A coordinate for drawing: far-away band ends are held just off the image.
int DrawCoord(int64_t v, int size) {
    return static_cast<int>(std::clamp<int64_t>(v, -1, size));
}

// Draws a profile as a polyline on `graph` (sample index across, level up)
// and returns the sum of its values at samples in [from, to), which also get
// a vertical bar.
double DrawProfile(cv::Mat& graph, const std::vector<double>& norm, double from, double to) {
    double inside = 0.0;
    cv::Point last(0, 0);
    for (int r = 0; r < static_cast<int>(norm.size()); ++r) {
        const cv::Point p(r, CutToInt(kGraphHeight - norm[static_cast<size_t>(r)]));
        const bool in = r >= from && r < to;
        // While the last point is (0, 0) it only sets the start.
        if (last != cv::Point(0, 0))
            cv::line(graph, last, p, in ? kInside : kOutside, 1, cv::LINE_8);
        last = p;
        if (in) {
            cv::line(graph, cv::Point(r, kGraphHeight), p, kInside, 1, cv::LINE_8);
            inside += norm[static_cast<size_t>(r)];
        }
    }
    return inside;
}

// Vertical marks on a graph, at two band ends and two window ends.
void MarkGraph(cv::Mat& graph, GuardBand band, int64_t first, int64_t last) {
    const int n = graph.cols;
    for (int64_t x : {static_cast<int64_t>(band.lo), static_cast<int64_t>(band.hi)})
        cv::line(graph, cv::Point(DrawCoord(x, n), 0), cv::Point(DrawCoord(x, n), kGraphHeight - 1),
                 kBandEnd, 1, cv::LINE_8);
    for (int64_t x : {first, last})
        cv::line(graph, cv::Point(DrawCoord(x, n), 0), cv::Point(DrawCoord(x, n), kGraphHeight - 1),
                 kTipEnd, 1, cv::LINE_8);
}

// Lines across the edge image at the ends of both bands and windows.
void MarkImage(cv::Mat& image, GuardBand rows, GuardBand cols, int64_t x0, int64_t x1, int64_t y0,
               int64_t y1) {
    const int w = image.cols, h = image.rows;
    auto across = [&](int64_t y, const cv::Scalar& c) {
        cv::line(image, cv::Point(0, DrawCoord(y, h)), cv::Point(w - 1, DrawCoord(y, h)), c, 1,
                 cv::LINE_8);
    };
    auto down = [&](int64_t x, const cv::Scalar& c) {
        cv::line(image, cv::Point(DrawCoord(x, w), 0), cv::Point(DrawCoord(x, w), h - 1), c, 1,
                 cv::LINE_8);
    };
    across(rows.lo, kBandEnd);
    across(rows.hi, kBandEnd);
    across(y0, kTipEnd);
    across(y1, kTipEnd);
    down(cols.lo, kBandEnd);
    down(cols.hi, kBandEnd);
    down(x0, kTipEnd);
    down(x1, kTipEnd);
}

// 255 outside the cross that the two bands make, 0 on it.
cv::Mat ZoneImage(cv::Size size, GuardBand rows, GuardBand cols) {
    cv::Mat zone(size, CV_8UC1, cv::Scalar(0));
    for (int j = 0; j < size.height; ++j) {
        if (rows.Holds(j)) continue;
        uchar* p = zone.ptr<uchar>(j);
        for (int i = 0; i < size.width; ++i)
            if (!cols.Holds(i)) p[i] = 255;
    }
    return zone;
}

// Row graph, column graph, marked edge image and score map side by side,
// with separators, as PinEdgeGraph.jpg shows them.
cv::Mat Composite(const cv::Mat& rowGraph, const cv::Mat& colGraph, const cv::Mat& edgeColour,
                  const cv::Mat& colourMap) {
    const int rows = edgeColour.rows, cols = edgeColour.cols;
    const int height = std::max(rows, 256);
    cv::Mat out(height, rows + (cols + 3) * 3, CV_8UC3, cv::Scalar::all(0));
    rowGraph.copyTo(out(cv::Rect(0, 0, rows, kGraphHeight)));
    cv::rectangle(out, cv::Point(rows, 0), cv::Point(rows + 2, height - 1), kBorder, cv::FILLED);
    colGraph.copyTo(out(cv::Rect(rows + 3, 0, cols, kGraphHeight)));
    cv::line(out, cv::Point(0, kGraphHeight), cv::Point(rows + cols + 2, kGraphHeight), kBorder, 1,
             cv::LINE_8);
    cv::rectangle(out, cv::Point(rows + cols + 3, 0), cv::Point(rows + cols + 5, height - 1),
                  kBorder, cv::FILLED);
    edgeColour.copyTo(out(cv::Rect(rows + cols + 6, 0, cols, rows)));
    cv::rectangle(out, cv::Point(rows + 2 * (cols + 3), 0),
                  cv::Point(rows + 2 * (cols + 4), height - 1), kBorder, cv::FILLED);
    colourMap.copyTo(out(cv::Rect(rows + 2 * cols + 9, 0, cols, rows)));
    return out;
}

}  // namespace

PinEdgeProfile EdgeProfileOf(const cv::Mat& edge, TipPosition position, int64_t tx, int64_t ty) {
    PinEdgeProfile p;
    const int rows = edge.rows, cols = edge.cols;
    p.rowSum.assign(static_cast<size_t>(rows), 0.0);
    p.colSum.assign(static_cast<size_t>(cols), 0.0);
    const double xEnd = position.x + static_cast<double>(tx);
    const double yEnd = position.y + static_cast<double>(ty);
    const int c0 = std::max(0, CutToInt(position.x)), r0 = std::max(0, CutToInt(position.y));
    for (int r = 0; r < rows; ++r) {
        const uchar* row = edge.ptr<uchar>(r);
        double sum = 0.0;
        for (int c = c0; c < cols && c < xEnd; ++c) sum += row[c];
        p.rowSum[static_cast<size_t>(r)] = sum;
    }
    for (int r = r0; r < rows && r < yEnd; ++r) {
        const uchar* row = edge.ptr<uchar>(r);
        for (int c = 0; c < cols; ++c) p.colSum[static_cast<size_t>(c)] += row[c];
    }
    p.rowNorm = Normalised(p.rowSum);
    p.colNorm = Normalised(p.colSum);
    return p;
}

RivalWindow FindRivalWindow(const std::vector<double>& profile, int64_t length, GuardBand band,
                            double level) {
    RivalWindow rival;
    const int64_t n = static_cast<int64_t>(profile.size());
    for (int64_t s = 0; s < n - length; ++s) {
        if (band.Holds(s) || band.Holds(s + length - 1)) continue;
        double sum = 0.0;
        for (int64_t k = s; k < s + length; ++k) sum += profile[static_cast<size_t>(k)];
        if (sum >= level) {
            rival.found = true;
            rival.sum = sum;
            break;
        }
    }
    return rival;
}

std::vector<int> RivalSamples(const std::vector<double>& profile, GuardBand band, double level) {
    std::vector<int> samples;
    for (int k = 0; k < static_cast<int>(profile.size()); ++k)
        if (!band.Holds(k) && profile[static_cast<size_t>(k)] >= level) samples.push_back(k);
    return samples;
}

int CountRivalCorners(const cv::Mat& zone, const cv::Mat& rawScores, int64_t tx, int64_t ty,
                      GuardBand rows, GuardBand cols, double level, cv::Mat* marks) {
    if (zone.type() != CV_8UC1 || rawScores.type() != CV_64FC1) return 0;
    const int64_t jEnd = std::min<int64_t>(zone.rows - ty - 1, rawScores.rows + 1);
    const int64_t iEnd = std::min<int64_t>(zone.cols - tx - 1, rawScores.cols + 1);
    int count = 0;
    for (int j = 1; j < jEnd; ++j) {
        if (rows.Holds(j) || rows.Holds(j + ty)) continue;
        const uchar* z = zone.ptr<uchar>(j);
        const double* raw = rawScores.ptr<double>(j - 1);
        for (int i = 1; i < iEnd; ++i) {
            if (z[i] != 255 || cols.Holds(i) || cols.Holds(i + tx)) continue;
            if (raw[i - 1] >= level) {
                ++count;
                if (marks) cv::circle(*marks, cv::Point(i, j), 1, kRival, 1, cv::LINE_8);
            }
        }
    }
    return count;
}

PinFindResult VerifiedSearch(PinRun& run, double verifyFactor, const CrownRule* crown) {
    const PinFindArgs& a = run.Args();
    const cv::Mat& edge = run.Edge();
    const int rows = edge.rows, cols = edge.cols;
    const int64_t tx = a.tx, ty = a.ty;

    // One scan at the given size over one integral image, keeping every
    // corner's score.
    cv::Mat S;
    IntegralImage(edge, S);
    cv::Mat raw = cv::Mat::zeros(static_cast<int>(std::max<int64_t>(0, rows - ty - 2)),
                                 static_cast<int>(std::max<int64_t>(0, cols - tx - 2)), CV_64FC1);
    TipPosition position{0.0f, static_cast<float>(run.Box().width)};
    const CornerScan scan = ScanCorners(S, run.Mask(), tx, ty, a.sType, a.aType, position, &raw);
    const double peak = scan.best;
    const double X = position.x, Y = position.y;

    const PinEdgeProfile profile = EdgeProfileOf(edge, position, tx, ty);

    // The score map scaled to the peak. With no positive peak it stays 0.
    cv::Mat scaled = cv::Mat::zeros(raw.size(), CV_64FC1);
    cv::Mat grayMap = cv::Mat::zeros(rows, cols, CV_8UC1), colourMap;
    if (peak > 0.0) {
        for (int r = 0; r < raw.rows; ++r) {
            const double* in = raw.ptr<double>(r);
            double* out = scaled.ptr<double>(r);
            uchar* gray = grayMap.ptr<uchar>(r + 1);
            for (int c = 0; c < raw.cols; ++c) {
                out[c] = in[c] / peak * 255.0;
                gray[c + 1] = static_cast<uchar>(std::clamp(CutToInt(out[c]), 0, 255));
            }
        }
    }
    PseudoColorImage(grayMap, colourMap);

    cv::Mat rowGraph(kGraphHeight, rows, CV_8UC3, cv::Scalar::all(0));
    cv::Mat colGraph(kGraphHeight, cols, CV_8UC3, cv::Scalar::all(0));
    cv::Mat edgeColour;
    cv::cvtColor(edge, edgeColour, cv::COLOR_GRAY2BGR);
    const double insideRows = DrawProfile(rowGraph, profile.rowNorm, Y, Y + ty);
    const double insideCols = DrawProfile(colGraph, profile.colNorm, X, X + tx);

    // Rivals along the stripes, away from the tip.
    GuardBand rowBand, colBand;
    bool rowFlag = false, colFlag = false;
    double rowValue = 0, colValue = 0;  // a rival's sum, or the crown's level
    double rowCount = 0, colCount = 0;  // crown: samples over the level
    if (!crown) {
        rowBand = {CutToInt(Y - kEXBand), CutToInt(Y + ty - 1 + kEXBand)};
        colBand = {CutToInt(X - kEXBand), CutToInt(X + tx - 1 + kEXBand)};
        const RivalWindow rowRival =
            FindRivalWindow(profile.rowNorm, ty, rowBand, insideRows * verifyFactor);
        const RivalWindow colRival =
            FindRivalWindow(profile.colNorm, tx, colBand, insideCols * verifyFactor);
        rowFlag = rowRival.found;
        colFlag = colRival.found;
        rowValue = rowRival.sum;
        colValue = colRival.sum;
    } else {
        rowBand = {CutToInt(Y - crown->alpha), CutToInt(Y + ty + crown->alpha - 1)};
        colBand = {CutToInt(X - crown->alpha), CutToInt(X + tx + crown->alpha - 1)};
        rowValue = insideRows / static_cast<double>(ty) * crown->beta;
        colValue = insideCols / static_cast<double>(tx) * crown->beta;
        const std::vector<int> rowRivals = RivalSamples(profile.rowNorm, rowBand, rowValue);
        const std::vector<int> colRivals = RivalSamples(profile.colNorm, colBand, colValue);
        for (int r : rowRivals)
            cv::line(rowGraph, cv::Point(r, 0), cv::Point(r, kGraphHeight - 1), kRival, 1,
                     cv::LINE_8);
        for (int c : colRivals)
            cv::line(colGraph, cv::Point(c, 0), cv::Point(c, kGraphHeight - 1), kRival, 1,
                     cv::LINE_8);
        rowCount = static_cast<double>(rowRivals.size());
        colCount = static_cast<double>(colRivals.size());
        rowFlag = rowCount > 0;
        colFlag = colCount > 0;
    }

    // Rival corners: windows outside the cross of both bands that score
    // near the peak.
    const int64_t xLast = static_cast<int64_t>(X) + tx - 1,
                  yLast = static_cast<int64_t>(Y) + ty - 1;
    MarkImage(edgeColour, rowBand, colBand, static_cast<int64_t>(X), xLast, static_cast<int64_t>(Y),
              yLast);
    MarkGraph(rowGraph, rowBand, static_cast<int64_t>(Y), yLast);
    MarkGraph(colGraph, colBand, static_cast<int64_t>(X), xLast);
    const cv::Mat zone = ZoneImage(edge.size(), rowBand, colBand);
    const int corners =
        CountRivalCorners(zone, raw, tx, ty, rowBand, colBand, peak * verifyFactor, &colourMap);

    SaveDebugImage(run.Store(), std::wstring(kPinDebugFolder) + L"PinEdgeGraph.jpg",
                   Composite(rowGraph, colGraph, edgeColour, colourMap));

    if (rowFlag || colFlag || corners >= 1) {
        const char* tag = run.Tag();
        Fail fail(13);
        fail.Line("%s Verify Fail\n", tag);
        if (!crown) {
            // The row profile's stripe runs along x, hence "X".
            if (rowFlag)
                fail.Line("%s X Ivalue : %0.1lf, Evalue : %0.1lf\n", tag, insideRows, rowValue);
            if (colFlag)
                fail.Line("%s Y Ivalue : %0.1lf, Evalue : %0.1lf\n", tag, insideCols, colValue);
        } else {
            if (rowFlag)
                fail.Line("%s X TH Value : %0.1lf, Over the TH count : %0.1lf\n", tag, rowValue,
                          rowCount);
            if (colFlag)
                fail.Line("%s Y TH Value : %0.1lf, Over the TH count : %0.1lf\n", tag, colValue,
                          colCount);
        }
        if (corners > 0) fail.Line("%s Over the pixel count(Edge Sum) : %d\n", tag, corners);
        run.RaiseError(fail, {Format("Threshold : %0.3lf", verifyFactor)});
    }
    return run.Finish(tx, ty, position, scan.anyCornerInArea, &edgeColour);
}

PinFindResult PinFindEX(const PinFindArgs& args, double verifyFactor, int saveMode,
                        ImageStore& store) noexcept {
    return RunPinSearch("[VBcvPinFindEX]", args, store, [&](PinRun& run) {
        TraceVersion();
        SetPinImageSaveMode(saveMode);
        run.Start();
        run.CheckSizes();
        run.Prepare();
        return VerifiedSearch(run, verifyFactor, nullptr);
    });
}

}  // namespace pixmill::inspect::pin
