#include "Filters/WaferEdgeFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Filters/ImageLoop.h"
#include "Filters/SizeLimit.h"
#include "framework/FilterRegistry.h"
#include "inspect/Inspection.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace pixmill::filters {

namespace {

using inspect::Format;

const cv::Scalar kGreen(0, 255, 0), kRed(0, 0, 255), kGrid(128, 128, 128), kCurve(128, 0, 128);
const cv::Scalar kText(0, 0, 0), kFirst(0, 0, 255), kSecond(255, 0, 0), kFirstFinal(0, 0, 192),
    kSecondFinal(192, 0, 0);

// The flattened profile: in each row the run of pixels strictly inside the
// turned square is replaced by its integer mean; the profile is the middle
// column.
cv::Mat Profile(const cv::Mat& canvas, const std::vector<cv::Point2f>& polygon) {
    cv::Mat profile(canvas.rows, 1, CV_8UC1);
    const int middle = canvas.cols / 2;
    for (int r = 0; r < canvas.rows; ++r) {
        const uint8_t* p = canvas.ptr<uint8_t>(r);
        int start = -1, count = 0;
        int64_t sum = 0;
        for (int c = 0; c < canvas.cols; ++c) {
            const bool inside = cv::pointPolygonTest(polygon, cv::Point2f(float(c), float(r)), false) > 0;
            if (inside) {
                if (start < 0) start = c;
                sum += p[c];
                ++count;
            } else if (start >= 0) {
                break;
            }
        }
        const int mean = count == 0 || sum == 0 ? 0 : static_cast<int>(sum / count);
        profile.at<uint8_t>(r) = start >= 0 && middle >= start && middle < start + count ? uint8_t(mean) : p[middle];
    }
    return profile;
}

// Normalised squared difference of two equal runs of samples; a perfect 0
// (or an undefined value, for two flat runs) is rated as the worst, 1.
double Match(const cv::Mat& a, const cv::Mat& b) {
    if (a.empty() || a.size() != b.size()) return 1.0;
    cv::Mat result;
    cv::matchTemplate(a, b, result, cv::TM_SQDIFF_NORMED);
    double low = 1.0;
    cv::minMaxLoc(result, &low);
    return low == 0.0 || !std::isfinite(low) ? 1.0 : low;
}

// Scores of every offset but zero: first the tail of `p1` against the head
// of `p2` for overlaps 1 to L - 1, then the head of `p1` against `p2` from
// row i on. A run that `p2` is too short for scores 1.
std::vector<double> Scores(const cv::Mat& p1, const cv::Mat& p2) {
    const int L = p1.rows, M = p2.rows;
    std::vector<double> scores;
    if (L < 2) return scores;
    scores.reserve(2 * size_t(L - 1));
    for (int i = 1; i < L; ++i)
        scores.push_back(i <= M ? Match(p1.rowRange(L - i, L), p2.rowRange(0, i)) : 1.0);
    for (int i = 1; i < L; ++i)
        scores.push_back(L <= M ? Match(p1.rowRange(0, L - i), p2.rowRange(i, L)) : 1.0);
    return scores;
}

size_t FirstMinimum(const std::vector<double>& v, size_t from, size_t count) {
    size_t at = from;
    for (size_t k = from; k < from + count; ++k)
        if (v[k] < v[at]) at = k;
    return at;
}

struct Rating {
    bool valid = false;
    double gray = 0, percent = 0;
};

// Samples past the rim at offset d: equal (within the tolerance) and darker
// than the gray average. Positions outside either profile are not sampled.
Rating Rate(const cv::Mat& p1, const cv::Mat& p2, double d, int h, double G, const WaferEdgeSettings& s) {
    const int N = p1.rows, M = p2.rows;
    double sum = 0;
    int count = 0, below = 0;
    for (int64_t j = s.startSkip; j < int64_t{s.startSkip} + h; ++j) {
        const double a = double(j) + N / 2 + d * 0.5;
        const double b = (M / 2 - d * 0.5) + double(j);
        if (!(a >= 0 && a < N && b >= 0 && b < M)) continue;
        const int v1 = p1.at<uint8_t>(int(a)), v2 = p2.at<uint8_t>(int(b));
        sum += v1 + v2;
        ++count;
        if (std::abs(v1 - v2) < s.grayTolerance && ((v1 + v2) >> 1) < G) ++below;
    }
    Rating r;
    if (count == 0) return r;
    r.valid = true;
    r.gray = sum / count * 0.5;
    r.percent = double(below) / count * 100.0;
    return r;
}

void RunPair(WaferEdgePair& pair, int fallback, const WaferEdgeSettings& s) {
    const cv::Mat& p1 = pair.first;
    const cv::Mat& p2 = pair.second;
    const int N = p1.rows, M = p2.rows;
    pair.offset = fallback;
    pair.scores = Scores(p1, p2);
    const int h = s.mask / 2;
    const int64_t C = static_cast<int64_t>(pair.scores.size());
    if (s.mask < 1 || N - 2 * int64_t{h} <= 0 || M < N - h) return;  // nothing to compare: the pair fails
    if (C != s.mask)
        for (int64_t c = h; c - h < C - s.mask; ++c)
            if (int64_t(FirstMinimum(pair.scores, size_t(c - h), size_t(s.mask))) == c) pair.candidates.push_back(int(c));
    double sum1 = 0, sum2 = 0;
    for (int r = h; r <= N - h - 1; ++r) {
        sum1 += p1.at<uint8_t>(r);
        sum2 += p2.at<uint8_t>(r);
    }
    const double G = std::min(sum1, sum2) / (N - 2 * h);
    pair.grayAverage = G;

    double bestPercent = 0.0, bestGray = G;
    for (size_t k = 0; k < pair.candidates.size(); ++k) {
        const double d = N - pair.candidates[k];
        const Rating r = Rate(p1, p2, d, h, G, s);
        pair.grays.push_back(r.gray);
        pair.percents.push_back(r.valid ? r.percent : -1.0);
        if (!r.valid) continue;
        if ((r.percent > bestPercent && r.gray < G) || (r.percent == bestPercent && r.gray < bestGray)) {
            bestPercent = r.percent;
            bestGray = r.gray;
            pair.selected = int(k);
            pair.found = true;
        }
    }
    if (!pair.found) return;

    const int d = N - pair.candidates[pair.selected];
    pair.offset = d;
    const int e = d / 2, n = N / 2;
    const auto cut = [h](const cv::Mat& p, int centre) {
        const int64_t from = std::max<int64_t>(int64_t{centre} - h, 0);
        const int64_t to = std::min<int64_t>(int64_t{centre} + h, p.rows);
        return from < to ? p.rowRange(int(from), int(to)) : cv::Mat();
    };
    const cv::Mat c1 = cut(p1, n + e), c2 = cut(p2, n - e);
    const std::vector<double> second = Scores(c1, c2);
    if (second.empty()) return;
    const int L = c1.rows;
    const int p = int(FirstMinimum(second, 0, second.size()));
    const int delta = L - p - 1;
    const Rating r = Rate(p1, p2, double(delta) + d, h, G, s);
    if (!r.valid || r.percent < bestPercent || !(r.gray < G)) return;
    pair.offset = delta + d;
    pair.secondary = delta;
}

void DrawProfiles(cv::Mat& plot, const WaferEdgePair& pair, double offset, int base, const cv::Scalar& c1,
                  const cv::Scalar& c2) {
    const double shift = offset * 0.5;
    for (int pass = 0; pass < 2; ++pass) {
        const cv::Mat& p = pass == 0 ? pair.first : pair.second;
        const double dx = pass == 0 ? -shift : shift;
        std::vector<cv::Point> line;
        for (int r = 0; r < p.rows; ++r)
            line.emplace_back(inspect::CutToInt(r + dx), base - (p.at<uint8_t>(r) * 200) / 255);
        cv::polylines(plot, line, false, pass == 0 ? c1 : c2, 2, cv::LINE_8);
        cv::drawMarker(plot, {inspect::CutToInt(p.rows / 2 + dx), base}, pass == 0 ? c1 : c2, cv::MARKER_CROSS, 20, 2);
    }
}

cv::Mat Plot(const WaferEdgePair& pair, const WaferEdgeSettings& s) {
    const int C = int(pair.scores.size());
    const int nc = int(pair.candidates.size());
    const int64_t height = 200 * int64_t{nc} + 500;
    CheckImageSize(C, height, 3, "WaferEdgeFilter: the plot");
    cv::Mat plot(int(height), std::max(C, 1), CV_8UC3, cv::Scalar::all(255));
    for (int x = 1; x < plot.cols; x += 100) cv::line(plot, {x, 0}, {x, plot.rows - 1}, kGrid, 1, cv::LINE_8);
    for (int y = 1; y < plot.rows; y += 100) cv::line(plot, {0, y}, {plot.cols - 1, y}, kGrid, 1, cv::LINE_8);
    const double low = pair.scores.empty() ? 0.0 : *std::min_element(pair.scores.begin(), pair.scores.end());
    const auto text = [&](int x, int y, const std::string& t) {
        cv::putText(plot, t, {x, y}, cv::FONT_HERSHEY_PLAIN, 1.0, kText, 1, cv::LINE_8);
    };
    text(10, 20, Format("SQDIFF Min Value : %.4f", low));
    text(10, 40, Format("Candidate : %d", nc));
    text(10, 60, Format("Gray Avg : %.1f", pair.grayAverage));
    std::vector<cv::Point> curve;
    for (int i = 0; i < C; ++i) curve.emplace_back(i, inspect::CutToInt(300 - pair.scores[i] * 200));
    cv::polylines(plot, curve, false, kCurve, 2, cv::LINE_8);
    const int N = pair.first.rows;
    for (int k = 0; k < nc; ++k) {
        const int c = pair.candidates[k];
        cv::drawMarker(plot, curve[c], kCurve, cv::MARKER_CROSS, 20, 2);
        const int y = 340 + 200 * k;
        const double d = N - c;
        text(10, y - 20, Format("No. %d", k));
        text(10, y, Format("Image Offset : %.1f", d * 0.5));
        text(10, y + 20, Format("Selected Gray : %.1f", pair.grays[k]));
        text(10, y + 40, Format("Below %d Gray Diff : %.1f %%", s.grayTolerance, pair.percents[k]));
        DrawProfiles(plot, pair, d, y + 160, kFirst, kSecond);
    }
    const int T = 200 * nc;
    text(10, T + 320, Format("Selected : %d", pair.selected));
    text(10, T + 340, Format("Below %d Gray Diff : %.1f %%", s.grayTolerance, pair.percents[pair.selected]));
    text(10, T + 360, Format("Secondary Offset : %d", pair.secondary));
    DrawProfiles(plot, pair, pair.offset, T + 480, kFirstFinal, kSecondFinal);
    // The two profiles as gray strips below.
    std::vector<cv::Mat> strips;
    for (const cv::Mat* p : {&pair.first, &pair.second}) {
        cv::Mat row, strip = cv::Mat::zeros(1, plot.cols, CV_8UC1);
        cv::rotate(*p, row, cv::ROTATE_90_CLOCKWISE);
        const int w = std::min(row.cols, strip.cols);
        row(cv::Rect(0, 0, w, 1)).copyTo(strip(cv::Rect(0, 0, w, 1)));
        strips.push_back(strip);
    }
    cv::Mat rows, rowsColour;
    cv::vconcat(strips, rows);
    cv::cvtColor(rows, rowsColour, cv::COLOR_GRAY2BGR);
    cv::Mat out;
    cv::vconcat(plot, rowsColour, out);
    return out;
}

}  // namespace

WaferEdgeSet FindWaferEdge(const std::array<cv::Mat, 4>& images, const WaferEdgeSettings& settings) {
    const int S = images[0].rows;
    for (const cv::Mat& m : images)
        if (m.empty() || m.type() != CV_8UC1 || m.rows < S || m.cols < S || S < 1)
            throw std::invalid_argument("WaferEdgeFilter: the corner images must be at least RT's rows square");
    const cv::Rect bound = cv::RotatedRect(cv::Point2f(float(S / 2), float(S / 2)), cv::Size2f(float(S), float(S)), 45.0f)
                               .boundingRect();
    const int W = bound.width, H = bound.height;
    CheckImageSize(W, H, 3, "WaferEdgeFilter: the turned canvas");
    const cv::Rect R((W - S) / 2, (H - S) / 2, S, S);
    const cv::Mat forward =
        cv::getRotationMatrix2D(cv::Point2f(float(S / 2 + R.x), float(S / 2 + R.y)), 45.0, 1.0);
    std::array<cv::Mat, 4> turned;
    for (int i = 0; i < 4; ++i) {
        cv::Mat canvas = cv::Mat::zeros(H, W, CV_8UC1);
        images[i](cv::Rect(0, 0, S, S)).copyTo(canvas(R));
        cv::warpAffine(canvas, turned[i], forward, canvas.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
        if (i != 0) {
            cv::Mat upright;
            cv::rotate(turned[i], upright, i - 1);
            turned[i] = upright;
        }
    }
    cv::Point2f corners[4];
    cv::RotatedRect(cv::Point2f(float(S / 2), float(S / 2)), cv::Size2f(float(S), float(S)), 45.0f).points(corners);
    std::vector<cv::Point2f> polygon;
    for (const cv::Point2f& c : corners) polygon.emplace_back(c.x + R.x, c.y + R.y);

    WaferEdgeSet set;
    const int R1 = turned[0].rows, C1 = turned[0].cols;
    for (int k = 0; k < 2; ++k) {
        WaferEdgePair& pair = set.pairs[k];
        pair.first = Profile(turned[k], polygon);
        pair.second = Profile(turned[k + 2], polygon);
        RunPair(pair, R1, settings);
        if (settings.drawDebug && pair.found) set.plots[k] = Plot(pair, settings);
    }

    const int o0 = set.pairs[0].offset, o1 = set.pairs[1].offset;
    const std::array<cv::Point, 4> turnedPoints{cv::Point(C1 / 2, (o0 + R1) / 2), cv::Point(C1 / 2, (o1 + R1) / 2),
                                                cv::Point(C1 / 2, (R1 - o0) / 2), cv::Point(C1 / 2, (R1 - o1) / 2)};
    const cv::Mat reverse = cv::getRotationMatrix2D(cv::Point2f(float(C1 / 2), float(R1 / 2)), -45.0, 1.0);
    for (int i = 0; i < 4; ++i) {
        const cv::Point p = turnedPoints[i];
        const double x = reverse.at<double>(0, 0) * p.x + reverse.at<double>(0, 1) * p.y + reverse.at<double>(0, 2);
        const double y = reverse.at<double>(1, 0) * p.x + reverse.at<double>(1, 1) * p.y + reverse.at<double>(1, 2);
        int X = inspect::CutToInt(x - R.x), Y = inspect::CutToInt(y - R.y);
        if (i == 1 || i == 2) X = S - X;
        if (i == 2 || i == 3) Y = S - Y;
        set.points[i] = {X, Y};
    }

    std::array<cv::Mat, 4> annotated;
    for (int i = 0; i < 4; ++i) {
        const bool found = set.pairs[i % 2].found;
        cv::Mat colour;
        cv::merge(std::vector<cv::Mat>{turned[i], turned[i], turned[i]}, colour);
        if (found)
            cv::drawMarker(colour, turnedPoints[i], kGreen, cv::MARKER_CROSS, 40, 3, cv::LINE_8);
        cv::Mat back;
        cv::warpAffine(colour, back, reverse, colour.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
        if (i != 0) {
            cv::Mat unturned;
            cv::rotate(back, unturned, 3 - i);
            back = unturned;
        }
        annotated[i] = back(R).clone();
        const std::string label = found ? Format("X: %d, Y: %d ", set.points[i].x, set.points[i].y) : "FAIL";
        cv::putText(annotated[i], label, {10, 30}, cv::FONT_HERSHEY_PLAIN, 1.0, found ? kGreen : kRed, 2, cv::LINE_8);
    }
    cv::Mat top, bottom;
    cv::hconcat(annotated[1], annotated[0], top);
    cv::hconcat(annotated[2], annotated[3], bottom);
    cv::vconcat(top, bottom, set.composite);
    return set;
}

}  // namespace pixmill::filters

CWaferEdgeFilter::CWaferEdgeFilter() {
    AddPin(L"RT", 1, false);
    AddPin(L"LT", 2, false);
    AddPin(L"LB", 3, false);
    AddPin(L"RB", 4, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"StartSkip", 10, 0, 960, 1));
    AddParam(new sorvik::Param<int>(L"Mask", 51, 10, 960, 1));
    AddParam(new sorvik::Param<int>(L"GrayTolerance", 10, 1, 255, 1));
    AddParam(new sorvik::Param<bool>(L"DrawDebug"));
}

void CWaferEdgeFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    pixmill::filters::WaferEdgeSettings s;
    s.startSkip = pixmill::ParamValue<int>(params, L"StartSkip", 10);
    s.mask = pixmill::ParamValue<int>(params, L"Mask", 51);
    s.grayTolerance = pixmill::ParamValue<int>(params, L"GrayTolerance", 10);
    s.drawDebug = pixmill::ParamValue<bool>(params, L"DrawDebug", false);

    // Images by pin id: 1 RT, 2 LT, 3 LB, 4 RB, read in gray.
    std::map<int, std::vector<cv::Mat>> lists;
    for (int id = 1; id <= 4; ++id) lists[id];
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        std::vector<cv::Mat>& list = lists[pin->GetKey()];
        for (cv::Mat* m : pin->GetImage()) {
            cv::Mat gray = m ? *m : cv::Mat();
            if (gray.channels() == 3) cv::cvtColor(gray, gray, cv::COLOR_BGR2GRAY);
            list.push_back(gray);
        }
    }
    size_t sets = SIZE_MAX;
    for (int id = 1; id <= 4; ++id) sets = std::min(sets, lists[id].size());

    std::vector<cv::Mat> out;
    for (size_t k = 0; k < sets; ++k) {
        const pixmill::filters::WaferEdgeSet set =
            pixmill::filters::FindWaferEdge({lists[1][k], lists[2][k], lists[3][k], lists[4][k]}, s);
        out.push_back(set.composite);
        if (s.drawDebug)
            for (const cv::Mat& plot : set.plots)
                if (!plot.empty()) out.push_back(plot);
        const auto& p = set.points;
        SetResult(L"{\"WaferEdge\": {\"RT\":{\"X\": %d, \"Y\": %d}, \"LT\":{\"X\": %d, \"Y\": %d}, "
                  L"\"LB\":{\"X\": %d, \"Y\": %d}, \"RB\":{\"X\": %d, \"Y\": %d}, "
                  L"\"FIND_RT_LB\" : \"%ls\", \"FIND_LT_RB\" : \"%ls\"} }",
                  p[0].x, p[0].y, p[1].x, p[1].y, p[2].x, p[2].y, p[3].x, p[3].y,
                  set.pairs[0].found ? L"SUCCESS" : L"FAIL", set.pairs[1].found ? L"SUCCESS" : L"FAIL");
    }
    pixmill::filters::SetOutputImages(pins, out);
}

void CWaferEdgeFilter::Trace() {
    LogW(1, L"WaferEdgeFilter");
}

PIXMILL_REGISTER_FILTER(L"WaferEdgeFilter", CWaferEdgeFilter);
