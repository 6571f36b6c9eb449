#include "inspect/pin/PinFind.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "framework/DebugImages.h"
#include "logging/Trace.h"

namespace pixmill::inspect::pin {

const wchar_t* const kPinInputImage = L"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp";
const wchar_t* const kPinDebugFolder = L"C:\\PROBERPARAM\\ParaImg\\PinImage\\";

const wchar_t* const kPinFailureFolder = L"D:\\proberfiles\\PinImage\\";

namespace {

const cv::Scalar kWhite(255, 255, 255, 0);
const cv::Scalar kRuleColour(200, 150, 0, 0);
const cv::Scalar kRed(0, 0, 255, 0);
const cv::Scalar kGreen(0, 255, 0, 0);
constexpr int kFrame = 5;    // edge pixels this close to a side are cleared
constexpr int kTile = 5;     // side of the cleaning tiles
constexpr int kGrowth = 60;  // the size search ends at tx + 60 or ty + 60
constexpr int kStep = 4;     // sizes grow by 4 pixels

std::wstring DebugFile(const wchar_t* name) {
    return std::wstring(kPinDebugFolder) + name;
}

const char* ShapeName(int shape) {
    return shape == CIRCLE ? "CIRCLE" : "RECTANGLE";
}

bool KnownShape(int shape) {
    return shape == CIRCLE || shape == RECTANGLE;
}

// Window sums over an inclusive integral image for one tip size. S(r, c)
// holds the sum up to and including (r, c), so the sum over columns
// x0+1..x1 and rows y0+1..y1 is S(y1,x1) - S(y1,x0) - S(y0,x1) + S(y0,x0).
class WindowSums {
public:
    WindowSums(const cv::Mat& S, int64_t tx, int64_t ty, int sType)
        : m_S(S),
          m_tx(tx),
          m_ty(ty),
          m_sType(sType),
          // The octagon's cut comes from tx alone, for both axes.
          m_cut((1.0 - 1.0 / std::sqrt(2.0)) * static_cast<double>(tx / 2)) {}

    // Bottom-right inclusive sum of the window at corner (i, j).
    float Bottom(int i, int j) const { return At(j - 1 + Int(m_ty), i - 1 + Int(m_tx)); }

    // Valid for corners whose window lies inside S.
    double Score(int i, int j) const {
        const int X0 = i - 1, Y0 = j - 1, X1 = i - 1 + Int(m_tx), Y1 = j - 1 + Int(m_ty);
        float b = Rect(X0, Y0, X1, Y1);
        if (m_sType == RECTANGLE) return b;
        // An octagon: the window less four corner squares. The cuts can fall
        // outside S when ty is small against tx; they are held at its edge.
        const int x1 = Col(i + m_cut - 1), x2 = Col(i + m_tx - m_cut - 1);
        const int y1 = Row(j + m_cut - 1), y2 = Row(j + m_ty - m_cut - 1);
        b = b - Rect(X0, Y0, x1, y1) - Rect(x2, Y0, X1, y1) - Rect(X0, y2, x1, Y1) -
            Rect(x2, y2, X1, Y1);
        return b;
    }

private:
    static int Int(int64_t v) { return static_cast<int>(v); }
    float At(int r, int c) const { return m_S.ptr<float>(r)[c]; }
    float Rect(int x0, int y0, int x1, int y1) const {
        return At(y1, x1) - At(y1, x0) - At(y0, x1) + At(y0, x0);
    }
    int Col(double v) const { return std::clamp(CutToInt(v), 0, m_S.cols - 1); }
    int Row(double v) const { return std::clamp(CutToInt(v), 0, m_S.rows - 1); }

    const cv::Mat& m_S;
    int64_t m_tx, m_ty;
    int m_sType;
    double m_cut;
};

// Marks the found tip: a small red circle at its centre, then its outline.
void MarkTip(cv::Mat& image, int sType, int cx, int cy, int64_t hx, TipPosition p, int64_t tx,
             int64_t ty) {
    if (sType == CIRCLE) {
        cv::circle(image, cv::Point(cx, cy), 2, kRed, 1, cv::LINE_AA, 0);
        cv::circle(image, cv::Point(cx, cy), CutToInt(static_cast<double>(hx)), kGreen, 1,
                   cv::LINE_AA, 0);
    } else if (sType == RECTANGLE) {
        cv::circle(image, cv::Point(cx, cy), 2, kRed, 1, cv::LINE_AA, 0);
        cv::rectangle(image, cv::Point(CutToInt(p.x), CutToInt(p.y)),
                      cv::Point(CutToInt(p.x + static_cast<double>(tx)),
                                CutToInt(p.y + static_cast<double>(ty))),
                      kGreen, 0, cv::LINE_8, 0);
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Steps
// ---------------------------------------------------------------------------

cv::Mat MultiScaleEdge(const cv::Mat& area) {
    const int w = area.cols, h = area.rows;
    cv::Mat edge = cv::Mat::zeros(h, w, CV_8UC1);
    if (w < 4 || h < 4) return edge;

    // Gradients at full, half and quarter size, averaged at full size.
    cv::Mat full, half, quarter;
    cv::resize(area, full, area.size(), 0, 0, cv::INTER_LINEAR);
    cv::resize(full, half, cv::Size(w / 2, h / 2), 0, 0, cv::INTER_LINEAR);
    cv::resize(full, quarter, cv::Size(w / 4, h / 4), 0, 0, cv::INTER_LINEAR);
    cv::Mat edgeFull, edgeHalf, edgeQuarter, upHalf, upQuarter;
    SobelEdgeImage(full, edgeFull);
    SobelEdgeImage(half, edgeHalf);
    SobelEdgeImage(quarter, edgeQuarter);
    cv::resize(edgeHalf, upHalf, area.size(), 0, 0, cv::INTER_LINEAR);
    cv::resize(edgeQuarter, upQuarter, area.size(), 0, 0, cv::INTER_LINEAR);
    for (int r = 0; r < h; ++r) {
        const uchar* f = edgeFull.ptr<uchar>(r);
        const uchar* hf = upHalf.ptr<uchar>(r);
        const uchar* q = upQuarter.ptr<uchar>(r);
        uchar* out = edge.ptr<uchar>(r);
        for (int c = 0; c < w; ++c) out[c] = static_cast<uchar>((f[c] + hf[c] + q[c]) / 3.0);
    }
    return edge;
}

void ClearFrameAndBelow(cv::Mat& edge, double m) {
    const int w = edge.cols, h = edge.rows;
    for (int r = 0; r < h; ++r) {
        uchar* row = edge.ptr<uchar>(r);
        const bool frameRow = r < kFrame || r >= h - kFrame;
        for (int c = 0; c < w; ++c) {
            if (frameRow || c < kFrame || c >= w - kFrame || row[c] < m) row[c] = 0;
        }
    }
}

void ClearWeakTiles(cv::Mat& edge, double m) {
    // Non-overlapping 5 x 5 tiles whose mean is below m are cleared whole.
    const int w = edge.cols, h = edge.rows;
    for (int cy = 2; cy < h - 2; cy += kTile) {
        for (int cx = 2; cx < w - 2; cx += kTile) {
            cv::Mat tile = edge(cv::Rect(cx - 2, cy - 2, kTile, kTile));
            if (cv::sum(tile)[0] / 25.0 < m) tile.setTo(0);
        }
    }
}

cv::Mat PinEdgeImage(const cv::Mat& area) {
    cv::Mat edge = MultiScaleEdge(area);
    if (area.cols < 4 || area.rows < 4) return edge;
    // Below the mean, or in the frame: no edge; then the weak tiles.
    const double m = GrayMean(edge);
    ClearFrameAndBelow(edge, m);
    ClearWeakTiles(edge, m);
    return edge;
}

double MaxEdge(int sType, int64_t tx, int64_t ty) {
    int64_t area = 0;
    if (sType == CIRCLE)
        area = static_cast<int64_t>(static_cast<double>((tx / 2) * ty / 2) * 3.141592653589793);
    else if (sType == RECTANGLE)
        area = tx * ty;
    return static_cast<double>(area) * 255.0;
}

BorderFlags BorderFlagsOf(const PinBoxResult& box, int sx, int sy) {
    const double cx = box.center.x, cy = box.center.y;
    const double right = static_cast<double>(sx) - 1.0, bottom = static_cast<double>(sy) - 1.0;
    BorderFlags f;
    f.up = cy - box.height * 0.5 - 5.0 <= 0.0;
    f.down = cy + box.height * 0.5 + 5.0 >= bottom;
    f.left = cx - box.width * 0.5 - 5.0 <= 0.0;
    f.right = cx + box.width * 0.5 + 5.0 > right;  // strict on this side only
    return f;
}

BorderMove BorderMoveOf(const BorderFlags& flags, const PinBoxResult& box, int sx, int sy, int tx,
                        int ty) {
    // One row per combination, indexed U R D L as bits 3..0. The offsets:
    // 'l'/'r' move left/right by what the blob is missing of the tip, 'u'/'d'
    // up/down likewise, 'c' keeps the blob's own centre, '0' no move. An
    // opposite pair means the blob spans that axis.
    struct Row {
        const char* label;
        char x, y;
    };
    static constexpr Row kTable[16] = {
        {nullptr, 0, 0},      // none: search
        {"L", 'l', 'c'},      // L
        {"D", 'c', 'd'},      // D
        {"L D", 'l', 'd'},    // D L
        {"R", 'r', 'c'},      // R
        {nullptr, 0, 0},      // R L: search
        {"R D", 'r', 'd'},    // R D
        {"L D R", '0', 'd'},  // R D L
        {"U", 'c', 'u'},      // U
        {"L U", 'l', 'u'},    // U L
        {nullptr, 0, 0},      // U D: search
        {"L U D", 'l', '0'},  // U D L
        {"R U", 'r', 'u'},    // U R
        {"L U R", '0', 'u'},  // U R L
        {"R U D", 'r', '0'},  // U R D
        {nullptr, 0, 0},      // all four: search
    };
    const int index =
        (flags.up ? 8 : 0) | (flags.right ? 4 : 0) | (flags.down ? 2 : 0) | (flags.left ? 1 : 0);
    const Row& row = kTable[index];
    BorderMove move;
    if (!row.label) return move;

    const double w = box.width, h = box.height;
    const double halfSx = sx / 2, halfSy = sy / 2;  // integer halves
    const double halfTx = static_cast<unsigned>(tx) / 2u, halfTy = static_cast<unsigned>(ty) / 2u;
    move.label = row.label;
    switch (row.x) {
        case 'l':
            move.x = (w + 5) - halfSx - halfTx;
            break;
        case 'r':
            move.x = (halfSx - (w + 5)) + halfTx;
            break;
        case 'c':
            move.x = box.center.x - halfSx;
            break;
        default:
            move.x = 0;
            break;
    }
    switch (row.y) {
        case 'u':
            move.y = (h + 5) - halfSy - halfTy;
            break;
        case 'd':
            move.y = (halfSy - (h + 5)) + halfTy;
            break;
        case 'c':
            move.y = box.center.y - halfSy;
            break;
        default:
            move.y = 0;
            break;
    }
    return move;
}

double WindowScore(const cv::Mat& S, int i, int j, int64_t tx, int64_t ty, int sType) {
    if (!KnownShape(sType) || S.type() != CV_32FC1 || i < 1 || j < 1) return 0.0;
    if (i - 1 + tx >= S.cols || j - 1 + ty >= S.rows) return 0.0;
    return WindowSums(S, tx, ty, sType).Score(i, j);
}

CornerScan ScanCorners(const cv::Mat& S, const cv::Mat& mask, int64_t tx, int64_t ty, int sType,
                       int aType, TipPosition& position, cv::Mat* rawScores) {
    CornerScan scan;
    // Only a known area shape selects a scan; only a known tip shape scores.
    if (!KnownShape(aType) || S.type() != CV_32FC1) return scan;
    const bool circleArea = aType == CIRCLE;
    const bool maskFits = mask.size() == S.size() && mask.type() == CV_8UC1;
    const bool store = rawScores && rawScores->type() == CV_64FC1 &&
                       rawScores->rows >= S.rows - ty - 2 && rawScores->cols >= S.cols - tx - 2;
    const int64_t jEnd = static_cast<int64_t>(S.rows) - ty - 1;
    const int64_t iEnd = static_cast<int64_t>(S.cols) - tx - 1;
    const WindowSums sums(S, tx, ty, sType);
    for (int j = 1; j < jEnd; ++j) {
        const uchar* maskRow = maskFits ? mask.ptr<uchar>(j) : nullptr;
        double* rawRow = store ? rawScores->ptr<double>(j - 1) : nullptr;
        for (int i = 1; i < iEnd; ++i) {
            if (circleArea) {
                if (!maskRow || maskRow[i] != 255) continue;
                scan.anyCornerInArea = true;
            }
            if (!(sums.Bottom(i, j) > 0.0f) || !KnownShape(sType)) continue;
            const double score = sums.Score(i, j);
            if (rawRow) rawRow[i - 1] = score;
            if (score > scan.best) {
                scan.best = score;
                position.x = static_cast<float>(i);
                position.y = static_cast<float>(j);
            }
        }
    }
    return scan;
}

double RingScore(const cv::Mat& edge, cv::Mat& ring, int64_t tx, int64_t ty, TipPosition position) {
    if (edge.empty()) return 0.0;
    const double radius = static_cast<double>(tx / 2);
    const double cx = CutToInt(static_cast<double>(tx / 2) + position.x);
    const double cy = CutToInt(static_cast<double>(ty / 2) + position.y);
    // A ring that cannot reach the image has no pixel in it; it is not drawn.
    const double nearX = std::clamp(cx, 0.0, edge.cols - 1.0),
                 nearY = std::clamp(cy, 0.0, edge.rows - 1.0);
    const double farX = std::max(std::fabs(cx), std::fabs(cx - (edge.cols - 1.0)));
    const double farY = std::max(std::fabs(cy), std::fabs(cy - (edge.rows - 1.0)));
    if (std::hypot(cx - nearX, cy - nearY) > radius + 1.0 ||
        std::hypot(farX, farY) < radius - 1.0 || radius > std::numeric_limits<int>::max())
        return 0.0;
    ring.create(edge.size(), CV_8UC1);
    ring.setTo(cv::Scalar::all(0));
    cv::circle(ring, cv::Point(static_cast<int>(cx), static_cast<int>(cy)),
               static_cast<int>(radius), kWhite, 0, cv::LINE_8, 0);
    const int onRing = cv::countNonZero(ring);
    if (onRing == 0) return 0.0;
    cv::Mat both;
    cv::bitwise_and(ring, edge, both);
    return static_cast<double>(cv::countNonZero(both)) / onRing;
}

SizeSearch SearchSizes(const cv::Mat& edge, const cv::Mat& mask, const PinFindArgs& args,
                       float startY) {
    SizeSearch s;
    s.tx = args.tx;
    s.ty = args.ty;
    s.position = TipPosition{0.0f, startY};
    cv::Mat S;
    IntegralImage(edge, S);  // one integral image for every corner and size
    const int64_t txEnd = static_cast<int64_t>(args.tx) + kGrowth;
    const int64_t tyEnd = static_cast<int64_t>(args.ty) + kGrowth;
    const int64_t txMax = static_cast<int64_t>(args.sx) - kStep;
    const int64_t tyMax = static_cast<int64_t>(args.sy) - kStep;
    cv::Mat ring;
    for (;;) {
        const CornerScan scan =
            ScanCorners(S, mask, s.tx, s.ty, args.sType, args.aType, s.position);
        s.anyCornerInArea = s.anyCornerInArea || scan.anyCornerInArea;
        if (s.tx >= txEnd || s.ty >= tyEnd) break;  // the last size is scanned, not recorded
        const int64_t nextTx = s.tx + kStep, nextTy = s.ty + kStep;
        if (nextTx > txMax || nextTy > tyMax) {
            // The area holds no larger tip: this size is not counted, and its
            // ring score would never be read, so it is not worked out.
            s.tx = nextTx;
            s.ty = nextTy;
            break;
        }
        SizeEntry& e = s.entries[static_cast<size_t>(s.count++)];
        e.score = static_cast<float>(RingScore(edge, ring, s.tx, s.ty, s.position));
        e.tx = static_cast<float>(s.tx);
        e.ty = static_cast<float>(s.ty);
        e.x = s.position.x;
        e.y = s.position.y;
        s.tx = nextTx;
        s.ty = nextTy;
    }
    return s;
}

int ChooseSize(const SizeEntry* entries, int count) {
    if (!entries) return -1;
    for (int i = 0; i + 1 < count; ++i) {
        bool aboveAllLater = true;
        for (int k = i + 1; k < count && aboveAllLater; ++k)
            aboveAllLater = entries[i].score > entries[k].score;
        if (aboveAllLater) return i;
    }
    return -1;
}

void ApplyChoice(SizeSearch& search) {
    const int chosen = ChooseSize(search.entries.data(), search.count);
    if (chosen < 0) return;
    const SizeEntry& e = search.entries[static_cast<size_t>(chosen)];
    search.tx = static_cast<int64_t>(e.tx);
    search.ty = static_cast<int64_t>(e.ty);
    search.position = TipPosition{e.x, e.y};
}

// ---------------------------------------------------------------------------
// The shared flow
// ---------------------------------------------------------------------------

PinRun::PinRun(const char* tag, const PinFindArgs& args, ImageStore& store)
    : m_tag(tag), m_args(args), m_store(store), m_canvas(480, 480) {}

void PinRun::Start() {
    VBcvTrace("%s Start \n", m_tag);
}

void PinRun::CheckSizes() {
    if (m_args.tx < 4 || m_args.ty < 4)
        throw Fail(12).Line("%s Fail : Parameter Error (Too small tx or ty)\n", m_tag);
    if (m_args.sx % 4 != 0 || m_args.sy % 4 != 0)
        throw Fail(11).Line("%s Fail : Parameter Error (sx or sy is not a multiple of 4)\n", m_tag);
}

void PinRun::Prepare() {
    const PinFindArgs& a = m_args;
    m_loadedGray = m_store.Read(kPinInputImage, cv::IMREAD_GRAYSCALE);
    m_loadedColour = m_store.Read(kPinInputImage, cv::IMREAD_COLOR);
    if (m_loadedGray.empty() || m_loadedColour.empty())
        throw Fail(2).Line("%s Fail : File Error\n", m_tag);

    // The search area from the middle of the 480 x 480 camera image. An area
    // that does not fit the image is refused like an unreadable file.
    const int x = 240 - a.sx / 2, y = 240 - a.sy / 2;
    m_gray = CutRegion(m_loadedGray, x, y, a.sx, a.sy);
    m_colour = CutRegion(m_loadedColour, x, y, a.sx, a.sy);
    if (m_gray.empty() || m_colour.empty()) throw Fail(2).Line("%s Fail : File Error\n", m_tag);

    m_mask = cv::Mat::zeros(a.sy, a.sx, CV_8UC1);
    cv::circle(m_mask, cv::Point(a.sx / 2, a.sy / 2), a.sx / 2, kWhite, cv::FILLED, cv::LINE_8);

    m_edge = PinEdgeImage(m_gray);
    SaveDebugImage(m_store, DebugFile(L"pinEdge.jpg"), m_edge);

    // The blob: Otsu, small pieces dropped, convex hull; its circle and box.
    cv::Mat binary, blobs, hull;
    cv::threshold(m_edge, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    AreaFilterContours(binary, blobs, 10.0);
    ConvexHullImage(blobs, hull);
    m_totalEdge = cv::sum(m_edge)[0];
    cv::Mat circleImage = cv::Mat::zeros(m_edge.size(), CV_8UC1);
    cv::Mat boxImage = cv::Mat::zeros(m_edge.size(), CV_8UC1);
    m_circle = EnclosingCircleOf(hull, circleImage);
    m_box = BoundingBoxOf(hull, boxImage, -1);

    m_maxEdge = MaxEdge(a.sType, a.tx, a.ty);
    // An unknown tip shape has no area; its ratio is taken as unbounded.
    m_ratio = m_maxEdge > 0 ? m_totalEdge / m_maxEdge : std::numeric_limits<double>::infinity();
    PaintMeasures();
    SaveDebugImage(m_store, DebugFile(L"pinECircle.jpg"), circleImage);
    SaveDebugImage(m_store, DebugFile(L"pinBox.jpg"), boxImage);

    TestBlob();
}

void PinRun::PaintMeasures() {
    const PinFindArgs& a = m_args;
    for (int i = 0; i < 24; ++i)
        m_canvas.Put(0, 10 + 20 * i, kRuleColour, "-------------------------------------");
    m_canvas.Put(5, 40, kWhite, "SS(%d, %d), PS(%d, %d)", a.sx, a.sy, a.tx, a.ty);
    m_canvas.Put(5, 60, kWhite, "AMD : %0.0lf, TED : %0.0lf, (%0.4lf)", m_maxEdge, m_totalEdge,
                 m_ratio);
    if (KnownShape(a.sType) && KnownShape(a.aType))
        m_canvas.Put(5, 20, kWhite, "S Type : %s, A Type : %s", ShapeName(a.sType),
                     ShapeName(a.aType));
    m_canvas.Put(5, 80, kWhite, "EC : Center(%d, %d), Rad(%0.0lf)", m_circle.center.x,
                 m_circle.center.y, m_circle.radius);
    m_canvas.Put(5, 100, kWhite, "BR : Center(%d, %d), Size(%0.0lf, %0.0lf)", m_box.center.x,
                 m_box.center.y, m_box.width, m_box.height);
}

void PinRun::TestBlob() {
    const PinFindArgs& a = m_args;
    if (!(m_totalEdge > 0))
        throw Fail(3).Line("%s Fail : Too few edge data Error(0 < 0.01)\n", m_tag);
    if (m_ratio < a.edgeRatioThreshold)
        RaiseError(
            Fail(3).Line("%s Fail : Too few edge data Error(%0.4lf < 0.01)\n", m_tag, m_ratio),
            {Format("Threshold : %0.3lf", a.edgeRatioThreshold),
             Format("(Total Edge/Max Edge)%0.4lf < Threshold", m_ratio)});
    if (m_box.width == 0)
        RaiseError(Fail(4).Line("%s Fail : Box is not exist.\n", m_tag), {"Threshold : X"});

    // Too small a blob for the tip, and for a round tip too large a circle.
    // A divisor of 0 asks for a blob of unbounded size.
    const auto shrunk = [&](int size) {
        return a.sizeDivisor == 0.0 ? std::numeric_limits<double>::infinity()
                                    : size / a.sizeDivisor;
    };
    const Fail tooSmall = Fail(5).Line(
        "%s Fail : Box Size Error(MIN), User size(%d, %d), Bounding size(%0.0lf, %0.0lf)\n", m_tag,
        a.tx, a.ty, m_box.width, m_box.height);
    if (a.sType == CIRCLE && shrunk(a.tx) > m_circle.radius)
        RaiseError(tooSmall,
                   {Format("Threshold : %0.0lf", a.sizeDivisor),
                    Format("Circle Rad(%0.0lf) < (Pin Rad(%d)/Threshold)", m_circle.radius, a.tx)});
    if (a.sType == RECTANGLE && (shrunk(a.tx) > m_box.width || shrunk(a.ty) > m_box.height))
        RaiseError(tooSmall, {Format("Threshold : %0.0lf", a.sizeDivisor),
                              Format("Box sx(%0.0lf) < (Pin sx(%d)/Threshold) or Box sy(%0.0lf) < "
                                     "(Pin sy(%d)/Threshold)",
                                     m_box.width, a.tx, m_box.height, a.ty)});
    if (a.sType == CIRCLE && m_circle.radius > a.maxCircleRadius)
        RaiseError(Fail(6).Line("%s Fail : EC Size Error(MAX), EC Rad : (%0.0lf), more than 280\n",
                                m_tag, m_circle.radius),
                   {Format("Threshold : %0.0lf", a.maxCircleRadius),
                    Format("Circle Rad(%0.0lf) > (Threshold)", m_circle.radius)});

    // A blob smaller than the tip may be a tip cut by the border: ask for a
    // stage move when it touches sides that leave an axis to move on.
    if (m_box.width >= a.tx && m_box.height >= a.ty) return;
    const BorderMove move =
        BorderMoveOf(BorderFlagsOf(m_box, a.sx, a.sy), m_box, a.sx, a.sy, a.tx, a.ty);
    if (move.label)
        RaiseError(
            Fail(7).Line("[%s, %0.0lf, %0.0lf]\n", move.label, move.x, move.y),
            {"Threshold : X", Format("Move to coordinate(X : %0.0lf, Y : %0.0lf)", move.x, move.y)},
            move.x, move.y);
}

void PinRun::RaiseError(const Fail& fail, std::initializer_list<std::string> lines, double x,
                        double y) {
    m_canvas.Put(5, 140, kWhite, "[Error Occured : %d]", fail.Code());
    int row = 160;
    for (const std::string& line : lines) {
        m_canvas.Put(5, row, kWhite, "%s", line.c_str());
        row += 20;
    }
    if (DebugImagesEnabled()) m_store.Write(DebugFile(L"pinDebug.jpg"), m_canvas.Image());
    m_resultX = x;
    m_resultY = y;
    throw fail;
}

PinFindResult PinRun::Finish(int64_t tx, int64_t ty, TipPosition position, bool anyCornerInArea,
                             cv::Mat* alsoMark) {
    const PinFindArgs& a = m_args;
    // A tip that no window of the search area can hold was never scored: its
    // position is only the scan's starting point, and reporting it as found
    // would move the probe card to nothing. It fails like a circular area
    // without a corner.
    const bool noWindowFits = tx >= static_cast<int64_t>(m_edge.cols) - 2 ||
                              ty >= static_cast<int64_t>(m_edge.rows) - 2;
    if ((a.aType == CIRCLE && !anyCornerInArea) || noWindowFits)
        RaiseError(Fail(8).Line("%s Search area & Pin Size matching Error\n", m_tag),
                   {"Threshold : X"});

    const int64_t hx = tx / 2, hy = ty / 2;
    const double centreX = static_cast<double>(hx) + position.x;
    const double centreY = static_cast<double>(hy) + position.y;
    const int cx = CutToInt(centreX), cy = CutToInt(centreY);
    const double X = centreX - a.sx / 2, Y = centreY - a.sy / 2;

    // Only an area at least 46 pixels larger than the tip can tell a tip on
    // its border.
    if (static_cast<int64_t>(a.sx) - tx >= 46 && static_cast<int64_t>(a.sy) - ty >= 46) {
        if (cx - hx < 1 || cx + hx >= a.sx - 1 || cy - hy < 1 || cy + hy >= a.sy - 1)
            RaiseError(Fail(10).Line("%s Fail : Pin on the edge\n", m_tag), {"Threshold : X"}, X,
                       Y);
    }

    MarkTip(m_colour, a.sType, cx, cy, hx, position, tx, ty);
    if (alsoMark) MarkTip(*alsoMark, a.sType, cx, cy, hx, position, tx, ty);
    SaveDebugImage(m_store, DebugFile(L"pinResult.jpg"), m_colour);

    m_canvas.Put(5, 140, kWhite, "[Error Occured : X]");
    m_canvas.Put(5, 160, kWhite, "Move to coordinate(X : %0.0lf, Y : %0.0lf)", X, Y);
    SaveDebugImage(m_store, DebugFile(L"pinDebug.jpg"), m_canvas.Image());

    VBcvTrace("%s Center point(X : %0.0lf, Y : %0.0lf) \n", m_tag, X, Y);
    VBcvTrace("%s End \n", m_tag);
    return PinFindResult{X, Y, 0.0};
}

PinFindResult PinRun::Handle(const Fail& fail) {
    fail.Trace();
    const int code = fail.Code();
    bool images = code == 3 || code == 4 || code == 5 || code == 6 || code == 8 || code == 13;
    if (code == 7 || code == 10) images = PinImageSaveMode() == -1 || PinImageSaveMode() == 3;
    if (images) {
        SaveFailureImage(m_store, kPinFailureFolder, 'O', m_loadedGray);
        SaveFailureImage(m_store, kPinFailureFolder, 'P', m_edge);
    }
    return PinFindResult{m_resultX, m_resultY, static_cast<double>(code)};
}

// ---------------------------------------------------------------------------
// VBcvPinFind and VBcvPinFind_WRAP
// ---------------------------------------------------------------------------

PinFindResult PinFind(const PinFindArgs& args, ImageStore& store) noexcept {
    return RunPinSearch("[VBcvPinFind]", args, store, [](PinRun& run) {
        TraceVersion();
        run.Start();
        run.CheckSizes();
        run.Prepare();
        SizeSearch search =
            SearchSizes(run.Edge(), run.Mask(), run.Args(), static_cast<float>(run.Box().width));
        ApplyChoice(search);
        return run.Finish(search.tx, search.ty, search.position, search.anyCornerInArea);
    });
}

PinFindResult PinFindWrap(const PinFindArgs& args, int saveMode, ImageStore& store) noexcept {
    RunGuarded(
        0,
        [] {
            TraceVersion();
            return 0;
        },
        [] { return 0; });
    SetPinImageSaveMode(saveMode);
    return PinFind(args, store);
}

}  // namespace pixmill::inspect::pin
