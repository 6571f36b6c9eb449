#include "enhance/Enhance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

namespace pixmill {

namespace {

// Halves go away from zero, then truncation toward zero.
int16_t RoundTap(double value) {
    return static_cast<int16_t>(value >= 0.0 ? value + 0.5 : value - 0.5);
}

// 2 * pi to ten digits. The Gaussian's normalising factor cancels against
// the peak factor, so only the last bits of a tap depend on this value; the
// fixed literal fixes those bits, and with them the taps that lie near a
// rounding half.
constexpr double kTwoPi = 6.283185307;

// Outcome of the argument checks shared by the image functions.
enum class Checked { Bad, Empty, Pixels };

Checked CheckImageArgs(const uint8_t* src, const uint8_t* dst, int width, int height) {
    if (width < 0 || height < 0) return Checked::Bad;
    if (width == 0 || height == 0) return Checked::Empty;
    if (!src || !dst) return Checked::Bad;
    return Checked::Pixels;
}

// A header over the caller's pixels. Nothing here writes through the source
// header, so the caller's buffer is not touched; wrapping instead of copying
// saves a pass over the image.
cv::Mat SourceView(const uint8_t* src, int width, int height) {
    return cv::Mat(height, width, CV_8UC1, const_cast<uint8_t*>(src));
}

cv::Mat DestinationView(uint8_t* dst, int width, int height) {
    return cv::Mat(height, width, CV_8UC1, dst);
}

// out = (a + b) + 128, rounded to the nearest level (halves to even) and
// saturated: the same two float roundings and the same narrowing as
// cv::add followed by convertTo(CV_8U, 1.0, 128.0), in one pass instead of
// two. All three are strips of one size.
void AddMidGreyAndNarrow(const cv::Mat& a, const cv::Mat& b, cv::Mat& out) {
    for (int y = 0; y < a.rows; ++y) {
        const float* pa = a.ptr<float>(y);
        const float* pb = b.ptr<float>(y);
        uint8_t* po = out.ptr<uint8_t>(y);
        int x = 0;
#if CV_SIMD
        const cv::v_float32 mid = cv::vx_setall_f32(128.0f);
        constexpr int lanes = cv::v_float32::nlanes;
        for (; x + 4 * lanes <= a.cols; x += 4 * lanes) {
            cv::v_int32 level[4];
            for (int k = 0; k < 4; ++k) {
                const int at = x + k * lanes;
                level[k] = cv::v_round(cv::vx_load(pa + at) + cv::vx_load(pb + at) + mid);
            }
            cv::v_store(po + x, cv::v_pack_u(cv::v_pack(level[0], level[1]),
                                             cv::v_pack(level[2], level[3])));
        }
#endif
        for (; x < a.cols; ++x) po[x] = cv::saturate_cast<uint8_t>((pa[x] + pb[x]) + 128.0f);
    }
}

// Columns of one strip of EnhanceImage. A multiple of every vector width the
// filters use, so that the vector loops split each row at the same columns
// as in one pass over the whole image.
constexpr int kStripColumns = 192;

}  // namespace

void BuildEnhanceKernels(double sigma, double scale, EnhanceKernel* smooth,
                         EnhanceKernel* derivative) {
    // NaN fails every comparison, so it lands on the lower limit.
    const double s = std::min(sigma >= kMinKernelSigma ? sigma : kMinKernelSigma, kMaxKernelSigma);
    const double gain =
        std::isnan(scale) ? 0.0 : std::clamp(scale, -kMaxKernelScale, kMaxKernelScale);
    const double k = gain * 0.2;

    if (smooth) {
        const int n = static_cast<int>(s * 4);
        const double norm = 1.0 / (std::sqrt(kTwoPi) * s);
        const double peak = std::abs(71.0 / norm);
        smooth->size = n;
        smooth->data.assign(static_cast<size_t>(n), 0.0f);
        double sum = 0.0;
        for (int i = 0; i < n; ++i) {
            const double x = i - n / 2;
            const int16_t tap = RoundTap(norm * std::exp(-(x * x) / (2 * s * s)) * peak);
            sum += tap;
            smooth->data[static_cast<size_t>(n - 1 - i)] = tap;
        }
        // The tap at x = 0 is 71, so the divisor is never below 71.
        smooth->divisor = static_cast<int>(sum);
    }

    if (derivative) {
        const int n = static_cast<int>(s * 8);
        const double c = 1.0 / (std::sqrt(kTwoPi) * s * s * s);
        const double peak = std::abs(50.0 / c);
        derivative->size = n;
        derivative->data.assign(static_cast<size_t>(n), 0.0f);
        double sum = 0.0;
        for (int i = 0; i < n; ++i) {
            const double x = i - n / 2;
            const double q = (x * x) / (s * s);
            const int16_t tap = RoundTap(c * (1.0 - q) * std::exp(-q / 2) * peak * k);
            sum += tap;
            derivative->data[static_cast<size_t>(n - 1 - i)] = tap;
        }
        derivative->divisor = 32;
        // Rounding leaves the taps a few units off a zero sum. The remainder
        // is taken from the last element, the tap at the most negative
        // offset, so that flat areas come out exactly flat.
        if (sum != 0.0) derivative->data[static_cast<size_t>(n - 1)] -= static_cast<float>(sum);
    }
}

int EnhanceImage(const uint8_t* src, uint8_t* dst, int width, int height, int direction,
                 float sigma, float scale) {
    switch (CheckImageArgs(src, dst, width, height)) {
        case Checked::Bad:
            return -1;
        case Checked::Empty:
            return 0;
        case Checked::Pixels:
            break;
    }
    if (!(sigma > 1.0f)) sigma = 1.0f;
    if (!(scale > 0.1f)) scale = 0.1f;

    EnhanceKernel smooth, derivative;
    BuildEnhanceKernels(sigma, scale, &smooth, &derivative);
    for (float& v : smooth.data) v /= static_cast<float>(smooth.divisor);
    for (float& v : derivative.data) v /= static_cast<float>(derivative.divisor);
    const cv::Mat g(smooth.size, 1, CV_32F, smooth.data.data());
    const cv::Mat d(derivative.size, 1, CV_32F, derivative.data.data());

    // One less than the centre: with the reversed taps an even-length kernel
    // lands on x = 0, an odd-length one a pixel beside it.
    const int anchorG = smooth.size / 2 - 1;
    const int anchorD = derivative.size / 2 - 1;
    const cv::Point alongRows(anchorD, anchorG);     // derivative across x, smoothing down y
    const cv::Point alongColumns(anchorG, anchorD);  // smoothing across x, derivative down y

    // The image is worked in full-height strips of kStripColumns columns.
    // A strip's float buffers stay in cache and are the only large memory a
    // call takes, instead of three float copies of the whole image. Each
    // strip is converted with the columns that the kernels reach on either
    // side, and the filter reads those as the strip's neighbours; only at
    // the image's own left and right edges are border pixels repeated. So
    // every output pixel sees the same inputs, in the same order, as in one
    // pass over the whole image, and the result is identical.
    const int reachLeft = std::max(anchorG, anchorD);
    const int reachRight = std::max(smooth.size - 1 - anchorG, derivative.size - 1 - anchorD);
    const int stripColumns = std::min(width, kStripColumns);
    const size_t rows = static_cast<size_t>(height);
    // One block holds the three strip buffers: the centred source with its
    // side columns, the response, and the second response of direction 0.
    const size_t centredFloats =
        rows * static_cast<size_t>(std::min(width, stripColumns + reachLeft + reachRight));
    const size_t responseFloats = rows * static_cast<size_t>(stripColumns);
    const bool both = direction != 1 && direction != 2;
    std::vector<float> store(centredFloats + responseFloats * (both ? 2 : 1));
    float* const centredStore = store.data();
    float* const responseStore = centredStore + centredFloats;
    float* const secondStore = responseStore + responseFloats;

    const cv::Mat source = SourceView(src, width, height);
    const cv::Mat target = DestinationView(dst, width, height);
    for (int x0 = 0; x0 < width; x0 += stripColumns) {
        const int x1 = std::min(width, x0 + stripColumns);
        const int from = std::max(0, x0 - reachLeft);
        const int to = std::min(width, x1 + reachRight);
        // Headers over the stores, each a whole matrix of its own, so the
        // filter finds no stale columns beyond the strip's reach.
        cv::Mat centred(height, to - from, CV_32F, centredStore);
        cv::Mat response(height, x1 - x0, CV_32F, responseStore);
        source.colRange(from, to).convertTo(centred, CV_32F, 1.0, -128.0);
        const cv::Mat strip = centred.colRange(x0 - from, x1 - from);

        cv::Mat out = target.colRange(x0, x1);
        if (!both) {
            if (direction == 1)
                cv::sepFilter2D(strip, response, CV_32F, d, g, alongRows, 0.0,
                                cv::BORDER_REPLICATE);
            else
                cv::sepFilter2D(strip, response, CV_32F, g, d, alongColumns, 0.0,
                                cv::BORDER_REPLICATE);
            // Adding 128 and narrowing in one pass: the float sum is rounded
            // once, then rounded to the nearest level and saturated.
            response.convertTo(out, CV_8U, 1.0, 128.0);
        } else {
            cv::Mat second(height, x1 - x0, CV_32F, secondStore);
            cv::sepFilter2D(strip, response, CV_32F, d, g, alongRows, 0.0, cv::BORDER_REPLICATE);
            cv::sepFilter2D(strip, second, CV_32F, g, d, alongColumns, 0.0, cv::BORDER_REPLICATE);
            AddMidGreyAndNarrow(response, second, out);
        }
    }
    return 0;
}

double MaskedOtsuThreshold(const cv::Mat& image, const cv::Mat& mask) {
    CV_Assert(image.type() == CV_8UC1 && mask.type() == CV_8UC1 && image.size() == mask.size());
    std::array<int64_t, 256> hist{};
    int64_t n = 0;
    for (int y = 0; y < image.rows; ++y) {
        const uint8_t* p = image.ptr<uint8_t>(y);
        const uint8_t* m = mask.ptr<uint8_t>(y);
        for (int x = 0; x < image.cols; ++x) {
            if (m[x]) {
                ++hist[p[x]];
                ++n;
            }
        }
    }
    // No pixel selected: no level can separate anything.
    if (n == 0) return 0.0;

    const double scale = 1.0 / static_cast<double>(n);
    double mu = 0.0;
    for (int i = 0; i < 256; ++i) mu += i * static_cast<double>(hist[i]);
    mu *= scale;

    double q1 = 0.0, mu1 = 0.0, best = 0.0;
    int bestLevel = 0;
    for (int i = 0; i < 256; ++i) {
        const double p = static_cast<double>(hist[i]) * scale;
        // mu1 is turned back into a class sum before the weight grows, and
        // stays so when the level is skipped below.
        mu1 *= q1;
        q1 += p;
        const double q2 = 1.0 - q1;
        if (std::min(q1, q2) < 1.1920928955078125e-07 || std::max(q1, q2) > 0.9999998807907104)
            continue;
        mu1 = (mu1 + i * p) / q1;
        const double mu2 = (mu - q1 * mu1) / q2;
        const double sigma = q1 * q2 * (mu1 - mu2) * (mu1 - mu2);
        if (sigma > best) {
            best = sigma;
            bestLevel = i;
        }
    }
    return bestLevel;
}

double RefinedTriangleThreshold(const cv::Mat& image) {
    CV_Assert(image.type() == CV_8UC1);

    // Four partial tables, one per position modulo 4, let consecutive pixels
    // of one level count without waiting on each other.
    std::array<std::array<int64_t, 256>, 4> parts{};
    const bool continuous = image.isContinuous();
    const int rows = continuous ? (image.empty() ? 0 : 1) : image.rows;
    const int64_t cols = continuous ? static_cast<int64_t>(image.total()) : image.cols;
    for (int y = 0; y < rows; ++y) {
        const uint8_t* p = image.ptr<uint8_t>(y);
        int64_t x = 0;
        for (; x + 4 <= cols; x += 4) {
            ++parts[0][p[x]];
            ++parts[1][p[x + 1]];
            ++parts[2][p[x + 2]];
            ++parts[3][p[x + 3]];
        }
        for (; x < cols; ++x) ++parts[static_cast<size_t>(x & 3)][p[x]];
    }
    std::array<int64_t, 256> h{};
    std::array<int64_t, 256> c{};
    int64_t running = 0;
    for (int i = 0; i < 256; ++i) {
        h[i] = parts[0][i] + parts[1][i] + parts[2][i] + parts[3][i];
        running += h[i];
        c[i] = running;
    }

    int left = 0;
    for (int i = 0; i < 256; ++i) {
        if (h[i] > 0) {
            left = i;
            break;
        }
    }
    if (left > 0) --left;

    int right = 0;
    for (int i = 255; i > 0; --i) {
        if (h[i] > 0) {
            right = i;
            break;
        }
    }
    if (right < 255) ++right;

    int64_t peak = 0;
    int peakLevel = 0;
    for (int i = 0; i < 256; ++i) {
        if (h[i] > peak) {
            peak = h[i];
            peakLevel = i;
        }
    }

    // The long tail must lie left of the peak. The running sum is reversed
    // with the histogram but not recomputed, and the refinement below reads
    // it in that form.
    bool flipped = false;
    if (peakLevel - left < right - peakLevel) {
        for (int i = 0; i < 128; ++i) {
            std::swap(h[i], h[255 - i]);
            std::swap(c[i], c[255 - i]);
        }
        left = 255 - right;
        peakLevel = 255 - peakLevel;
        flipped = true;
    }

    // The level farthest from the line between the foot and the peak.
    // Integers are exact here: a * i stays far inside 64 bits for any image
    // that fits in memory.
    int t = left;
    int64_t best = 0;
    const int64_t a = peak;
    const int64_t b = left - peakLevel;
    for (int i = left + 1; i <= peakLevel; ++i) {
        const int64_t d = a * i + b * h[i];
        if (d > best) {
            best = d;
            t = i;
        }
    }
    --t;

    // t <= peakLevel - 1 <= 254 here, so every index below stays in range,
    // and t - left >= 1 keeps the division defined.
    if (t - 1 >= left) {
        const float avg = static_cast<float>(static_cast<double>(c[t - 1]) / (t - left));
        for (int j = t - 1; j >= left; --j) {
            if (avg > static_cast<float>(h[j])) {
                t = j;
                break;
            }
        }
    }

    if (flipped) t = 255 - t;
    return t;
}

int Enhance_Threshold_Otsu(const uint8_t* src, uint8_t* dst, int width, int height, bool bright,
                           int threshold) {
    const Checked checked = CheckImageArgs(src, dst, width, height);
    if (checked == Checked::Bad) return -1;
    // A bright feature is searched among levels above 127 only, a dark one
    // among levels at or below 128; the caller's threshold is a floor for
    // bright features and a ceiling for dark ones.
    // Without pixels the mask selects nothing, so Otsu's level is 0 and the
    // caller's threshold still takes part as usual.
    const cv::Mat image =
        checked == Checked::Pixels ? SourceView(src, width, height) : cv::Mat(0, 0, CV_8UC1);
    cv::Mat mask(image.size(), CV_8UC1);
    if (checked == Checked::Pixels) {
        if (bright)
            cv::threshold(image, mask, 127.0, 255.0, cv::THRESH_BINARY);
        else
            cv::threshold(image, mask, 128.0, 255.0, cv::THRESH_BINARY_INV);
    }
    const double otsu = MaskedOtsuThreshold(image, mask);
    const double t = bright ? std::max<double>(threshold, otsu) : std::min<double>(threshold, otsu);

    if (checked == Checked::Pixels) {
        cv::Mat target = DestinationView(dst, width, height);
        cv::threshold(image, target, t, 255.0, bright ? cv::THRESH_BINARY : cv::THRESH_BINARY_INV);
    }
    return static_cast<int>(t);
}

int Threshold_Triangle(const uint8_t* src, uint8_t* dst, int width, int height) {
    switch (CheckImageArgs(src, dst, width, height)) {
        case Checked::Bad:
            return -1;
        case Checked::Empty:
            return static_cast<int>(RefinedTriangleThreshold(cv::Mat(0, 0, CV_8UC1)));
        case Checked::Pixels:
            break;
    }
    const cv::Mat image = SourceView(src, width, height);
    const double t = RefinedTriangleThreshold(image);
    cv::Mat binary;
    cv::threshold(image, binary, t, 255.0, cv::THRESH_BINARY);
    // Upside down by contract: dst's first row comes from src's last row.
    cv::Mat target = DestinationView(dst, width, height);
    cv::flip(binary, target, 0);
    return static_cast<int>(t);
}

int FuncTest(const uint8_t* src, uint8_t* dst, int width, int height) {
    switch (CheckImageArgs(src, dst, width, height)) {
        case Checked::Bad:
            return -1;
        case Checked::Empty:
            return 0;
        case Checked::Pixels:
            break;
    }
    cv::Mat target = DestinationView(dst, width, height);
    cv::bitwise_not(SourceView(src, width, height), target);
    return 0;
}

}  // namespace pixmill
