#include "inspect/pin/PinFormfactor.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinImage.h"
#include "logging/Trace.h"
#include "platform/Profile.h"

namespace pixmill::inspect::pin {

const wchar_t* const kTemporaryIni = L"C:\\PROBERFILES\\Parameter\\Temporary.ini";

namespace {

const cv::Scalar kWhite(255, 255, 255, 0);
const cv::Scalar kBlack(0, 0, 0, 0);
const cv::Scalar kRed(0, 0, 255, 0);
const cv::Scalar kGreen(0, 255, 0, 0);
const cv::Scalar kBlue(255, 0, 0, 0);
constexpr int kBorder = 10;       // EX2: a plate side this close to the border is cut
// EX and Formfactor: a plate must keep off the 5-pixel frame. The edge
// image has no pixel in that frame, so a plate cut by the area starts at
// 5: keeping off means a margin of 6.
constexpr int kFrame = 6;
// Formfactor: how much darker than the rest of its plate a base must be.
// A window at a plate's corner takes in a little background and reads
// about 10 darker without any base.
constexpr double kBaseContrast = 40.0;

const PinFindResult kFailed{-1.0, -1.0, -1.0};

std::wstring DebugFile(const wchar_t* name) {
    return std::wstring(kPinDebugFolder) + name;
}

// Contours of a binary image (the image is not changed), walked along the
// outermost level in order, as (x, y, w, h) boxes.
std::vector<cv::Rect> OuterBoxes(const cv::Mat& binary) {
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::Mat work = binary.clone();
    cv::findContours(work, contours, hierarchy, cv::RETR_TREE, cv::CHAIN_APPROX_SIMPLE);
    std::vector<cv::Rect> boxes;
    if (contours.empty()) return boxes;
    int first = 0;
    while (first < static_cast<int>(hierarchy.size()) && hierarchy[first][3] >= 0) ++first;
    for (int i = first; i >= 0 && i < static_cast<int>(contours.size()); i = hierarchy[i][0])
        boxes.push_back(cv::boundingRect(contours[i]));
    return boxes;
}

// Mean of the gray image over `r` clipped to it; 0 for no area.
struct AreaSum {
    double sum = 0;
    double count = 0;
};
AreaSum SumOver(const cv::Mat& gray, cv::Rect r) {
    r &= cv::Rect(0, 0, gray.cols, gray.rows);
    if (r.area() <= 0) return {};
    return {cv::sum(gray(r))[0], static_cast<double>(r.area())};
}
double MeanOf(const AreaSum& s) {
    return s.count > 0 ? s.sum / s.count : 0.0;
}

bool InsideMargin(const PlatePiece& p, int margin, int sx, int sy) {
    const auto in = [&](int v, int size) { return v >= margin && v < size - margin; };
    return in(p.left, sx) && in(p.right, sx) && in(p.top, sy) && in(p.bottom, sy);
}

// The search area of the pin camera image, gray and in colour. An
// unreadable file or an area that does not fit the image is a file error.
struct SearchArea {
    cv::Mat gray, colour;
};
SearchArea LoadArea(ImageStore& store, int sx, int sy, const Fail& fileError) {
    const cv::Mat loaded = store.Read(kPinInputImage, cv::IMREAD_GRAYSCALE);
    if (loaded.empty()) throw fileError;
    SearchArea a;
    a.gray = CutRegion(loaded, 240 - sx / 2, 240 - sy / 2, sx, sy);
    if (a.gray.empty()) throw fileError;
    cv::cvtColor(a.gray, a.colour, cv::COLOR_GRAY2BGR);
    return a;
}

// Steps 12 to 20 of the measuring searches: the plate's sides from its
// brightness profiles, the marks, the result image and the gray levels.
struct PlateMeasure {
    double left = 0, top = 0, right = 0, bottom = 0;
    double centreX = 0, centreY = 0, width = 0, height = 0;
    double plate = 0, base = 0, onlyPlate = 0;
};
PlateMeasure MeasurePlate(SearchArea& area, const PlatePiece& piece, int baseWidth,
                          int baseHeight, double distanceX, double distanceY, const char* tag,
                          ImageStore& store) {
    const cv::Mat& g = area.gray;
    const cv::Rect r(piece.left, piece.top, piece.right - piece.left + 1,
                     piece.bottom - piece.top + 1);
    std::vector<double> rows(static_cast<size_t>(r.height)), cols(static_cast<size_t>(r.width));
    for (int y = 0; y < r.height; ++y)
        rows[static_cast<size_t>(y)] = cv::mean(g(cv::Rect(r.x, r.y + y, r.width, 1)))[0];
    for (int x = 0; x < r.width; ++x)
        cols[static_cast<size_t>(x)] = cv::mean(g(cv::Rect(r.x + x, r.y, 1, r.height)))[0];
    const ProfileEdges v = FindProfileEdges(rows), h = FindProfileEdges(cols);

    PlateMeasure m;
    m.left = r.x + h.first;
    m.right = r.x + h.last;
    m.top = r.y + v.first;
    m.bottom = r.y + v.last;
    const int l = CutToInt(m.left), t = CutToInt(m.top), rt = CutToInt(m.right),
              b = CutToInt(m.bottom);
    cv::Mat& c = area.colour;
    cv::line(c, {l, t}, {rt, t}, kGreen, 1, cv::LINE_8);
    cv::line(c, {rt, t}, {rt, b}, kGreen, 1, cv::LINE_8);
    cv::line(c, {rt, b}, {l, b}, kGreen, 1, cv::LINE_8);
    cv::line(c, {l, b}, {l, t}, kGreen, 1, cv::LINE_8);
    for (cv::Point p : {cv::Point(l, t), cv::Point(rt, t), cv::Point(rt, b), cv::Point(l, b)})
        cv::circle(c, p, 2, kRed, cv::FILLED, cv::LINE_8);

    m.centreX = (m.left + m.right) * 0.5;
    m.centreY = (m.top + m.bottom) * 0.5;
    m.width = m.right - m.left;
    m.height = m.bottom - m.top;

    const double bcx = m.centreX + distanceX, bcy = m.centreY + distanceY;
    const cv::Point b0(CutToInt(bcx - baseWidth / 2), CutToInt(bcy - baseHeight / 2));
    const cv::Point b1(CutToInt(bcx + baseWidth / 2), CutToInt(bcy + baseHeight / 2));
    DrawArrow(c, cv::Point(CutToInt(m.centreX), CutToInt(m.centreY)),
              cv::Point(CutToInt(bcx), CutToInt(bcy)), kBlue);
    cv::rectangle(c, b0, b1, kBlue, 0, cv::LINE_8);
    SaveDebugImage(store, DebugFile(L"pinResult_Formfactor_EX.jpg"), c);
    VBcvTrace("%s Corner Pos : (%d, %d) - (%d, %d), %d, %d \n", tag, l, t, rt, b,
              CutToInt(m.width), CutToInt(m.height));

    // Gray levels: the plate, the base, and the plate without the base.
    const cv::Rect plateRect(l, t, rt - l, b - t);
    const cv::Rect baseRect(b0.x, b0.y, b1.x - b0.x, b1.y - b0.y);
    const AreaSum plate = SumOver(g, plateRect), base = SumOver(g, baseRect);
    const AreaSum shared = SumOver(g, plateRect & baseRect);
    m.plate = MeanOf(plate);
    m.base = MeanOf(base);
    m.onlyPlate = MeanOf({plate.sum - shared.sum, plate.count - shared.count});
    return m;
}

void TraceLevels(const char* tag, const PlateMeasure& m) {
    VBcvTrace("%s PLATE : %0.1lf, BASE : %0.1lf, ONLY PLATE : %0.1lf\n", tag, m.plate, m.base,
              m.onlyPlate);
    VBcvTrace("%s DIFF(PLATE - BASE) : %0.1lf\n", tag, m.plate - m.base);
}

// Runs one search; a Fail and anything else that escapes give (-1, -1, -1).
template <class Body>
PinFindResult Guard(const char* tag, Body&& body) noexcept {
    return RunGuarded(
        kFailed,
        [&]() -> PinFindResult {
            try {
                return body();
            } catch (const Fail& fail) {
                fail.Trace();
                return kFailed;
            }
        },
        [&]() -> PinFindResult {
            Fail(-1).Line("%s Fail : File Error\n", tag).Trace();
            return kFailed;
        });
}

}  // namespace

// ---------------------------------------------------------------------------
// Shared steps
// ---------------------------------------------------------------------------

PlateBlobs FindPlateBlobs(const cv::Mat& gray, int baseWidth, int baseHeight) {
    // First level: the gradient image without its frame, its weak pixels and
    // its weak tiles.
    cv::Mat first;
    SobelEdgeImage(gray, first);
    const double m = GrayMean(first);
    ClearFrameAndBelow(first, m);
    ClearWeakTiles(first, m);

    // Second level: what is weak among the remaining pixels goes too.
    PlateBlobs blobs;
    blobs.filled = first.clone();
    const double n = GrayMeanNonZero(blobs.filled);
    blobs.filled.setTo(0, first < n);

    // Every blob becomes its solid bounding box; crumbs become black.
    for (const cv::Rect& r : OuterBoxes(blobs.filled)) {
        const bool crumb = r.width < (baseWidth >> 2) || r.height < (baseHeight >> 2);
        cv::rectangle(blobs.filled, r.tl(), cv::Point(r.x + r.width - 1, r.y + r.height - 1),
                      crumb ? kBlack : kWhite, cv::FILLED, cv::LINE_8);
    }
    for (const cv::Rect& r : OuterBoxes(blobs.filled)) {
        PlatePiece p;
        p.left = r.x;
        p.top = r.y;
        p.right = r.x + r.width - 1;
        p.bottom = r.y + r.height - 1;
        p.width = r.width;
        p.height = r.height;
        if (p.height > baseHeight / 2 && p.width > baseWidth / 2) blobs.pieces.push_back(p);
    }
    return blobs;
}

PlateMargins ReadPlateMargins(int plateHeight) {
    PlateMargins m;
    m.x = platform::ProfileInt(kTemporaryIni, L"PINALIGN", L"FormFactorMarginX", 10);
    m.y = platform::ProfileInt(kTemporaryIni, L"PINALIGN", L"FormFactorMarginY", 10);
    // Both are held to half the plate's height.
    if (m.x > plateHeight / 2) m.x = 10;
    if (m.y > plateHeight / 2) m.y = 10;
    return m;
}

void MergePlatePieces(const cv::Mat& filled, std::vector<PlatePiece>& pieces, int plateWidth,
                      int plateHeight, PlateMargins margins, const char* tag) {
    VBcvTrace("[VBcvPinFind_Formfactor] Start Plate Merge Task \n");
    for (PlatePiece& p : pieces)
        p.centroid = BrightCentroid(filled, p.left, p.top, p.left + p.width, p.top + p.height);

    // The centre piece: nearest to the area centre, strictly nearer wins.
    const double cx = filled.cols / 2, cy = filled.rows / 2;
    double nearest = 9999999.0;
    size_t centre = 0;
    for (size_t i = 0; i < pieces.size(); ++i) {
        const double d = std::hypot(pieces[i].centroid.x - cx, pieces[i].centroid.y - cy);
        if (d < nearest) {
            nearest = d;
            centre = i;
        }
    }

    // Too many pieces in the centre piece's band cannot be one plate.
    const double band = plateHeight / 2;
    int inBand = 0;
    for (const PlatePiece& p : pieces)
        if (std::fabs(static_cast<double>(p.centroid.y - pieces[centre].centroid.y)) < band)
            ++inBand;
    if (inBand >= 4)
        throw Fail(-1).Line("%s Fail : There are too many the piece of plate : %d\n", tag, inBand);

    // The one partner whose union with the centre piece has the plate's size.
    int fitting = 0;
    size_t partner = 0;
    PlatePiece merged;
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i == centre) continue;
        const PlatePiece& a = pieces[centre];
        const PlatePiece& b = pieces[i];
        PlatePiece u;
        u.left = std::min(a.left, b.left);
        u.right = std::max(a.right, b.right);
        u.top = std::min(a.top, b.top);
        u.bottom = std::max(a.bottom, b.bottom);
        u.width = u.right - u.left + 1;
        u.height = u.bottom - u.top + 1;
        VBcvTrace("[VBcvPinFind_Formfactor] Merged Plate Size : (%d, %d)\n", u.width, u.height);
        const bool fits = std::abs(static_cast<int64_t>(u.width) - plateWidth) <= margins.x &&
                          std::abs(static_cast<int64_t>(u.height) - plateHeight) <= margins.y;
        if (!fits) continue;
        if (++fitting > 1)
            throw Fail(-1).Line("%s Fail : Can not find pair of plate : %d\n", tag, fitting);
        partner = i;
        merged = u;
    }
    if (fitting == 1) {
        // The higher index of the pair keeps the union; the lower one goes.
        const size_t keep = std::max(centre, partner), drop = std::min(centre, partner);
        merged.centroid = pieces[keep].centroid;
        pieces[keep] = merged;
        pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(drop));
    }
    VBcvTrace("[VBcvPinFind_Formfactor] End Plate Merge Task \n");
}

ProfileEdges FindProfileEdges(const std::vector<double>& profile) {
    const int n = static_cast<int>(profile.size());
    ProfileEdges e;
    e.first = 0;
    e.last = n > 0 ? n - 1 : 0;
    double bestRise = -1e300, bestFall = -1e300;
    for (int i = 1; i <= n - 2; ++i) {
        if (i <= n * 0.25) {
            const double step = profile[static_cast<size_t>(i)] - profile[static_cast<size_t>(i - 1)];
            if (step >= bestRise) {
                bestRise = step;
                e.first = i;
            }
        }
        if (i > n * 0.75) {
            const double step = profile[static_cast<size_t>(i)] - profile[static_cast<size_t>(i + 1)];
            if (step >= bestFall) {
                bestFall = step;
                e.last = i;
            }
        }
    }
    return e;
}

// ---------------------------------------------------------------------------
// VBcvPinFind_Formfactor_EX2
// ---------------------------------------------------------------------------

PinFindResult PinFormfactorEX2(const FormfactorArgs& a, ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinFind_Formfactor_EX2]";
    return Guard(tag, [&]() -> PinFindResult {
        TraceVersion();
        VBcvTrace("%s Start \n", tag);
        const PlateMargins margins = ReadPlateMargins(a.plateHeight);
        VBcvTrace("%s search area(%d, %d), Plate Size(%d, %d), Base Size(%d, %d), Distance(%0.1lf, "
                  "%0.1lf), Plate Size Margin(%d, %d), Thres1 : %0.1lf, Thres2 : %0.1lf\n",
                  tag, a.sx, a.sy, a.plateWidth, a.plateHeight, a.baseWidth, a.baseHeight,
                  a.distanceX, a.distanceY, margins.x, margins.y, a.th1, a.th2);

        // The base must lie inside the plate; a distance that is not a
        // number cannot be placed and fails the same way.
        const double bx = a.plateWidth / 2 + a.distanceX, by = a.plateHeight / 2 + a.distanceY;
        const Fail relation =
            Fail(-1).Line("%s Fail : Parameter Error (Relationship of parameters is abnormal)\n", tag);
        if (!(bx + a.baseWidth / 2 <= a.plateWidth && bx - a.baseWidth / 2 >= 0)) throw relation;
        if (!(by + a.baseHeight / 2 <= a.plateHeight && by - a.baseHeight / 2 >= 0)) throw relation;
        if (a.baseWidth < 4 || a.baseHeight < 4)
            throw Fail(-1).Line("%s Fail : Parameter Error (Too small tx or ty)\n", tag);
        if (a.sx % 4 != 0 || a.sy % 4 != 0)
            throw Fail(-1).Line("%s Fail : Parameter Error (sx or sy is not a multiple of 4)\n", tag);
        if (!(a.th1 >= 0 && a.th1 <= 255))
            throw Fail(-1).Line("%s Fail : Parameter Error (TH1 is wrong)\n", tag);
        SearchArea area = LoadArea(store, a.sx, a.sy, Fail(-1).Line("%s Fail : File Error\n", tag));

        PlateBlobs blobs = FindPlateBlobs(area.gray, a.baseWidth, a.baseHeight);
        std::vector<PlatePiece>& pieces = blobs.pieces;
        for (const PlatePiece& p : pieces)
            cv::rectangle(area.colour, {p.left, p.top}, {p.right, p.bottom}, kRed, 1, cv::LINE_8);
        const Fail countError = Fail(-1).Line("%s Fail : Plate count is wrong : %d\n", tag,
                                              static_cast<int>(pieces.size()));
        if (pieces.empty()) throw countError;
        if (pieces.size() >= 2)
            MergePlatePieces(blobs.filled, pieces, a.plateWidth, a.plateHeight, margins, tag);
        if (pieces.empty()) throw countError;

        const PlatePiece* plate = nullptr;
        if (pieces.size() == 1) {
            const PlatePiece& p = pieces.front();
            if (!InsideMargin(p, kBorder, a.sx, a.sy)) {
                // Cut by the search area: point the stage at what is seen.
                const double X = (p.left + p.right) / 2 - a.sx / 2;
                const double Y = (p.top + p.bottom) / 2 - a.sy / 2;
                VBcvTrace("%s Retry : Return coordinate = (%0.0lf, %0.0lf)\n", tag, X, Y);
                return PinFindResult{X, Y, 7.0};
            }
            plate = &p;
        } else {
            int inside = 0;
            for (const PlatePiece& p : pieces) {
                if (!InsideMargin(p, kBorder, a.sx, a.sy)) continue;
                ++inside;
                plate = &p;
            }
            if (inside != 1)
                throw Fail(-1).Line("%s Fail : Plate count is wrong : %d\n", tag, inside);
        }

        const PlateMeasure m = MeasurePlate(area, *plate, a.baseWidth, a.baseHeight, a.distanceX,
                                            a.distanceY, tag, store);
        if (!(std::fabs(m.width - a.plateWidth) <= a.th2 &&
              std::fabs(m.height - a.plateHeight) <= a.th2))
            throw Fail(-1).Line("%s Fail : Detected plate size is abnormal(%0.0lf, %0.0lf, %d, %d)\n",
                                tag, m.width, m.height, a.plateWidth, a.plateHeight);
        TraceLevels(tag, m);
        if (a.skipDifference == 0 && m.plate - m.base < a.th1)
            throw Fail(-1).Line("%s Fail : A set of values(px, py, tx, ty) that can go wrong or "
                                "false detection.\n",
                                tag);
        VBcvTrace("%s End\n", tag);
        return PinFindResult{m.centreX - a.sx / 2, m.centreY - a.sy / 2, 0.0};
    });
}

// ---------------------------------------------------------------------------
// VBcvPinFind_Formfactor_EX
// ---------------------------------------------------------------------------

PinFindResult PinFormfactorEX(const FormfactorArgs& a, ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinFind_Formfactor_EX]";
    return Guard(tag, [&]() -> PinFindResult {
        TraceVersion();
        VBcvTrace("%s Start \n", tag);
        VBcvTrace("%s search area(%d, %d), Detect area(%d, %d), Distance(%0.1lf, %0.1lf), "
                  "Threshold1 : %0.1lf\n",
                  tag, a.sx, a.sy, a.baseWidth, a.baseHeight, a.distanceX, a.distanceY, a.th1);
        if (a.baseWidth < 4 || a.baseHeight < 4)
            throw Fail(-1).Line("%s Fail : Parameter Error (Too small tx or ty)\n", tag);
        if (a.sx % 4 != 0 || a.sy % 4 != 0)
            throw Fail(-1).Line("%s Fail : Parameter Error (sx or sy is not a multiple of 4)\n", tag);
        if (!(a.th1 >= 0 && a.th1 <= 255))
            throw Fail(-1).Line("%s Fail : Parameter Error (TH1 is wrong)\n", tag);
        SearchArea area = LoadArea(store, a.sx, a.sy, Fail(-1).Line("%s Fail : File Error\n", tag));

        PlateBlobs blobs = FindPlateBlobs(area.gray, a.baseWidth, a.baseHeight);
        for (const PlatePiece& p : blobs.pieces)
            cv::rectangle(area.colour, {p.left, p.top}, {p.right, p.bottom}, kRed, 1, cv::LINE_8);
        if (blobs.pieces.size() != 1)
            throw Fail(-1).Line("%s Fail : Plate count is wrong : %d\n", tag,
                                static_cast<int>(blobs.pieces.size()));
        if (!InsideMargin(blobs.pieces.front(), kFrame, a.sx, a.sy))
            throw Fail(-1).Line("%s Fail : Plate's position is wrong. \n", tag);

        const PlateMeasure m = MeasurePlate(area, blobs.pieces.front(), a.baseWidth, a.baseHeight,
                                            a.distanceX, a.distanceY, tag, store);
        TraceLevels(tag, m);
        // A difference that is not a number is no difference.
        if (!(m.plate - m.base >= a.th1))
            throw Fail(-1).Line("%s Fail : A set of values(px, py, tx, ty) that can go wrong or "
                                "false detection.\n",
                                tag);
        VBcvTrace("%s End\n", tag);
        return PinFindResult{m.centreX - a.sx / 2, m.centreY - a.sy / 2, 0.0};
    });
}

// ---------------------------------------------------------------------------
// VBcvPinFind_Formfactor
// ---------------------------------------------------------------------------

namespace {

// Start of the darkest run of `window` entries of `profile`, from a first
// least sum of 9999999.0, a later run winning on an equal sum; -1 when the
// profile is shorter than the window.
int DarkestWindow(const std::vector<double>& profile, int window) {
    const int n = static_cast<int>(profile.size());
    if (window < 1 || window > n) return -1;
    double sum = 0;
    for (int i = 0; i < window; ++i) sum += profile[static_cast<size_t>(i)];
    double least = 9999999.0;
    int at = -1;
    for (int i = 0;; ++i) {
        if (sum <= least) {
            least = sum;
            at = i;
        }
        if (i + window >= n) break;
        sum += profile[static_cast<size_t>(i + window)] - profile[static_cast<size_t>(i)];
    }
    return at;
}

}  // namespace

PinFindResult PinFormfactor(int sx, int sy, int tx, int ty, ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinFind_Formfactor]";
    return RunGuarded(
        kFailed,
        [&]() -> PinFindResult {
            try {
                TraceVersion();
                VBcvTrace("%s Start \n", tag);
                VBcvTrace("%s search area(%d, %d), Detect area(%d, %d)\n", tag, sx, sy, tx, ty);
                if (tx < 4 || ty < 4)
                    throw Fail(-1).Line("%s Fail : Parameter Error (Too small tx or ty)\n", tag);
                if (sx % 4 != 0 || sy % 4 != 0)
                    throw Fail(-1).Line(
                        "%s Fail : Parameter Error (sx or sy is not a multiple of 4)\n", tag);
                if (tx != ty)
                    throw Fail(-1).Line("%s Fail : Parameter Error (tx and ty are not the same.)\n",
                                        tag);
                SearchArea area =
                    LoadArea(store, sx, sy, Fail(2).Line("[VBcvPinFindEX] Fail : File Error\n"));

                PlateBlobs blobs = FindPlateBlobs(area.gray, tx, ty);
                if (blobs.pieces.empty())
                    throw Fail(999).Line("%s Fail : Pin is not detected. \n", tag);

                // In each blob, the darkest tx-wide column window and the
                // darkest ty-high row window make its base; a base clearly
                // darker than the rest of the blob makes the blob a pin.
                int inFrame = 0, cut = 0;
                const PlatePiece* pin = nullptr;
                for (PlatePiece& p : blobs.pieces) {
                    const cv::Rect r(p.left, p.top, p.width, p.height);
                    std::vector<double> cols(static_cast<size_t>(r.width)),
                        rows(static_cast<size_t>(r.height));
                    for (int x = 0; x < r.width; ++x)
                        cols[static_cast<size_t>(x)] =
                            cv::mean(area.gray(cv::Rect(r.x + x, r.y, 1, r.height)))[0];
                    for (int y = 0; y < r.height; ++y)
                        rows[static_cast<size_t>(y)] =
                            cv::mean(area.gray(cv::Rect(r.x, r.y + y, r.width, 1)))[0];
                    const int bx = DarkestWindow(cols, tx), by = DarkestWindow(rows, ty);
                    cv::rectangle(area.colour, r.tl(), r.br() - cv::Point(1, 1), kRed, 1,
                                  cv::LINE_8);
                    if (bx < 0 || by < 0) continue;
                    const cv::Rect base(r.x + bx, r.y + by, tx, ty);
                    const AreaSum all = SumOver(area.gray, r), inBase = SumOver(area.gray, base);
                    const double rest = all.count - inBase.count;
                    if (rest <= 0) continue;
                    const double restMean = (all.sum - inBase.sum) / rest;
                    if (!(MeanOf(inBase) + kBaseContrast <= restMean)) continue;
                    cv::rectangle(area.colour, base.tl(), base.br() - cv::Point(1, 1), kBlue, 1,
                                  cv::LINE_8);
                    p.state = InsideMargin(p, kFrame, sx, sy) ? 1 : 2;
                    (p.state == 1 ? inFrame : cut) += 1;
                    pin = &p;
                }
                SaveDebugImage(store, DebugFile(L"pinResult_Formfactor.jpg"), area.colour);

                const int pins = inFrame + cut;
                if (pins > 1)
                    throw Fail(9).Line("%s Fail : several pin is detected.(%d)\n", tag, pins);
                if (pins <= 0 || !pin)
                    throw Fail(999).Line("%s Fail : Pin is not detected.(%d)\n", tag, pins);
                const double X = (pin->width / 2 + pin->left) - sx / 2;
                const double Y = (pin->height / 2 + pin->top) - sy / 2;
                if (pin->state == 2) return PinFindResult{X, Y, 7.0};
                VBcvTrace("%s End\n", tag);
                return PinFindResult{X, Y, 0.0};
            } catch (const Fail& fail) {
                fail.Trace();
                return PinFindResult{-1.0, -1.0, static_cast<double>(fail.Code())};
            }
        },
        [&]() -> PinFindResult {
            Fail(2).Line("[VBcvPinFindEX] Fail : File Error\n").Trace();
            return PinFindResult{-1.0, -1.0, 2.0};
        });
}

}  // namespace pixmill::inspect::pin
