#include "enhance/PadThreshold.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "enhance/OtsuLevel.h"
#include "logging/Trace.h"

namespace pixmill {

namespace {

constexpr double kDegree = 0.017453292519943295;

// A refusal inside an estimator: the value returned and the trace line.
struct Refusal {
    double value;
    std::string line;
};

std::string Printf(const char* format, int a, int b) {
    char buf[160];
    std::snprintf(buf, sizeof buf, format, a, b);
    return buf;
}

std::string Printf(const char* format, int a, int b, int c) {
    char buf[160];
    std::snprintf(buf, sizeof buf, format, a, b, c);
    return buf;
}

// Coordinates of the figures are rounded to the nearest pixel at every
// angle. At the right angles this is the exact value, where truncating a
// sine of 0.99999999... would put a corner one pixel off.
cv::Point Nearest(double x, double y) {
    return {static_cast<int>(std::floor(x + 0.5)), static_cast<int>(std::floor(y + 0.5))};
}

// (px, py) rotated by `angle` degrees about (ox, oy), counter-clockwise on
// screen for a positive angle (y runs down).
cv::Point Rotated(double px, double py, double ox, double oy, int angle) {
    const double r = angle * kDegree;
    const double c = std::cos(r), s = std::sin(r);
    return Nearest(ox + (px - ox) * c + (py - oy) * s, oy + (py - oy) * c - (px - ox) * s);
}

// The stadium of shape 3 as one closed outline: the straight sides from
// P1 to P2 and from P4 to P3, and two half circles of radius y/2 that start
// and end exactly on those corners. Both caps are built in the same rotated
// frame as the sides, so the outline is closed at every angle and the fill
// from the centre stays inside it.
std::vector<cv::Point> StadiumOutline(int w, int h, int x, int y, int angle) {
    const double cx = w / 2, cy = h / 2;
    const double a = x / 2, b = y / 2;
    const double r = angle * kDegree;
    // Unit vectors of the figure's long (e) and short (f) axis after rotation.
    const double ex = std::cos(r), ey = -std::sin(r);
    const double fx = std::sin(r), fy = std::cos(r);
    const int steps = std::clamp(static_cast<int>(std::ceil(b * 1.6)), 8, 720);
    std::vector<cv::Point> outline;
    outline.reserve(2 * (steps + 1));
    // Right cap from P1 (t = -90) to P4 (t = 90), then the left cap from P3
    // (t = 90) to P2 (t = 270); the closing segment P2 to P1 and the segment
    // P4 to P3 are the straight sides.
    for (int side = 0; side < 2; ++side) {
        const double mx = cx + (side == 0 ? a : -a) * ex, my = cy + (side == 0 ? a : -a) * ey;
        const double from = side == 0 ? -90.0 : 90.0;
        for (int k = 0; k <= steps; ++k) {
            const double t = (from + 180.0 * k / steps) * kDegree;
            const double u = b * std::cos(t), v = b * std::sin(t);
            outline.push_back(Nearest(mx + u * ex + v * fx, my + u * ey + v * fy));
        }
    }
    return outline;
}

// The octagon of shape 4: four corners rotated about (0, h), the other four
// shifted copies of them by the box's width or height, unrotated.
std::vector<cv::Point> CutBoxOutline(int h, int x, int y, int o, int angle) {
    const cv::Point A = Rotated(0, h - o, 0, h, angle);
    const cv::Point B = Rotated(0, h - y + o, 0, h, angle);
    const cv::Point C = Rotated(o, h - y, 0, h, angle);
    const cv::Point D = Rotated(x - o, h - y, 0, h, angle);
    return {A,
            B,
            C,
            D,
            B + cv::Point(x, 0),
            A + cv::Point(x, 0),
            D + cv::Point(0, y),
            C + cv::Point(0, y)};
}

// The box of shape 5 with the two corners of one side cut; empty for an
// angle other than 0, 90, 180 or 270.
std::vector<cv::Point> OneSideCutOutline(int h, int x, int y, int o, int angle) {
    switch (angle) {
        case 0:
            return {{0, h}, {0, h - y + o}, {o, h - y}, {x - o, h - y}, {x, h - y + o}, {x, h}};
        case 90:
            return {{0, h - y}, {x - o, h - y}, {x, h - y + o}, {x, h - o}, {x - o, h}, {0, h}};
        case 180:
            return {{x, h - y}, {x, h - o}, {x - o, h}, {o, h}, {0, h - o}, {0, h - y}};
        case 270:
            return {{x, h}, {o, h}, {0, h - o}, {0, h - y + o}, {o, h - y}, {x, h - y}};
        default:
            return {};
    }
}

// The masked histogram of one estimator call.
struct PadHistogram {
    double hist[256] = {};
    double cum[256] = {};
    double total = 0.0;
    cv::Mat1b mask;    // 255 inside the figure
    cv::Mat1b values;  // the pixel values used (complemented for a black pad)
};

void BuildHistogram(const uint8_t* data, int width, int height, bool blackPad, PadHistogram& out) {
    out.values = cv::Mat1b::zeros(height, width);
    for (int yy = 0; yy < height; ++yy) {
        const uint8_t* src = data + static_cast<size_t>(yy) * width;
        const uint8_t* m = out.mask.ptr<uint8_t>(yy);
        uint8_t* v = out.values.ptr<uint8_t>(yy);
        for (int xx = 0; xx < width; ++xx) {
            if (m[xx] != 255) continue;
            const uint8_t value = blackPad ? static_cast<uint8_t>(255 - src[xx]) : src[xx];
            v[xx] = value;
            out.hist[value] += 1.0;
            out.total += 1.0;
        }
    }
    double run = 0.0;
    for (int i = 0; i < 256; ++i) out.cum[i] = run += out.hist[i];
}

// Checks shared by both estimators, in the order the callers rely on.
void CheckArguments(const uint8_t* data, int width, int height, int x, int y, int shape,
                    int blackPad, int angle, int offset, int shapeLimit) {
    constexpr unsigned kMaxSide = kPadImageMaxSide;
    // Taken as unsigned, a negative size is refused as a huge one.
    if (static_cast<unsigned>(width) > kMaxSide || static_cast<unsigned>(height) > kMaxSide)
        throw Refusal{
            kPadLevelBadInput,
            Printf("[VBcvGetThreshold] Fail : Input Size(%d, %d) is abnormal\n", width, height)};
    if (shape < 0 || blackPad < 0 || angle < 0 || shape > shapeLimit)
        throw Refusal{kPadLevelBadInput,
                      Printf("[VBcvGetThreshold] Fail : Input Data(%d, %d, %d) is abnormal\n",
                             shape, blackPad, angle)};
    if (!data && width > 0 && height > 0)
        throw Refusal{kPadLevelBadInput, "[VBcvGetThreshold] Fail : Input Buffer is null\n"};
    const auto beyond = [](int v) { return v > kPadFigureMaxSize || v < -kPadFigureMaxSize; };
    if (beyond(x) || beyond(y) || beyond(offset))
        throw Refusal{
            kPadLevelBadInput,
            Printf("[VBcvGetThreshold] Fail : Pad Size(%d, %d, %d) is abnormal\n", x, y, offset)};
}

const Refusal kNoCorner{kPadLevelNoCorner, "[VBcvGetThreshold] T ALG FAIL(1)\n"};

// The mask and histogram, or a refusal for an image without pixels (its
// histogram is empty, so no triangle can be built).
void MaskedHistogram(const uint8_t* data, int width, int height, int x, int y, int shape,
                     int blackPad, int angle, int offset, PadHistogram& out) {
    if (width == 0 || height == 0) throw kNoCorner;
    out.mask = DrawPadMask(width, height, x, y, shape, angle, offset);
    BuildHistogram(data, width, height, blackPad != 0, out);
}

// From the corner down to the start, the first bin lower than the mean
// height of the bins below the corner; -1 when none is.
int MeanHeightWalk(const PadHistogram& ph, int start, int corner) {
    const double avg = ph.cum[corner - 1] / (corner - start);
    for (int j = corner - 1; j >= start; --j)
        if (ph.hist[j] < avg) return j;
    return -1;
}

template <class Body>
double Guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (const Refusal& refusal) {
        VBcvTrace("%s", refusal.line.c_str());
        return refusal.value;
    } catch (...) {
        // Out of memory inside the image library: the input could not be used.
        VBcvTrace("[VBcvGetThreshold] Fail : Exception\n");
        return kPadLevelBadInput;
    }
}

}  // namespace

cv::Mat DrawPadMask(int width, int height, int x, int y, int shape, int angle, int offset) {
    cv::Mat mask = cv::Mat::zeros(height, width, CV_8UC1);
    if (mask.empty()) return mask;
    const int w = width, h = height, cx = w / 2, cy = h / 2;
    const cv::Scalar white(255);
    std::vector<cv::Point> outline;
    switch (shape) {
        case 0:
            mask.setTo(white);
            return mask;
        case 1:
            cv::circle(mask, {cx, cy}, w / 2, white, cv::FILLED, cv::LINE_8);
            return mask;
        case 2:
            outline = {{cx, 0}, {w, cy}, {cx, h}, {0, cy}};
            break;
        case 3:
            outline = StadiumOutline(w, h, x, y, angle);
            break;
        case 4:
            outline = CutBoxOutline(h, x, y, offset, angle);
            break;
        case 5:
            outline = OneSideCutOutline(h, x, y, offset, angle);
            break;
        default:
            return mask;
    }
    if (!outline.empty()) cv::polylines(mask, outline, true, white, 1, cv::LINE_8);
    cv::floodFill(mask, cv::Point(cx, cy), white, nullptr, cv::Scalar(0), cv::Scalar(0), 4);
    return mask;
}

TrianglePoint TriangleOnHistogram(const double (&hist)[256], const double (&cum)[256],
                                  double total) {
    TrianglePoint tp;
    int height = 0;
    int limit = 246;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 10; i < limit; ++i) {
            if (tp.start == -1 && hist[i] > 0) tp.start = i;
            if (static_cast<int>(hist[i]) > height &&
                (cum[i - 1] / total > 0.6 || hist[i] / total > 0.4)) {
                tp.peak = i;
                height = static_cast<int>(hist[i]);
            }
        }
        if (tp.peak != -1) break;
        limit = 255;
    }
    // The peak is occupied, so it never lies below the start.
    if (tp.start == -1 || tp.peak == -1 || tp.start == tp.peak) return tp;
    const float m = static_cast<float>((hist[tp.peak] - hist[tp.start]) / (tp.peak - tp.start));
    const float c = static_cast<float>(hist[tp.start] - m * tp.start);
    float best = 0.0f;
    for (int i = tp.start; i < tp.peak; ++i) {
        if (!(static_cast<float>(hist[i]) > 0.0f)) continue;
        const float d =
            static_cast<float>(std::fabs(i * m - hist[i] + c) / std::pow(m * m + 1.0f, 2.0));
        if (d > best) {
            best = d;
            tp.corner = i;
        }
    }
    if (tp.corner != -1 && tp.corner > tp.start) tp.distance = 0;
    return tp;
}

TrianglePoint TriangleOnCurve(const double* curve, int count, bool findBounds) {
    TrianglePoint tp;
    if (!curve || count < 0) return tp;
    if (findBounds) {
        double height = 0.0;
        for (int i = 0; i < count; ++i) {
            if (tp.start == -1 && curve[i] > 0) tp.start = i;
            if (tp.start != -1 && curve[i] > static_cast<double>(static_cast<int64_t>(height))) {
                tp.peak = i;
                height = curve[i];
            }
        }
    } else {
        tp.start = 0;
        tp.peak = count;
    }
    if (tp.start == -1 || tp.peak <= tp.start) return tp;
    const float m = static_cast<float>((curve[tp.peak] - curve[tp.start]) / (tp.peak - tp.start));
    const float c = static_cast<float>(curve[tp.start] - m * tp.start);
    float best = 0.0f;
    for (int i = tp.start; i < tp.peak; ++i) {
        if (!(curve[i] > 0) || !(i * m + c > curve[i])) continue;
        const float d =
            static_cast<float>(std::fabs(i * m - curve[i] + c) / std::pow(m * m + 1.0f, 2.0));
        if (d > best) {
            best = d;
            tp.corner = i;
        }
    }
    if (tp.corner != -1 && tp.corner > tp.start) tp.distance = static_cast<int>(best);
    return tp;
}

double VBcvGetThreshold(const uint8_t* data, int width, int height, int x, int y, int Shape,
                        int BlackPad, int Angle, int /*reserved*/) {
    return Guarded([&] {
        CheckArguments(data, width, height, x, y, Shape, BlackPad, Angle, 0, 3);
        PadHistogram ph;
        MaskedHistogram(data, width, height, x, y, Shape, BlackPad, Angle, 0, ph);
        const TrianglePoint tp = TriangleOnHistogram(ph.hist, ph.cum, ph.total);
        if (tp.distance != 0) throw kNoCorner;
        return static_cast<double>(MeanHeightWalk(ph, tp.start, tp.corner));
    });
}

double VBcvGetThresholdEx(const uint8_t* data, int width, int height, int x, int y, int Shape,
                          int BlackPad, int Angle, int Offset, int /*reserved*/) {
    return Guarded([&] {
        CheckArguments(data, width, height, x, y, Shape, BlackPad, Angle, Offset, 5);
        PadHistogram ph;
        MaskedHistogram(data, width, height, x, y, Shape, BlackPad, Angle, Offset, ph);
        // Level 255 stays out of the triangle.
        const TrianglePoint tp = TriangleOnCurve(ph.hist, 255, true);
        if (tp.distance == -1) throw kNoCorner;
        std::printf("Triangle Info : Start, Triangle, Max [%d, %d, %d]\n", tp.start, tp.corner,
                    tp.peak);
        std::fflush(stdout);
        double t = MeanHeightWalk(ph, tp.start, tp.corner);

        // Sums of positions per value, over the figure's pixels.
        std::vector<double> n(256), sx(256), sy(256), sxx(256), syy(256);
        for (int yy = 0; yy < height; ++yy) {
            const uint8_t* m = ph.mask.ptr<uint8_t>(yy);
            const uint8_t* v = ph.values.ptr<uint8_t>(yy);
            for (int xx = 0; xx < width; ++xx) {
                if (m[xx] != 255) continue;
                const int k = v[xx];
                n[k] += 1.0;
                sx[k] += xx;
                sy[k] += yy;
                sxx[k] += static_cast<double>(xx) * xx;
                syy[k] += static_cast<double>(yy) * yy;
            }
        }
        // The spread of the pixels at or below each level from start to
        // corner - 1: the variance of their x and of their y positions.
        const int count = tp.corner - tp.start;
        std::vector<double> spreadX(count), spreadY(count);
        double cn = 0, csx = 0, csy = 0, csxx = 0, csyy = 0;
        for (int k = 0; k < tp.corner; ++k) {
            cn += n[k];
            csx += sx[k];
            csy += sy[k];
            csxx += sxx[k];
            csyy += syy[k];
            if (k < tp.start || cn == 0.0) continue;
            const double mx = csx / cn, my = csy / cn;
            spreadX[k - tp.start] = std::max(0.0, csxx / cn - mx * mx);
            spreadY[k - tp.start] = std::max(0.0, csyy / cn - my * my);
        }
        const TrianglePoint X = TriangleOnCurve(spreadX.data(), count - 1, false);
        const TrianglePoint Y = TriangleOnCurve(spreadY.data(), count - 1, false);
        const double A = tp.corner - (tp.peak - tp.start + 1) * 0.2;
        const int levelX = X.corner + tp.start;
        const int levelY = Y.corner + tp.start;
        if (!(A > levelX && A > levelY)) {
            if (X.distance < 0) {
                // t stands
            } else if (Y.distance < 0) {
                t = levelX;
            } else {
                t = X.corner >= Y.corner ? levelX : levelY;
            }
        }
        return t;
    });
}

int GetThresholdOvalAutoPadReg(const uint8_t* data, int width, int height) {
    try {
        if (width < 0 || height < 0 || width > kPadImageMaxSide || height > kPadImageMaxSide ||
            (!data && width > 0 && height > 0)) {
            VBcvTrace("Image Buffer Sise is wrong! \n");
            VBcvTrace("[VBcvGetThreshold_Oval] End \n");
            return -1;
        }
        const int t1 = DarkHalfVarianceLevel(data, width, height, width);
        // The pixels below t1, visited by the transposed loop up to the end
        // of the buffer.
        const int64_t size = static_cast<int64_t>(width) * height;
        int64_t sum = 0, count = 0;
        for (int64_t outer = 0; outer < width; ++outer) {
            for (int64_t inner = 0; inner < height; ++inner) {
                const int64_t at = outer * width + inner;
                if (at >= size) break;
                if (data[at] < t1) {
                    sum += data[at];
                    ++count;
                }
            }
        }
        const int level = count == 0 ? t1 / 2 : static_cast<int>((sum / count + t1) / 2);
        VBcvTrace("Final Threshold : %d\n", level);
        return level;
    } catch (...) {
        return -1;
    }
}

}  // namespace pixmill
