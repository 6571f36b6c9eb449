#include "inspect/edge/EdgeFindIA.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "inspect/edge/EdgeFind.h"
#include "inspect/edge/EdgeFindFEX.h"
#include "inspect/edge/EdgeImage.h"
#include "logging/Trace.h"

namespace pixmill::inspect::edge {

namespace {

constexpr int kMargin = 30;
constexpr int kReach = 20;  // averaged pixels on each side
constexpr int kLocal = 5;   // frame pixels on each side
constexpr int kCentre = 239;
constexpr int kPlotHeight = 511;

const cv::Scalar kGuide(255, 200, 0);
const cv::Scalar kBandGuide(0, 200, 255);
const cv::Scalar kQuiet(160, 160, 160);
const cv::Scalar kLoud(0, 128, 255);
const cv::Scalar kGreen(0, 255, 0);
const cv::Scalar kRed(0, 0, 255);
const cv::Scalar kText(255, 255, 255);

// The line across the diagonal at step t, as far as 60 pixels each way;
// steps far outside the region are held where the drawing still clips them.
void Guide(cv::Mat& image, int cpos, int64_t t, const cv::Scalar& colour) {
    const int s = static_cast<int>(std::clamp<int64_t>(t, -2000, 2000));
    const cv::Point at = s >= 0 && s <= kLast ? DiagonalPoint(cpos, s)
                                              : DiagonalPoint(cpos, 0) + (DiagonalPoint(cpos, 1) - DiagonalPoint(cpos, 0)) * s;
    const cv::Point along = DiagonalPoint(cpos, 1) - DiagonalPoint(cpos, 0);
    const cv::Point across(along.y, -along.x);
    cv::line(image, at - across * 60, at + across * 60, colour, 1, cv::LINE_8);
}

}  // namespace

std::vector<double> AlignmentStrength(const cv::Mat& region, const cv::Mat& averaged, int cpos) {
    const std::vector<double> a = DiagonalProfile(averaged, cpos);
    const std::vector<double> f = DiagonalProfile(region, cpos);
    std::vector<double> value(kRegion, 0.0);
    if (a.empty() || f.empty()) return value;
    for (int t = kMargin; t <= kLast - kMargin; ++t) {
        double onward = 0, backward = 0, ahead = 0, behind = 0;
        for (int k = 1; k <= kReach; ++k) {
            onward += a[t + k];
            backward += a[t - k];
        }
        for (int k = 1; k <= kLocal; ++k) {
            ahead += f[t + k];
            behind += f[t - k];
        }
        const double first = onward / kReach - a[t], second = backward / kReach - a[t];
        const double third = (ahead - behind) / kLocal;
        value[t] = std::abs(first - second) + std::abs(third);
    }
    return value;
}

int EdgeFindIA(const char* path, int cpos, int width, int tolerance, ImageStore& store) noexcept {
    return RunGuarded(
        -1,
        [&]() -> int {
            TraceVersion();
            VBcvTrace("[VBcvEdgeFindIA] Start \n");
            if (!KnownQuadrant(cpos)) {
                VBcvTrace("[VBcvEdgeFindIA] cpos Error \n");
                return -1;
            }
            if (width <= 2) {
                VBcvTrace("[VBcvEdgeFindIA] width Error \n");
                return -1;
            }
            const std::wstring file = CallerPath(path);
            const cv::Mat region = file.empty() ? cv::Mat() : SquareRegion(store.Read(file, cv::IMREAD_GRAYSCALE));
            if (region.empty()) {
                // The tag is the one the prober's log readers know.
                VBcvTrace("[VBcvEdgeFindIA_Ori] Fail : File Error\n");
                return -1;
            }
            cv::Mat averaged, frameC, averagedC;
            DiagonalAverage(region, averaged, cpos);
            cv::cvtColor(region, frameC, cv::COLOR_GRAY2BGR);
            cv::cvtColor(averaged, averagedC, cv::COLOR_GRAY2BGR);
            const int64_t half = width / 2;
            for (cv::Mat* m : {&frameC, &averagedC}) {
                Guide(*m, cpos, kCentre, kGuide);
                Guide(*m, cpos, kCentre - half, kBandGuide);
                Guide(*m, cpos, kCentre + half, kBandGuide);
            }

            const std::vector<double> value = AlignmentStrength(region, averaged, cpos);
            cv::Mat plot(kPlotHeight, kRegion, CV_8UC3, cv::Scalar::all(0));
            for (int t = 0; t < kRegion; t += 10) {
                cv::line(plot, {t, kPlotHeight - 1}, {t, kPlotHeight - 6}, kQuiet, 1, cv::LINE_8);
                if (t % 50 == 0)
                    cv::putText(plot, Format("%d", t), {t + 1, kPlotHeight - 20}, cv::FONT_HERSHEY_PLAIN, 0.7,
                                kQuiet, 1, cv::LINE_8);
            }
            const auto y = [](double v) { return CutToInt(std::clamp(kPlotHeight - v, -1.0, double(kPlotHeight))); };
            for (int t = kMargin + 1; t <= kLast - kMargin; ++t)
                cv::line(plot, {t - 1, y(value[t - 1])}, {t, y(value[t])}, value[t] > tolerance ? kLoud : kQuiet,
                         1, cv::LINE_8);
            bool success = false;
            int result = -1;
            for (int t = kMargin; t <= kLast - kMargin; ++t) {
                if (!(value[t] > tolerance)) continue;
                if (t >= kCentre - half && t <= kCentre + half) {
                    success = true;
                    result = CutToInt(value[t]);
                    cv::circle(plot, {t, y(value[t])}, 3, kGreen, 1, cv::LINE_8);
                } else {
                    cv::circle(plot, {t, y(value[t])}, 3, kRed, 1, cv::LINE_8);
                }
            }
            cv::Mat canvas(kPlotHeight, 3 * kRegion, CV_8UC3, cv::Scalar::all(0));
            frameC.copyTo(canvas(cv::Rect(0, 0, kRegion, kRegion)));
            averagedC.copyTo(canvas(cv::Rect(kRegion, 0, kRegion, kRegion)));
            plot.copyTo(canvas(cv::Rect(2 * kRegion, 0, kRegion, kPlotHeight)));
            cv::putText(canvas, Format("Width : %d,", width), {2, 500}, cv::FONT_HERSHEY_PLAIN, 1.0, kText, 1,
                        cv::LINE_8);
            cv::putText(canvas, Format("Tolerance : %d,", tolerance), {100, 500}, cv::FONT_HERSHEY_PLAIN, 1.0,
                        kText, 1, cv::LINE_8);
            cv::putText(canvas, success ? Format("Success : %d", result) : Format("Fail : %d", result), {240, 500},
                        cv::FONT_HERSHEY_PLAIN, 1.0, success ? kGreen : kRed, 1, cv::LINE_8);
            SaveDebugImage(store, std::wstring(kEdgeDebugFolder) + L"WaferEdgeIA.jpg", canvas);
            VBcvTrace("[VBcvEdgeFindIA] Return Value :%d\n", result);
            VBcvTrace("[VBcvEdgeFindIA] End \n");
            return result;
        },
        [] {
            VBcvTrace("[VBcvEdgeFindIA] Fail : Unexpected Error\n");
            return -1;
        });
}

}  // namespace pixmill::inspect::edge
