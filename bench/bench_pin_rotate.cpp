// VBcvRotatePinFind on three 480 x 480 frames, search area 200 x 200, a
// 60 x 30 tip, angles -10 .. +10 at 1 degree.
//
// OneThread and TwoWorkers score the same 21 angles of one pass, the first
// on the calling thread, the second with rotation and scoring on two
// workers; "ratio" is TwoWorkers over OneThread, and "ratio_paired" the
// median of the ratios of the two timed back to back in each iteration,
// which slow changes of other load on the machine leave alone. Call is the
// whole exported call (frames, edge images, two passes, debug images);
// RotationOnly and ScoringOnly the two halves of one pass apart. OpenCV's
// own threads are switched off for the whole program;
// FrameReading is the reading of its three frames alone, with its ratio to
// the whole call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/RotatePinFind.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kFrames = 3, kArea = 200, kTipW = 60, kTipH = 30;
constexpr double kAngle = 10, kStep = 1;
constexpr int kAngles = 21;
const char* const kPrefix = "C:\\bench\\rotate";

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

void WriteFrames() {
    for (int k = 0; k < kFrames; ++k) {
        cv::Mat f(480, 480, CV_32F);
        cv::RNG rng(100 + k);
        rng.fill(f, cv::RNG::NORMAL, 60, 3);
        cv::Mat tip = cv::Mat::zeros(480, 480, CV_8UC1), face(480, 480, CV_32F), out;
        cv::Point2f p[4];
        cv::RotatedRect({251.5f, 232.5f}, cv::Size2f(kTipW, kTipH), 6).points(p);
        cv::fillConvexPoly(tip, std::vector<cv::Point>(p, p + 4), 255);
        cv::RNG(7).fill(face, cv::RNG::NORMAL, 170, 30);
        face.copyTo(f, tip);
        cv::GaussianBlur(f, f, cv::Size(3, 3), 0.7);
        f.convertTo(out, CV_8U);
        const std::string native =
            pixmill::platform::NativePath(std::string(kPrefix) + std::to_string(k) + ".bmp");
        pixmill::platform::CreateParentDirectories(native);
        cv::imwrite(native, out);
    }
}

cv::Mat Source() {
    return pixmill::inspect::pin::RotateEdgeSource(pixmill::inspect::Files(), kPrefix, kFrames,
                                                   kArea, kArea);
}

double Pass(const cv::Mat& source, bool twoWorkers) {
    const Clock::time_point start = Clock::now();
    benchmark::DoNotOptimize(pixmill::inspect::pin::ScoreRotations(source, kTipW, kTipH, kAngle,
                                                                   kStep, kAngles, twoWorkers));
    return Since(start);
}

void OneThread(benchmark::State& state) {
    const cv::Mat source = Source();
    double total = 0;
    for (auto _ : state) total += Pass(source, false);
    pixmill::bench::RecordBaseline("pass", total / static_cast<double>(state.iterations()));
}

void TwoWorkers(benchmark::State& state) {
    const cv::Mat source = Source();
    double total = 0;
    std::vector<double> pairs;
    for (auto _ : state) {
        const double two = Pass(source, true);
        total += two;
        state.PauseTiming();
        pairs.push_back(two / Pass(source, false));
        state.ResumeTiming();
    }
    pixmill::bench::ReportRatio(state, "pass", total / static_cast<double>(state.iterations()));
    std::nth_element(pairs.begin(), pairs.begin() + pairs.size() / 2, pairs.end());
    state.counters["ratio_paired"] = pairs[pairs.size() / 2];
}

// The two halves of a pass apart: the rotation worker's work and the
// scoring worker's. Overlapping them can save at most the smaller.
void RotationOnly(benchmark::State& state) {
    const cv::Mat source = Source();
    for (auto _ : state)
        for (int i = 0; i < kAngles; ++i)
            benchmark::DoNotOptimize(pixmill::inspect::pin::RotateImage(
                source, pixmill::inspect::pin::RotationDegrees(i, kAngle, kStep)));
}

void ScoringOnly(benchmark::State& state) {
    const cv::Mat source = Source();
    std::vector<cv::Mat> rotated;
    for (int i = 0; i < kAngles; ++i)
        rotated.push_back(pixmill::inspect::pin::RotateImage(
            source, pixmill::inspect::pin::RotationDegrees(i, kAngle, kStep)));
    for (auto _ : state)
        for (const cv::Mat& r : rotated) {
            cv::Mat S;
            pixmill::inspect::pin::IntegralImage(r, S);
            pixmill::inspect::pin::TipPosition p;
            benchmark::DoNotOptimize(pixmill::inspect::pin::ScanCorners(
                S, cv::Mat(), kTipW, kTipH, pixmill::inspect::pin::RECTANGLE,
                pixmill::inspect::pin::RECTANGLE, p));
        }
}

void Call(benchmark::State& state) {
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const PinFindResult r =
            VBcvRotatePinFind(kPrefix, kFrames, kFrames, kArea, kArea, kTipW, kTipH, kAngle, kStep);
        total += Since(start);
        if (r.Code == -1.0) state.SkipWithError("the tip was not found");
    }
    pixmill::bench::RecordBaseline("call", total / static_cast<double>(state.iterations()));
}

void FrameReading(benchmark::State& state) {
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        for (int k = 0; k < kFrames; ++k)
            benchmark::DoNotOptimize(pixmill::inspect::Files().Read(
                pixmill::platform::FromUtf8(std::string(kPrefix) + std::to_string(k) + ".bmp"),
                cv::IMREAD_GRAYSCALE));
        total += Since(start);
    }
    pixmill::bench::ReportRatio(state, "call", total / static_cast<double>(state.iterations()));
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    pixmill::inspect::SetSavePauses(false);
    // OpenCV's own thread pool would blur the comparison: the one-thread
    // pass must really run on one thread, and the two workers on two.
    cv::setNumThreads(1);
    WriteFrames();
    using Fn = void (*)(benchmark::State&);
    const std::pair<const char*, Fn> benches[] = {
        {"OneThread", OneThread}, {"TwoWorkers", TwoWorkers}, {"RotationOnly", RotationOnly},
        {"ScoringOnly", ScoringOnly}, {"Call", Call},
        {"FrameReading", FrameReading}};
    for (const auto& [name, fn] : benches)
        benchmark::RegisterBenchmark(name, fn)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.0)
            ->UseRealTime();
    return pixmill::bench::RunRegistered(argc, argv);
}
