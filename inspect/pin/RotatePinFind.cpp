#include "inspect/pin/RotatePinFind.h"

#include <array>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "framework/DebugImages.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinImage.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pin {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kLeastMeanEdge = 30.0;  // mean edge under the box, 0..255
// How many rotated images may wait for scoring; the rotation worker pauses
// beyond this, so memory stays bounded however many angles there are.
constexpr int kMaxWaiting = 8;

const char* const kTag = "[VBcvRotatePinFind]";
const PinFindResult kFailed{-1.0, -1.0, -1.0};
const cv::Scalar kWhite(255, 255, 255, 0);
const cv::Scalar kGreen(0, 255, 0, 0);

std::wstring DebugFile(const wchar_t* name) {
    return std::wstring(kPinDebugFolder) + name;
}

AngleScore ScoreOne(const cv::Mat& rotated, int degrees, int tx, int ty) {
    AngleScore a;
    a.degrees = degrees;
    a.width = rotated.cols;
    a.height = rotated.rows;
    cv::Mat S;
    IntegralImage(rotated, S);
    TipPosition p;
    const CornerScan scan = ScanCorners(S, cv::Mat(), tx, ty, RECTANGLE, RECTANGLE, p);
    a.x = CutToInt(p.x);
    a.y = CutToInt(p.y);
    a.score = static_cast<float>(scan.best);
    return a;
}

// One pass on two threads. The rotation worker publishes angle i by raising
// `published` to i + 1 under the lock; the scoring worker waits for it and
// releases each image once scored, raising `scored`. Either worker's
// failure stops both and is raised again on the caller's thread once both
// are joined.
class TwoWorkerPass {
public:
    TwoWorkerPass(const cv::Mat& source, int tx, int ty, double searchAngle, double resolution,
                  int count)
        : m_source(source),
          m_tx(tx),
          m_ty(ty),
          m_searchAngle(searchAngle),
          m_resolution(resolution),
          m_count(count),
          m_images(static_cast<size_t>(count)),
          m_scores(static_cast<size_t>(count)) {}

    std::vector<AngleScore> Run() {
        std::thread rotation([this] { Guarded([this] { Rotate(); }); });
        std::thread scoring;
        try {
            scoring = std::thread([this] { Guarded([this] { Score(); }); });
        } catch (...) {
            // No second thread: stop the first, join it, and fail the pass.
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_stop = true;
                m_changed.notify_all();
            }
            rotation.join();
            throw;
        }
        rotation.join();
        scoring.join();
        if (m_error) std::rethrow_exception(m_error);
        return std::move(m_scores);
    }

private:
    template <class Work>
    void Guarded(Work&& work) noexcept {
        try {
            work();
        } catch (...) {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_error) m_error = std::current_exception();
            m_stop = true;
            m_changed.notify_all();
        }
    }

    void Rotate() {
        for (int i = 0; i < m_count; ++i) {
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_changed.wait(lock, [&] { return m_stop || i - m_scored < kMaxWaiting; });
                if (m_stop) return;
            }
            cv::Mat image =
                RotateImage(m_source, RotationDegrees(i, m_searchAngle, m_resolution));
            std::lock_guard<std::mutex> lock(m_mutex);
            m_images[static_cast<size_t>(i)] = std::move(image);
            m_published = i + 1;
            m_changed.notify_all();
        }
    }

    void Score() {
        for (int i = 0; i < m_count; ++i) {
            cv::Mat image;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_changed.wait(lock, [&] { return m_stop || m_published > i; });
                if (m_stop) return;
                image = std::move(m_images[static_cast<size_t>(i)]);
            }
            m_scores[static_cast<size_t>(i)] =
                ScoreOne(image, RotationDegrees(i, m_searchAngle, m_resolution), m_tx, m_ty);
            std::lock_guard<std::mutex> lock(m_mutex);
            m_scored = i + 1;
            m_changed.notify_all();
        }
    }

    const cv::Mat& m_source;
    const int m_tx, m_ty;
    const double m_searchAngle, m_resolution;
    const int m_count;
    std::vector<cv::Mat> m_images;
    std::vector<AngleScore> m_scores;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_published = 0;  // angles whose image may be read
    int m_scored = 0;     // angles scored and released
    bool m_stop = false;
    std::exception_ptr m_error;
};

// The four corners of a tx x ty box centred at `centre` in the rotated
// image of `a`, turned back into a w x h source.
std::array<cv::Point, 4> BoxCorners(const AngleScore& a, cv::Point2d centre, int tx, int ty, int w,
                                    int h) {
    std::array<cv::Point, 4> corners;
    const double hx = tx * 0.5, hy = ty * 0.5;
    const cv::Point2d rel[4] = {{-hx, -hy}, {hx, -hy}, {hx, hy}, {-hx, hy}};
    for (int k = 0; k < 4; ++k) {
        const cv::Point2d p = TurnBack(a, w, h, centre + rel[k]);
        corners[static_cast<size_t>(k)] = cv::Point(CutToInt(p.x), CutToInt(p.y));
    }
    return corners;
}

// Fills, in white on `mask`, a strip of the rotated image turned back.
void FillStrip(cv::Mat& mask, const AngleScore& a, cv::Point2d p0, cv::Point2d p1, cv::Point2d p2,
               cv::Point2d p3) {
    std::vector<cv::Point> poly;
    for (const cv::Point2d& p : {p0, p1, p2, p3}) {
        const cv::Point2d q = TurnBack(a, mask.cols, mask.rows, p);
        poly.emplace_back(CutToInt(q.x), CutToInt(q.y));
    }
    cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{poly}, kWhite, cv::LINE_8);
}

}  // namespace

// ---------------------------------------------------------------------------
// Steps
// ---------------------------------------------------------------------------

cv::Mat RotateEdgeSource(ImageStore& store, const std::string& path, int frameCount, int sx,
                         int sy) {
    cv::Mat merged;
    cv::Size frameSize;
    if (path.empty()) return merged;  // no series is named
    for (int k = 0; k < frameCount; ++k) {
        const std::wstring name = platform::FromUtf8(Format("%s%d.bmp", path.c_str(), k));
        const cv::Mat frame = store.Read(name, cv::IMREAD_GRAYSCALE);
        if (frame.empty() || (k > 0 && frame.size() != frameSize)) return cv::Mat();
        frameSize = frame.size();
        const cv::Mat area = CutRegion(frame, 240 - sx / 2, 240 - sy / 2, sx, sy);
        if (area.empty()) return cv::Mat();
        cv::Mat edge = MultiScaleEdge(area);
        ClearFrameAndBelow(edge, GrayMean(edge));
        if (merged.empty())
            merged = edge;
        else
            cv::max(merged, edge, merged);
    }
    return merged;
}

int RotationDegrees(int index, double searchAngle, double resolution) {
    return CutToInt(index * resolution - searchAngle);
}

cv::Mat RotateImage(const cv::Mat& source, int degrees) {
    const double r = degrees * kPi / 180.0;
    const double s = std::sin(r), c = std::cos(r);
    const int w = source.cols, h = source.rows;
    const int W = CutToInt(w * std::fabs(c) + h * std::fabs(s));
    const int H = CutToInt(h * std::fabs(c) + w * std::fabs(s));
    cv::Mat m = cv::getRotationMatrix2D(cv::Point2f(static_cast<float>(w / 2),
                                                    static_cast<float>(h / 2)),
                                        degrees, 1.0);
    m.at<double>(0, 2) += (W - w) / 2;
    m.at<double>(1, 2) += (H - h) / 2;
    cv::Mat rotated;
    cv::warpAffine(source, rotated, m, cv::Size(W, H), cv::INTER_LINEAR | cv::WARP_FILL_OUTLIERS,
                   cv::BORDER_CONSTANT, cv::Scalar::all(0));
    return rotated;
}

std::vector<AngleScore> ScoreRotations(const cv::Mat& source, int tx, int ty, double searchAngle,
                                       double resolution, int angleCount, bool twoWorkers) {
    if (angleCount <= 0) return {};
    if (twoWorkers)
        return TwoWorkerPass(source, tx, ty, searchAngle, resolution, angleCount).Run();
    std::vector<AngleScore> scores;
    scores.reserve(static_cast<size_t>(angleCount));
    for (int i = 0; i < angleCount; ++i) {
        const int d = RotationDegrees(i, searchAngle, resolution);
        scores.push_back(ScoreOne(RotateImage(source, d), d, tx, ty));
    }
    return scores;
}

int BestAngle(const std::vector<AngleScore>& scores) {
    float best = 0.0f;
    int index = -1;
    for (size_t i = 0; i < scores.size(); ++i) {
        if (scores[i].score > best) {
            best = scores[i].score;
            index = static_cast<int>(i);
        }
    }
    return index;
}

cv::Point2d TurnBack(const AngleScore& a, int width, int height, cv::Point2d p) {
    // The inverse of RotateImage: remove the canvas shift and the centre,
    // turn by the angle, add the centre again.
    const double r = a.degrees * kPi / 180.0;
    const double s = std::sin(r), c = std::cos(r);
    const double cx = width / 2, cy = height / 2;
    const double x = p.x - (a.width - width) / 2 - cx;
    const double y = p.y - (a.height - height) / 2 - cy;
    return {x * c - y * s + cx, x * s + y * c + cy};
}

cv::Point2d RefineCentre(const cv::Mat& rotated, const AngleScore& a, int tx, int ty) {
    // The edge band of an outline is up to 4 pixels wide on either side
    // (the quarter-scale gradient), so a box of the tip's own size can
    // slide by about that much for nearly the same sum. The edge mass of
    // the tip with its whole outline is centred on the tip: take its
    // centroid in a window 6 pixels larger on each side, twice, each time
    // centred on the last estimate.
    constexpr int kGrow = 6;
    cv::Point2d c(a.x + (tx - 1) * 0.5, a.y + (ty - 1) * 0.5);
    const cv::Rect image(0, 0, rotated.cols, rotated.rows);
    for (int pass = 0; pass < 2; ++pass) {
        const cv::Rect window =
            cv::Rect(CutToInt(c.x - (tx - 1) * 0.5) - kGrow, CutToInt(c.y - (ty - 1) * 0.5) - kGrow,
                     tx + 2 * kGrow, ty + 2 * kGrow) &
            image;
        if (window.area() <= 0) break;
        const cv::Moments m = cv::moments(rotated(window), false);
        if (!(m.m00 > 0)) break;
        c = cv::Point2d(window.x + m.m10 / m.m00, window.y + m.m01 / m.m00);
    }
    return c;
}

// ---------------------------------------------------------------------------
// VBcvRotatePinFind
// ---------------------------------------------------------------------------

PinFindResult RotatePinFind(const RotateArgs& a, ImageStore& store, bool twoWorkers) noexcept {
    return RunGuarded(
        kFailed,
        [&]() -> PinFindResult {
            try {
                TraceVersion();
                VBcvTrace("%s Start \n", kTag);
                VBcvTrace("%s Input : FNum : %d, MaxFnum : %d, sx : %d, sy : %d, tx : %d, ty : %d, "
                          "SearchAngle : %0.0lf, AngleResolution : %0.0lf\n",
                          kTag, a.frameCount, a.maxFrames, a.sx, a.sy, a.tx, a.ty, a.searchAngle,
                          a.angleResolution);
                if (a.sx > 480 || a.sy > 480)
                    throw Fail(-1).Line("%s Fail : Search Size Error(Too Big or Too Small)\n", kTag);
                if (a.tx < 4 || a.ty < 4 || a.tx > a.sx || a.ty > a.sy)
                    throw Fail(-1).Line("%s Fail : Tip Size Error(Too small tx or ty\n", kTag);
                if (a.sx % 4 != 0 || a.sy % 4 != 0)
                    throw Fail(-1).Line(
                        "%s Fail : Search Size Error(sx or sy is not a multiple of 4)\n", kTag);
                // A resolution that is not a positive finite number, or one
                // making more than kMaxRotateAngles angles, has no pass to run.
                const double angles = (a.searchAngle + a.searchAngle) / a.angleResolution + 1.0;
                if (!(a.searchAngle >= 0 && a.searchAngle <= 180) || !(a.angleResolution > 0) ||
                    !std::isfinite(a.angleResolution) ||
                    !(angles < kMaxRotateAngles + 1))
                    throw Fail(-1).Line("%s Fail : Search Angle Error(Too Big or Too Small)\n",
                                        kTag);
                const int count = static_cast<int>(angles);

                const Fail fileError = Fail(-1).Line("%s Fail : File Error\n", kTag);
                cv::Mat source = RotateEdgeSource(store, a.path, a.frameCount, a.sx, a.sy);
                if (source.empty()) throw fileError;
                const cv::Mat unmasked = source.clone();  // for the centre: the whole outline

                // First pass, then the strips of its answer.
                std::vector<AngleScore> scores = ScoreRotations(
                    source, a.tx, a.ty, a.searchAngle, a.angleResolution, count, twoWorkers);
                int best = BestAngle(scores);
                cv::Mat mask = cv::Mat::zeros(source.size(), CV_8UC1);
                if (best >= 0) {
                    const AngleScore& f = scores[static_cast<size_t>(best)];
                    const double x = f.x, y = f.y, W = f.width, H = f.height;
                    if (a.tx <= a.ty)  // the columns strip
                        FillStrip(mask, f, {x, 0}, {x + a.tx, 0}, {x + a.tx, H - 1}, {x, H - 1});
                    if (a.tx >= a.ty)  // the rows strip
                        FillStrip(mask, f, {0, y}, {W - 1, y}, {W - 1, y + a.ty}, {0, y + a.ty});
                    cv::bitwise_and(source, mask, source);
                    scores = ScoreRotations(source, a.tx, a.ty, a.searchAngle, a.angleResolution,
                                            count, twoWorkers);
                    best = BestAngle(scores);
                }
                if (best < 0)
                    throw Fail(-1).Line("%s Fail : Too few edge data(%0.0lf)\n", kTag, 0.0);
                const AngleScore& b = scores[static_cast<size_t>(best)];

                // The tip's centre and its box in the search area.
                const cv::Point2d centre = RefineCentre(RotateImage(unmasked, b.degrees), b, a.tx, a.ty);
                const cv::Point2d P = TurnBack(b, a.sx, a.sy, centre);
                const std::array<cv::Point, 4> corners =
                    BoxCorners(b, centre, a.tx, a.ty, a.sx, a.sy);
                cv::Mat colour;
                cv::cvtColor(source, colour, cv::COLOR_GRAY2BGR);
                cv::circle(colour, cv::Point(CutToInt(P.x), CutToInt(P.y)), 2, kGreen, cv::FILLED,
                           cv::LINE_8);
                for (size_t k = 0; k < 4; ++k)
                    cv::line(colour, corners[k], corners[(k + 1) % 4], kGreen, 1, cv::LINE_8);
                if (DebugImagesEnabled()) store.Write(DebugFile(L"Rotate_Sync_Masking.jpg"), mask);
                SaveDebugImage(store, DebugFile(L"Rotate_Sync_Edge.jpg"), colour);

                for (const cv::Point& c : corners)
                    if (c.x < 0 || c.x > a.sx || c.y < 0 || c.y > a.sy)
                        throw Fail(-1).Line("%s Fail : Pin on the edge\n", kTag);
                const double score = b.score / (static_cast<double>(a.tx) * a.ty);
                if (score < kLeastMeanEdge)
                    throw Fail(-1).Line("%s Fail : Too few edge data(%0.0lf)\n", kTag, score);

                const double angle = best * a.angleResolution - a.searchAngle;
                const double mx = 240 - a.sx / 2 + P.x, my = 240 - a.sy / 2 + P.y;
                VBcvTrace("%s Result : (x, y) : P(%0.0lf, %0.0lf), M(%0.0lf, %0.0lf), Angle : "
                          "%0.0lf, Score : %0.0lf\n",
                          kTag, P.x, P.y, mx, my, angle, score);
                VBcvTrace("%s End \n", kTag);
                return PinFindResult{mx, my, angle};
            } catch (const Fail& fail) {
                fail.Trace();
                return kFailed;
            }
        },
        [&]() -> PinFindResult {
            Fail(-1).Line("%s Fail : File Error\n", kTag).Trace();
            return kFailed;
        });
}

}  // namespace pixmill::inspect::pin
