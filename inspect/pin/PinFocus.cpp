#include "inspect/pin/PinFocus.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinImage.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pin {

const wchar_t* const kFocusInputImage = L"C:\\PROBERPARAM\\ParaImg\\PinImage\\FocimageRef.bmp";

namespace {

const cv::Scalar kWhite(255, 255, 255, 0);
const cv::Scalar kRed(0, 0, 255, 0);
const cv::Scalar kGreen(0, 255, 0, 0);
constexpr int kRunFrame = 5;  // runs and blobs keep this far off the sides

std::wstring DebugFile(const wchar_t* name) {
    return std::wstring(kPinDebugFolder) + name;
}

// ---------------------------------------------------------------------------
// Runs along one line
// ---------------------------------------------------------------------------

// Walks one line of `n` pixels read through `at` and calls mark(start, end,
// strength) for each kept run.
template <class At, class Mark>
void WalkLine(int n, int step, At&& at, Mark&& mark) {
    int c = 0;
    while (c + 1 < n) {
        const int rise = at(c + 1) - at(c);
        if (rise < step) {
            ++c;
            continue;
        }
        // The rise may take several pixels; the run starts after its last.
        int steepestRise = rise;
        ++c;
        while (c + 1 < n && at(c + 1) - at(c) >= step) {
            steepestRise = std::max(steepestRise, at(c + 1) - at(c));
            ++c;
        }
        const int start = c;
        while (c + 1 < n && at(c) - at(c + 1) < step) ++c;
        if (c + 1 >= n) return;  // no fall: the line ends inside the run
        const int end = c;
        int steepestFall = at(c) - at(c + 1);
        ++c;
        while (c + 1 < n && at(c) - at(c + 1) >= step) {
            steepestFall = std::max(steepestFall, at(c) - at(c + 1));
            ++c;
        }
        if (start >= kRunFrame && end < n - kRunFrame)
            mark(start, end, static_cast<float>(std::min(steepestRise, steepestFall)));
    }
}

// The frames of a focus series, cut at their centre.
struct FocusFrame {
    cv::Mat area;
    cv::Point origin;  // the area's corner in the frame
};

}  // namespace

void DrawRuns(const cv::Mat& gray, int step, bool horizontal, cv::Mat& runs, cv::Mat& strength) {
    runs = cv::Mat::zeros(gray.size(), CV_8UC1);
    strength = cv::Mat::zeros(gray.size(), CV_32FC1);
    if (gray.empty() || gray.type() != CV_8UC1) return;
    const int lines = horizontal ? gray.rows : gray.cols;
    const int n = horizontal ? gray.cols : gray.rows;
    for (int k = 0; k < lines; ++k) {
        const auto at = [&](int i) -> int {
            return horizontal ? gray.at<uchar>(k, i) : gray.at<uchar>(i, k);
        };
        WalkLine(n, step, at, [&](int start, int end, float s) {
            for (int i = start; i <= end; ++i) {
                const cv::Point p = horizontal ? cv::Point(i, k) : cv::Point(k, i);
                runs.at<uchar>(p) = 255;
                strength.at<float>(p) = s;
            }
        });
    }
}

cv::Mat CollectRunBlobs(const cv::Mat& runs) {
    cv::Mat collected = cv::Mat::zeros(runs.size(), CV_8UC1);
    std::vector<std::vector<cv::Point>> contours;
    cv::Mat work = runs.clone();
    cv::findContours(work, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    for (size_t i = 0; i < contours.size(); ++i) {
        const cv::Rect r = cv::boundingRect(contours[i]);
        const double area = cv::contourArea(contours[i]);
        const bool inside = r.x >= kRunFrame && r.y >= kRunFrame &&
                            r.x + r.width <= runs.cols - kRunFrame &&
                            r.y + r.height <= runs.rows - kRunFrame;
        if (!inside || area < 10.0 || area < 0.6 * r.width * r.height) continue;
        cv::drawContours(collected, contours, static_cast<int>(i), kWhite, cv::FILLED, cv::LINE_8);
    }
    cv::bitwise_and(collected, runs, collected);
    return collected;
}

// ---------------------------------------------------------------------------
// VBcvPinFocusing
// ---------------------------------------------------------------------------

PinFocusingResult PinFocusing(const FocusingArgs& a, ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinFocusing]";
    const PinFocusingResult failed{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    return RunGuarded(
        failed,
        [&]() -> PinFocusingResult {
            try {
                TraceVersion();
                VBcvTrace("%s Start\n", tag);
                VBcvTrace("%s Input : FNum : %d, sx : %d, sy : %d, tx : %d, ty : %d, Diff : %d\n",
                          tag, a.frameCount, a.sx, a.sy, a.tx, a.ty, a.diff);
                if (a.sx < 1 || a.sy < 1 || a.tx < 8 || a.ty < 8 || a.tx > a.sx || a.ty > a.sy ||
                    a.frameCount < 1)
                    throw Fail(-1).Line("%s Fail : Parameter Error \n", tag);
                const int step = std::max(a.diff, kLeastRunStep);

                // Per direction: the sharpest frame so far, its score and box.
                struct Pick {
                    int frame = -1;
                    double score = 0;
                    cv::Rect box;
                    cv::Point origin;
                    cv::Mat colour;
                };
                Pick picks[2];  // 0: rows (S), 1: columns (T)
                cv::Size frameSize;
                if (a.path.empty()) throw Fail(-1).Line("%s Fail : File Error \n", tag);
                for (int k = 0; k < a.frameCount; ++k) {
                    const std::wstring name =
                        platform::FromUtf8(Format("%s%d.bmp", a.path.c_str(), k));
                    const cv::Mat frame = store.Read(name, cv::IMREAD_GRAYSCALE);
                    const Fail fileError = Fail(-1).Line("%s Fail : File Error \n", tag);
                    if (frame.empty() || (k > 0 && frame.size() != frameSize)) throw fileError;
                    frameSize = frame.size();
                    const cv::Point origin(frame.cols / 2 - a.sx / 2, frame.rows / 2 - a.sy / 2);
                    const cv::Mat area = CutRegion(frame, origin.x, origin.y, a.sx, a.sy);
                    if (area.empty()) throw fileError;
                    for (int d = 0; d < 2; ++d) {
                        cv::Mat runs, strength;
                        DrawRuns(area, step, d == 0, runs, strength);
                        const cv::Mat collected = CollectRunBlobs(runs);
                        const int count = cv::countNonZero(collected);
                        if (count == 0) continue;
                        // The frame's score: the mean steepness of the sides
                        // of its collected runs.
                        cv::Mat kept = cv::Mat::zeros(strength.size(), CV_32FC1);
                        strength.copyTo(kept, collected);
                        const double score = cv::sum(kept)[0] / count;
                        if (score <= picks[d].score) continue;
                        picks[d].frame = k;
                        picks[d].score = score;
                        picks[d].box = cv::boundingRect(collected);
                        picks[d].origin = origin;
                        if (d == 0) cv::cvtColor(area, picks[d].colour, cv::COLOR_GRAY2BGR);
                    }
                }
                if (picks[0].frame < 0 && picks[1].frame < 0)
                    throw Fail(-1).Line("%s Fail : Detect fail \n", tag);
                if (picks[0].frame < 0) throw Fail(-1).Line("%s Fail : First Position\n", tag);
                if (picks[1].frame < 0) throw Fail(-1).Line("%s Fail : Detect fail \n", tag);

                cv::Mat& image = picks[0].colour;
                cv::rectangle(image, picks[0].box, kGreen, 1, cv::LINE_8);
                cv::rectangle(image, picks[1].box, kRed, 1, cv::LINE_8);
                SaveDebugImage(store, DebugFile(L"PinFoc.jpg"), image);

                PinFocusingResult r{};
                const auto centre = [](const cv::Rect& b, cv::Point o) {
                    return cv::Point(o.x + b.x + b.width / 2, o.y + b.y + b.height / 2);
                };
                const cv::Point s = centre(picks[0].box, picks[0].origin);
                const cv::Point t = centre(picks[1].box, picks[1].origin);
                r.SFrame = picks[0].frame;
                r.TFrame = picks[1].frame;
                r.SX = s.x;
                r.SY = s.y;
                r.SWidth = picks[0].box.width;
                r.SHeight = picks[0].box.height;
                r.TX = t.x;
                r.TY = t.y;
                r.TWidth = picks[1].box.width;
                r.THeight = picks[1].box.height;
                VBcvTrace("%s Result : FNum(%d, %d), SPos(%d, %d), SSize(%d, %d), TPos(%d, %d), "
                          "TSize(%d, %d)\n",
                          tag, r.SFrame, r.TFrame, r.SX, r.SY, r.SWidth, r.SHeight, r.TX, r.TY,
                          r.TWidth, r.THeight);
                VBcvTrace("%s End \n", tag);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return failed;
            }
        },
        [&]() -> PinFocusingResult {
            Fail(-1).Line("%s Fail : File Error \n", tag).Trace();
            return failed;
        });
}

// ---------------------------------------------------------------------------
// VBcvPinFocusCheck
// ---------------------------------------------------------------------------

PinFocusCheckResult PinFocusCheck(int sx, int sy, int tx, int ty, ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinFocusCheck]";
    const PinFocusCheckResult failed{2.0, -1.0, -1.0, -1.0, -1.0};
    return RunGuarded(
        failed,
        [&]() -> PinFocusCheckResult {
            TraceVersion();
            VBcvTrace("%s Start \n", tag);
            const cv::Mat loaded = store.Read(kFocusInputImage, cv::IMREAD_GRAYSCALE);
            // An area that does not fit the image is refused like a missing file.
            const cv::Mat area =
                loaded.empty() ? cv::Mat() : CutRegion(loaded, 240 - sx / 2, 240 - sy / 2, sx, sy);
            if (area.empty()) {
                VBcvTrace("%s Fail : File Error\n", tag);
                return failed;
            }
            const cv::Mat edge = PinEdgeImage(area);
            double maximum = 0;
            cv::minMaxLoc(edge, nullptr, &maximum);
            cv::Mat binary, hull, box;
            cv::threshold(edge, binary, maximum * 0.8, 255, cv::THRESH_BINARY);
            cv::Mat result = binary.clone();
            ConvexHullImage(binary, hull);
            const PinBoxResult b = BoundingBoxOf(hull, box, 0);
            cv::rectangle(result,
                          cv::Point(CutToInt(b.center.x - b.width * 0.5),
                                    CutToInt(b.center.y - b.height * 0.5)),
                          cv::Point(CutToInt(b.center.x + b.width * 0.5),
                                    CutToInt(b.center.y + b.height * 0.5)),
                          kWhite, 0, cv::LINE_8);
            SaveDebugImage(store, DebugFile(L"FocimageRes.jpg"), result);

            PinFocusCheckResult r = failed;
            if (b.width > static_cast<double>(tx) + 60 && b.height > static_cast<double>(ty) + 60)
                r = PinFocusCheckResult{1.0, static_cast<double>(b.center.x - sx / 2 + 240),
                                        static_cast<double>(b.center.y - sy / 2 + 240), b.width,
                                        b.height};
            VBcvTrace("%s End \n", tag);
            return r;
        },
        [&]() -> PinFocusCheckResult {
            VBcvTrace("%s Fail : File Error\n", tag);
            return failed;
        });
}

// ---------------------------------------------------------------------------
// VBcvPinLightFind
// ---------------------------------------------------------------------------

double PinLightFind(int sx, int sy, int cx, int cy, int aType, int mode, int tx, int ty,
                    ImageStore& store) noexcept {
    static const char* const tag = "[VBcvPinLightFind]";
    return RunGuarded(
        -1.0,
        [&]() -> double {
            TraceVersion();
            const cv::Mat gray = store.Read(kPinInputImage, cv::IMREAD_GRAYSCALE);
            const int64_t wx = static_cast<int64_t>(cx) - sx / 2 + 240;
            const int64_t wy = static_cast<int64_t>(cy) - sy / 2 + 240;
            const bool placed = wx >= 0 && wy >= 0 && wx <= INT32_MAX && wy <= INT32_MAX;
            const cv::Mat window =
                gray.empty() || !placed
                    ? cv::Mat()
                    : CutRegion(gray, static_cast<int>(wx), static_cast<int>(wy), sx, sy);
            if (window.empty()) {
                VBcvTrace("%s Fail : File Error\n", tag);
                return -1.0;
            }

            // The tip region, fixed at the image centre; the window moves.
            cv::Mat regionImage = cv::Mat::zeros(gray.size(), CV_8UC1);
            // A disc or rectangle reaching more than twice the image's size
            // from the centre covers all of it: larger sizes are drawn at
            // that size.
            const int64_t cover = 2 * static_cast<int64_t>(std::max(gray.rows, gray.cols)) + 2;
            const int hx = static_cast<int>(std::clamp<int64_t>(tx / 2, -cover, cover));
            const int hy = static_cast<int>(std::clamp<int64_t>(ty / 2, -cover, cover));
            const int discRadius = static_cast<int>(std::min<int64_t>(hx, cover));
            const int markRadius = static_cast<int>(std::min<int64_t>(tx, cover));
            if (aType == CIRCLE && tx >= 0)
                cv::circle(regionImage, {239, 239}, discRadius, kWhite, cv::FILLED, cv::LINE_8);
            else if (aType == RECTANGLE && tx >= 0 && ty >= 0)
                cv::rectangle(regionImage, cv::Point(239 - hx, 239 - hy),
                              cv::Point(239 + hx, 239 + hy), kWhite, cv::FILLED, cv::LINE_8);
            const cv::Mat region =
                CutRegion(regionImage, static_cast<int>(wx), static_cast<int>(wy), sx, sy);

            const double ox = window.cols / 2 - 1, oy = window.rows / 2 - 1;
            const double reach = sx / 2;
            double backSum = 0, backCount = 0, tipSum = 0, tipCount = 0;
            for (int y = 0; y < window.rows; ++y) {
                const uchar* g = window.ptr<uchar>(y);
                const uchar* m = region.ptr<uchar>(y);
                for (int x = 0; x < window.cols; ++x) {
                    if (m[x]) {
                        tipSum += g[x];
                        ++tipCount;
                    } else if (mode != 0 || std::hypot(x - ox, y - oy) <= reach) {
                        backSum += g[x];
                        ++backCount;
                    }
                }
            }
            const double nan = std::numeric_limits<double>::quiet_NaN();
            const double difference = (backCount > 0 ? backSum / backCount : nan) -
                                      (tipCount > 0 ? tipSum / tipCount : nan);

            // The result image: the region marked in red on the window at
            // the middle of the colour image.
            cv::Mat colour = CutRegion(store.Read(kPinInputImage, cv::IMREAD_COLOR),
                                       240 - sx / 2, 240 - sy / 2, sx, sy);
            if (!colour.empty()) {
                const cv::Point c(colour.cols / 2, colour.rows / 2);
                if (aType == CIRCLE && tx >= 0)
                    cv::circle(colour, c, markRadius, kRed, cv::FILLED, cv::LINE_8);
                else if (aType == RECTANGLE)
                    cv::rectangle(colour, c - cv::Point(hx, hy), c + cv::Point(hx, hy), kRed,
                                  cv::FILLED, cv::LINE_8);
                SaveDebugImage(store, DebugFile(L"pinLightResult.jpg"), colour);
            }
            if (std::isnan(difference)) {
                VBcvTrace("[VBcvPinFind] Fail : Avg Error \n");
                return -1.0;
            }
            VBcvTrace("%s Abs(Background - Tip) : %0.1lf\n", tag, std::fabs(difference));
            VBcvTrace("%s End \n", tag);
            return std::fabs(difference);
        },
        [&]() -> double {
            VBcvTrace("%s Fail : File Error\n", tag);
            return -1.0;
        });
}

}  // namespace pixmill::inspect::pin
