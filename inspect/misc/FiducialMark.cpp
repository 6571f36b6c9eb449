#include "inspect/misc/FiducialMark.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::misc {

const wchar_t* const kFiducialDebugImage = L"C:\\PROBERPARAM\\ParaImg\\FiducialMark.jpg";

namespace {

const char* const kTag = "[VBcvFiducialMarkFind]";
const FiducialMarkResult kNotFound{-1.0, -1.0, -1.0};
const cv::Scalar kGreen(0, 255, 0, 0);
const cv::Scalar kRed(0, 0, 255, 0);

constexpr int kSamples = 4;  // per axis and pixel when a template is drawn

// Whether the point (u, v), taken from the mark's centre, lies on the mark.
// a, b: half the outer width and height; w: the stroke width.
bool OnMark(int markType, double u, double v, double a, double b, double w) {
    const double au = std::fabs(u), av = std::fabs(v);
    switch (markType) {
        case kCross:
            return (au <= a && av <= w / 2) || (av <= b && au <= w / 2);
        case kSquare:
            if (au > a || av > b) return false;
            return w <= 0 || !(au < a - w && av < b - w);
        case kCircle: {
            if ((u / a) * (u / a) + (v / b) * (v / b) > 1.0) return false;
            const double ia = a - w, ib = b - w;
            if (w <= 0 || ia <= 0 || ib <= 0) return true;
            return (u / ia) * (u / ia) + (v / ib) * (v / ib) >= 1.0;
        }
        default:
            return false;
    }
}

// The offset of a peak's true position from its sample by a parabola
// through the sample and its two neighbours; at most half a step.
double ParabolaOffset(double before, double at, double after) {
    const double curvature = before - 2.0 * at + after;
    if (!(curvature < 0)) return 0.0;
    return std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5);
}

Fail ParameterError() {
    return Fail(-1).Line("%s Fail : Parameter Error \n", kTag);
}

}  // namespace

int FiducialMargin(int tx, int ty) {
    return std::max(4, std::min(tx, ty) / 8);
}

cv::Mat DrawFiducialTemplate(int markType, int tx, int ty, int lineWidth) {
    const int margin = FiducialMargin(tx, ty);
    cv::Mat templ(ty + 2 * margin, tx + 2 * margin, CV_8UC1);
    const double cx = (templ.cols - 1) / 2.0, cy = (templ.rows - 1) / 2.0;
    const double a = tx / 2.0, b = ty / 2.0;
    for (int y = 0; y < templ.rows; ++y) {
        uchar* row = templ.ptr<uchar>(y);
        for (int x = 0; x < templ.cols; ++x) {
            int covered = 0;
            for (int j = 0; j < kSamples; ++j) {
                const double v = y - 0.5 + (j + 0.5) / kSamples - cy;
                for (int i = 0; i < kSamples; ++i) {
                    const double u = x - 0.5 + (i + 0.5) / kSamples - cx;
                    if (OnMark(markType, u, v, a, b, lineWidth)) ++covered;
                }
            }
            row[x] = cv::saturate_cast<uchar>(255.0 * covered / (kSamples * kSamples));
        }
    }
    return templ;
}

FiducialMarkResult FindFiducialMark(const FiducialArgs& a, ImageStore& store) noexcept {
    return RunGuarded(
        kNotFound,
        [&]() -> FiducialMarkResult {
            try {
                TraceVersion();
                VBcvTrace("%s Start \n", kTag);
                VBcvTrace("%s Input : Type : %d, tx : %d, ty : %d, Line : %d, Polarity : %d, "
                          "sx : %d, sy : %d, MinScore : %.1f\n",
                          kTag, a.markType, a.tx, a.ty, a.lineWidth, a.polarity, a.sx, a.sy,
                          a.minScore);
                if (a.markType < kCross || a.markType > kSquare || a.tx < 4 || a.ty < 4 ||
                    a.lineWidth < 0 || (a.markType == kCross && a.lineWidth < 1) ||
                    a.polarity < kDarkMark || a.polarity > kEitherMark || a.sx < 0 || a.sy < 0 ||
                    !(a.minScore >= 0.0 && a.minScore <= 100.0))
                    throw ParameterError();
                if (a.path.empty()) throw Fail(-1).Line("%s Fail : File Error \n", kTag);
                const cv::Mat gray = store.Read(platform::FromUtf8(a.path), cv::IMREAD_GRAYSCALE);
                if (gray.empty()) throw Fail(-1).Line("%s Fail : File Error \n", kTag);

                // The window, and the mark with its margin inside it.
                const int64_t ww = a.sx == 0 ? gray.cols : a.sx;
                const int64_t wh = a.sy == 0 ? gray.rows : a.sy;
                const int64_t ox = gray.cols / 2 - ww / 2, oy = gray.rows / 2 - wh / 2;
                const int margin = FiducialMargin(a.tx, a.ty);
                const int64_t tw = static_cast<int64_t>(a.tx) + 2 * margin;
                const int64_t th = static_cast<int64_t>(a.ty) + 2 * margin;
                if (ox < 0 || oy < 0 || ox + ww > gray.cols || oy + wh > gray.rows || tw > ww ||
                    th > wh)
                    throw Fail(-1).Line("%s Fail : Region Error \n", kTag);
                const cv::Rect box(static_cast<int>(ox), static_cast<int>(oy),
                                   static_cast<int>(ww), static_cast<int>(wh));
                const cv::Mat window = gray(box);

                const cv::Mat templ = DrawFiducialTemplate(a.markType, a.tx, a.ty, a.lineWidth);
                cv::Mat scores;
                cv::matchTemplate(window, templ, scores, cv::TM_CCOEFF_NORMED);
                // The template is a bright mark: a dark mark scores the
                // negated coefficient, either polarity its magnitude.
                if (a.polarity == kDarkMark) scores = -scores;
                else if (a.polarity == kEitherMark) scores = cv::abs(scores);
                double best = 0;
                cv::Point at;
                cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
                const auto score = [&](int x, int y) {
                    return static_cast<double>(scores.at<float>(y, x));
                };
                double dx = 0, dy = 0;
                if (at.x > 0 && at.x + 1 < scores.cols)
                    dx = ParabolaOffset(score(at.x - 1, at.y), best, score(at.x + 1, at.y));
                if (at.y > 0 && at.y + 1 < scores.rows)
                    dy = ParabolaOffset(score(at.x, at.y - 1), best, score(at.x, at.y + 1));
                const double localX = at.x + (templ.cols - 1) / 2.0 + dx;
                const double localY = at.y + (templ.rows - 1) / 2.0 + dy;
                const double result = std::max(0.0, best) * 100.0;
                const bool accepted = result >= a.minScore;

                cv::Mat colour;
                cv::cvtColor(window, colour, cv::COLOR_GRAY2BGR);
                const cv::Point corner(at.x + margin, at.y + margin);
                cv::rectangle(colour, cv::Rect(corner, cv::Size(a.tx, a.ty)),
                              accepted ? kGreen : kRed, 1, cv::LINE_8);
                cv::putText(colour, Format("Score : %.1f", result), cv::Point(5, 15),
                            cv::FONT_HERSHEY_SIMPLEX, 0.5, accepted ? kGreen : kRed, 1,
                            cv::LINE_8);
                SaveDebugImage(store, kFiducialDebugImage, colour);

                if (!accepted)
                    throw Fail(-1).Line("%s Fail : Low Score %.1f / %.1f \n", kTag, result,
                                        a.minScore);
                const FiducialMarkResult r{box.x + localX, box.y + localY, result};
                VBcvTrace("%s Result : X : %.2f, Y : %.2f, Score : %.1f\n", kTag, r.X, r.Y,
                          r.Score);
                VBcvTrace("%s End \n", kTag);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNotFound;
            }
        },
        [] {
            VBcvTrace("%s Fail : Exception \n", kTag);
            return kNotFound;
        });
}

}  // namespace pixmill::inspect::misc
