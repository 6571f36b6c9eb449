#include "inspect/pattern/ProbeMark.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <opencv2/highgui.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "logging/Trace.h"
#include "platform/Display.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pattern {

namespace {

// Published after each comparison on files; nothing in the library reads it.
float g_padMeanGain = 0.0f;

constexpr int kMaxShift = 4;  // larger mean offsets are not corrected
constexpr size_t kNameBuffer = 256;

void TraceLine(const std::string& line) {
    VBcvTrace("%s", line.c_str());
}

// The polygon approximation's bounding box of a contour.
cv::Rect FeatureBox(const std::vector<cv::Point>& contour) {
    std::vector<cv::Point> approx;
    cv::approxPolyDP(contour, approx, cv::arcLength(contour, true) * 0.02, true);
    return cv::boundingRect(approx);
}

std::vector<std::vector<cv::Point>> ListContours(const cv::Mat& binary) {
    std::vector<std::vector<cv::Point>> contours;
    cv::Mat work = binary.clone();  // findContours may alter its input
    cv::findContours(work, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    return contours;
}

// Whether a HighGUI window can open. The toolkit OpenCV is built with may
// end the process when it finds no display, rather than raise, so the
// display is asked for first (the same check as the edge pattern window).
bool DisplayAvailable() {
    // Qt's windowless platforms show nothing and no key could end the wait.
    const char* qpa = std::getenv("QT_QPA_PLATFORM");
    if (qpa && (std::strcmp(qpa, "offscreen") == 0 || std::strcmp(qpa, "minimal") == 0))
        return false;
    return platform::DisplayReachable();
}

double MeanOf(const cv::Mat& image) {
    return cv::mean(image)[0];
}

}  // namespace

float LastPadMeanGain() {
    return g_padMeanGain;
}

// ---------------------------------------------------------------------------
// Steps
// ---------------------------------------------------------------------------

PatternList DetectPatterns(const cv::Mat& image, const cv::Mat& binary, FeatureAnchor anchor,
                           const std::function<void(int, int, int)>& onFeature) {
    PatternList list;
    const double N = static_cast<double>(image.rows) * image.cols;
    const double maxArc = static_cast<double>((image.rows + image.cols) / 2);
    for (const std::vector<cv::Point>& c : ListContours(binary)) {
        const double area = cv::contourArea(c);
        if (area < N * 0.007 || area > N * 0.5 || cv::arcLength(c, false) > maxArc) continue;
        const cv::Rect box = FeatureBox(c);
        int x = box.x, y = box.y;
        if (anchor == FeatureAnchor::kCentre) {
            x = static_cast<int>(box.x + box.width * 0.5);
            y = static_cast<int>(box.y + box.height * 0.5);
        }
        const int a = box.width * box.height;
        list.x.push_back(x);
        list.y.push_back(y);
        list.area.push_back(a);
        if (onFeature) onFeature(x, y, a);
        // The inner part: rows y+1 .. y+h-2, columns x+1 .. x+w-2.
        if (box.width > 2 && box.height > 2) {
            const cv::Rect inner(box.x + 1, box.y + 1, box.width - 2, box.height - 2);
            list.sum += static_cast<int64_t>(cv::sum(image(inner))[0]);
            list.count += inner.area();
        }
    }
    return list;
}

cv::Mat EvenBrightness(const cv::Mat& reference, const PatternList& mark,
                       const PatternList& ref, float m, float r) {
    cv::Mat out;
    if (mark.Empty() || ref.Empty()) {
        const double d = std::fabs(static_cast<double>(m) - static_cast<double>(r));
        if (m <= r)
            cv::subtract(reference, cv::Scalar::all(d), out);
        else
            cv::add(reference, cv::Scalar::all(d), out);
        return out;
    }
    // Chosen by the pixel counts, not by the sign of the difference.
    if (mark.count < ref.count)
        cv::subtract(reference, cv::Scalar::all(ref.Average() - mark.Average()), out);
    else
        cv::add(reference, cv::Scalar::all(mark.Average() - ref.Average()), out);
    return out;
}

PairOffsets PairPatterns(const PatternList& mark, const PatternList& ref,
                         const LineSink& sink) {
    PairOffsets p;
    for (size_t u = 0; u < ref.x.size(); ++u) {
        for (size_t k = 0; k < mark.x.size(); ++k) {
            const double ra = ref.area[u], ma = mark.area[k];
            if (std::abs(ref.x[u] - mark.x[k]) < 4 && std::abs(ref.y[u] - mark.y[k]) < 4 &&
                ra * 1.2 > ma && ma * 1.2 > ra) {
                p.dx.push_back(mark.x[k] - ref.x[u]);
                p.dy.push_back(mark.y[k] - ref.y[u]);
                sink(Format("X diff : %d ,Y diff : %d\n", p.dx.back(), p.dy.back()));
            }
        }
    }
    if (p.Any()) {
        double sx = 0, sy = 0;
        for (size_t i = 0; i < p.dx.size(); ++i) sx += p.dx[i], sy += p.dy[i];
        p.X = CutToInt(sx / static_cast<double>(p.dx.size()));
        p.Y = CutToInt(sy / static_cast<double>(p.dy.size()));
    }
    return p;
}

bool ShiftImage(const cv::Mat& source, cv::Mat& destination, int a, int b, const LineSink& sink) {
    destination = cv::Mat::zeros(source.size(), source.type());
    if (source.channels() != 1 && source.channels() != 3) {
        sink("----------Image Channel(s) error - please check Mat type----------\n");
        return false;
    }
    if (a < 0 || b < 0 || b >= source.rows || a >= source.cols) return true;
    const cv::Rect from(0, 0, source.cols - a, source.rows - b);
    source(from).copyTo(destination(cv::Rect(a, b, from.width, from.height)));
    return true;
}

AlignedPair AlignPair(const cv::Mat& untouchedMark, const cv::Mat& untouchedRef,
                      const cv::Mat& evenRef, const PairOffsets& offsets, const LineSink& sink) {
    AlignedPair out;
    out.paired = offsets.Any();
    const int X = offsets.X, Y = offsets.Y;
    auto in = [](int v, int lo, int hi) { return v >= lo && v <= hi; };
    if (!out.paired) {
        out.mark = untouchedMark;
        out.ref = untouchedRef;
        sink("Pattern Detecting FAIL\n");
    } else if (in(X, -kMaxShift, 0) && in(Y, -kMaxShift, 0)) {
        ShiftImage(untouchedMark, out.mark, -X, -Y, sink);
        out.ref = untouchedRef;
        sink(Format("mark image shifting success// x = %d y = %d \n", X, Y));
    } else if (in(X, 0, kMaxShift) && in(Y, 0, kMaxShift)) {
        out.mark = untouchedMark;
        ShiftImage(evenRef, out.ref, X, Y, sink);
        sink(Format("reference image shifting success// x = %d y = %d \n", X, Y));
    } else if (in(X, -kMaxShift, 0) && in(Y, 1, kMaxShift)) {
        ShiftImage(untouchedMark, out.mark, -X, 0, sink);
        ShiftImage(evenRef, out.ref, 0, Y, sink);
        sink(Format("mark and reference image shifting success// x = %d y = %d \n", X, Y));
    } else if (in(X, 1, kMaxShift) && in(Y, -kMaxShift, -1)) {
        ShiftImage(untouchedMark, out.mark, 0, -Y, sink);
        ShiftImage(evenRef, out.ref, X, 0, sink);
        sink(Format("mark and reference image shifting success// x = %d y = %d \n", X, Y));
    } else {
        out.mark = untouchedMark;
        out.ref = untouchedRef;
        sink(Format("Not shift pattern// x = %d y = %d \n", X, Y));
    }
    return out;
}

cv::Mat RatioImage(const cv::Mat& mark, const cv::Mat& ref) {
    cv::Mat m, r, ratio, out;
    mark.convertTo(m, CV_32F);
    ref.convertTo(r, CV_32F, 1.0, 0.01);
    cv::divide(m, r, ratio);
    ratio.setTo(cv::Scalar::all(255.0), ratio == 0.0f);
    ratio.convertTo(out, CV_8U, 200.0);
    return out;
}

// ---------------------------------------------------------------------------
// VBcv1032Pattern_Matching
// ---------------------------------------------------------------------------

namespace {

// The part shared by the files variant and the filter, up to the ratio
// image: brightness, pairing, shift and division.
struct Compared {
    cv::Mat ratio;
    bool paired = false;
};

Compared CompareAligned(const cv::Mat& mark, const cv::Mat& untouchedRef, const cv::Mat& evenRef,
                        const PatternList& markList, const PatternList& refList,
                        const LineSink& sink) {
    const PairOffsets offsets = PairPatterns(markList, refList, sink);
    const AlignedPair pair = AlignPair(mark, untouchedRef, evenRef, offsets, sink);
    Compared c;
    c.paired = pair.paired;
    c.ratio = RatioImage(pair.mark, pair.ref);
    return c;
}

// The result folder's two file names, or false when the folder is missing
// or the names would not fit the 256-byte buffers the prober provides.
bool ResultNames(const char* folder, std::wstring* temp, std::wstring* result) {
    if (!folder || folder[0] == '\0') return false;
    const size_t length = std::strlen(folder);
    if (length + std::strlen("\\ResultPadImg.bmp") + 1 > kNameBuffer) return false;
    const std::wstring base = platform::FromUtf8(folder);
    *temp = base + L"\\TempImg.bmp";
    *result = base + L"\\ResultPadImg.bmp";
    return true;
}

}  // namespace

double PatternMatching1032(const char* markPath, const char* referencePath,
                           const char* resultFolder, ImageStore& store) noexcept {
    bool done = false;
    return RunGuarded(
        1.0,
        [&]() -> double {
            try {
                TraceVersion();
                std::wstring tempName, resultName;
                if (!ResultNames(resultFolder, &tempName, &resultName)) {
                    VBcvTrace("----------failed to Save Image - Result folder is not usable----------\n");
                    return 1.0;
                }
                cv::Mat mark = markPath ? store.Read(platform::FromUtf8(markPath), 0) : cv::Mat();
                if (mark.rows == 0 || mark.cols == 0) {
                    VBcvTrace("----------failed to Load Image - Mark Image is not exist----------\n");
                    return 1.0;
                }
                cv::Mat reference =
                    referencePath ? store.Read(platform::FromUtf8(referencePath), 0) : cv::Mat();
                if (reference.rows == 0 || reference.cols == 0) {
                    VBcvTrace(
                        "----------failed to Load Image - Reference Image not exist----------\n");
                    return 1.0;
                }
                cv::resize(reference, reference, mark.size(), 0, 0, cv::INTER_LINEAR);
                if (reference.size() != mark.size()) {
                    VBcvTrace(
                        "----------failed to resize Image - Image size not coinside----------\n");
                    return 1.0;
                }
                // The images as loaded: where the shift table keeps an image
                // untouched, it is this one, without the brightness change.
                const cv::Mat untouchedMark = mark.clone();
                const cv::Mat untouchedRef = reference.clone();

                const float m = static_cast<float>(MeanOf(mark));
                const float r = static_cast<float>(MeanOf(reference));
                VBcvTrace("PMI Mean : %f, REF Mean : %f\n", m, r);
                g_padMeanGain = (256.0f - m) / (256.0f - m * 0.96f);

                const int tm = static_cast<int>(static_cast<float>(MeanOf(mark) * 0.95));
                const int tr = static_cast<int>(static_cast<float>(MeanOf(reference) * 0.95));
                cv::Mat binary;
                cv::threshold(mark, binary, tm, 255.0, cv::THRESH_BINARY_INV);
                const PatternList markList =
                    DetectPatterns(mark, binary, FeatureAnchor::kCorner, [](int x, int y, int a) {
                        VBcvTrace("MARK : x : %d y : %d a : %d\n", x, y, a);
                    });
                cv::threshold(reference, binary, tr, 255.0, cv::THRESH_BINARY_INV);
                PatternList refList = DetectPatterns(
                    reference, binary, FeatureAnchor::kCorner,
                    [](int x, int y, int a) { VBcvTrace("REF : x : %d y : %d a : %d\n", x, y, a); });
                VBcvTrace("Mark Pat Avrg : %d ,Ref Pat Avrg : %d\n", markList.Average(),
                          refList.Average());

                const cv::Mat evenRef = EvenBrightness(reference, markList, refList, m, r);
                // The last reference feature stands twice, so its pairs count
                // double (0, 0, 0 when there was none).
                refList.x.push_back(refList.x.empty() ? 0 : refList.x.back());
                refList.y.push_back(refList.y.empty() ? 0 : refList.y.back());
                refList.area.push_back(refList.area.empty() ? 0 : refList.area.back());

                const Compared c =
                    CompareAligned(untouchedMark, untouchedRef, evenRef, markList, refList,
                                   TraceLine);
                cv::Mat image = c.ratio;
                const double N = static_cast<double>(image.rows) * image.cols;

                // A small dark blob brightens the whole image.
                cv::Mat dark;
                cv::threshold(image, dark, MeanOf(image) * 0.9, 255.0, cv::THRESH_BINARY_INV);
                dark.convertTo(dark, CV_8U);
                int w = 0, h = 0;
                for (const std::vector<cv::Point>& contour : ListContours(dark)) {
                    if (cv::contourArea(contour) > N * 0.01) continue;
                    const cv::Rect box = FeatureBox(contour);
                    w = box.width;
                    h = box.height;
                }
                if (w * h != 0) image.convertTo(image, CV_8U, 1.27);

                cv::Mat blurred;
                cv::GaussianBlur(image, blurred, cv::Size(5, 5), 0, 0, cv::BORDER_DEFAULT);
                cv::bilateralFilter(blurred, image, -1, 10.0, 5.0, cv::BORDER_DEFAULT);
                store.Write(tempName, image);

                cv::threshold(image, image, MeanOf(image) * 0.9, 255.0, cv::THRESH_BINARY_INV);
                store.Write(resultName, image);

                done = true;
                VBcvTrace("----------Pattern Image Process Done.----------\n");
                return 1.0;
            } catch (const std::exception& e) {
                VBcvTrace("%s", e.what());
                if (!done) VBcvTrace("PMI DLL exception error\n");
                return 1.0;
            }
        },
        [] { return 1.0; });
}

// ---------------------------------------------------------------------------
// VBcv1032Pattern_MatchingECC
// ---------------------------------------------------------------------------

void PatternMatchingECC(const char* markPath, const char* referencePath,
                        ImageStore& store) noexcept {
    RunGuarded(
        0,
        [&]() -> int {
            try {
                TraceVersion();
                const cv::Mat mark =
                    markPath ? store.Read(platform::FromUtf8(markPath), 0) : cv::Mat();
                const cv::Mat reference =
                    referencePath ? store.Read(platform::FromUtf8(referencePath), 0) : cv::Mat();
                if (mark.empty() || reference.empty()) return 0;

                // The mark is the template and the reference is warped onto it.
                cv::Mat warp = cv::Mat::eye(2, 3, CV_32F);
                cv::findTransformECC(
                    mark, reference, warp, cv::MOTION_EUCLIDEAN,
                    cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS,
                                     kEccIterations, 1e-10),
                    cv::noArray());
                cv::Mat warped, cover, masked, sub;
                cv::warpAffine(reference, warped, warp, mark.size(),
                               cv::INTER_LINEAR + cv::WARP_INVERSE_MAP);
                const cv::Mat full(reference.size(), CV_8U, cv::Scalar(255));
                cv::warpAffine(full, cover, warp, mark.size(),
                               cv::INTER_LINEAR + cv::WARP_INVERSE_MAP);
                cv::bitwise_and(cover, mark, masked);
                cv::subtract(warped, masked, sub);

                cv::Mat normMasked, normWarped, normSub, orgSub;
                cv::normalize(masked, normMasked, 0, 255, cv::NORM_MINMAX);
                cv::normalize(warped, normWarped, 0, 255, cv::NORM_MINMAX);
                cv::normalize(sub, orgSub, 0, 255, cv::NORM_MINMAX);
                cv::subtract(normWarped, normMasked, normSub);
                cv::normalize(normSub, normSub, 0, 255, cv::NORM_MINMAX);
                if (!DisplayAvailable()) {
                    VBcvTrace("[VBcv1032Pattern_MatchingECC] No display : nothing shown\n");
                    return 0;
                }
                try {
                    cv::imshow("OrgMask", masked);
                    cv::imshow("OrgSub", sub);
                    cv::imshow("NormalizeSub", normSub);
                    cv::imshow("Normal-OrgSub", orgSub);
                    cv::imshow("Normal-NormalizeSub", normSub);
                    cv::waitKey(0);
                } catch (const cv::Exception& e) {
                    VBcvTrace("[VBcv1032Pattern_MatchingECC] No display : %s\n", e.what());
                }
                return 0;
            } catch (const std::exception& e) {
                VBcvTrace("%s", e.what());
                VBcvTrace("PMI DLL exception error\n");
                return 0;
            }
        },
        [] { return 0; });
}

// ---------------------------------------------------------------------------
// Pattern-in-pad comparison
// ---------------------------------------------------------------------------

int CompareInPad(const cv::Mat& markIn, const cv::Mat& referenceIn, cv::Mat& destination,
                 const LineSink& sink) {
    const cv::Mat mark = markIn;
    cv::Mat reference;
    cv::resize(referenceIn, reference, mark.size(), 0, 0, cv::INTER_LINEAR);
    if (reference.size() != mark.size()) {
        sink("----------failed to resize Image - Image size not coinside----------\n");
        return 1;
    }
    const float m = static_cast<float>(MeanOf(mark));
    const float r = static_cast<float>(MeanOf(reference));
    sink(Format("PMI Mean : %f, REF Mean : %f\n", m, r));

    cv::Mat binary;
    cv::adaptiveThreshold(mark, binary, 255.0, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY_INV,
                          15, 3.0);
    const PatternList markList = DetectPatterns(mark, binary, FeatureAnchor::kCentre);
    cv::adaptiveThreshold(reference, binary, 255.0, cv::ADAPTIVE_THRESH_MEAN_C,
                          cv::THRESH_BINARY_INV, 15, 3.0);
    const PatternList refList = DetectPatterns(reference, binary, FeatureAnchor::kCentre);
    sink(Format("Mark Pat Avrg : %d ,Ref Pat Avrg : %d\n", markList.Average(),
                refList.Average()));

    const cv::Mat evenRef = EvenBrightness(reference, markList, refList, m, r);
    const PairOffsets offsets = PairPatterns(markList, refList, sink);
    AlignedPair pair = AlignPair(mark, reference, evenRef, offsets, sink);
    if (!pair.paired) {
        cv::Mat a, b;
        cv::GaussianBlur(pair.mark, a, cv::Size(3, 3), 0, 0, cv::BORDER_DEFAULT);
        cv::GaussianBlur(pair.ref, b, cv::Size(3, 3), 0, 0, cv::BORDER_DEFAULT);
        pair.mark = a;
        pair.ref = b;
    }
    cv::Mat image = RatioImage(pair.mark, pair.ref);

    const int kernel = pair.paired ? 5 : 3;
    const double gain = pair.paired ? 1.27 : 1.25;
    const double factor = pair.paired ? 0.85 : 0.9;
    cv::Mat blurred, smooth;
    cv::GaussianBlur(image, blurred, cv::Size(kernel, kernel), 0, 0, cv::BORDER_DEFAULT);
    blurred.convertTo(blurred, CV_8U, gain);
    cv::bilateralFilter(blurred, smooth, -1, 10.0, 5.0, cv::BORDER_DEFAULT);

    // The level: the mean without a 2-pixel frame, 0 when nothing is left.
    float sum = 0.0f;
    for (int y = 2; y <= smooth.rows - 3; ++y) {
        const uchar* row = smooth.ptr<uchar>(y);
        for (int x = 2 * smooth.channels(); x <= (smooth.cols - 2) * smooth.channels() - 1; ++x)
            sum += row[x];
    }
    float level = 0.0f;
    if (sum != 0.0f)
        level = sum / (static_cast<float>(smooth.cols - 4) * static_cast<float>(smooth.rows - 4));
    cv::threshold(smooth, smooth, level * factor, 255.0, cv::THRESH_BINARY);
    if (!pair.paired) sink("Static value used \n");

    smooth.copyTo(destination);
    sink("----------Pattern Image Process Done.----------\n");
    return 0;
}

}  // namespace pixmill::inspect::pattern
