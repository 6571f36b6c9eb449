// CornerDetectF on a 480 x 480 frame, and the black-background corner
// worker on a 2448 x 2048 frame with a grid of 20 dies: the computation, and
// the annotated image's writing measured against it in the same run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "inspect/die/DieCornerBlack.h"
#include "inspect/die/DieCornerImage.h"
#include "pixmill/pixmill.h"

namespace pixmill::bench {
namespace {

// Dies of w x h at the given top-left corners, tilted 0.7 degrees, level
// `die` over `ground`, blurred and noisy.
cv::Mat Dies(cv::Size size, const std::vector<cv::Point2f>& at, cv::Size2f die, int ground, int level) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(ground));
    for (const cv::Point2f& p : at) {
        const cv::RotatedRect r(p + cv::Point2f(die.width / 2, die.height / 2), die, 0.7f);
        cv::Point2f c[4];
        r.points(c);
        std::vector<cv::Point> poly(c, c + 4);
        cv::fillConvexPoly(image, poly, cv::Scalar(level), cv::LINE_AA);
    }
    cv::GaussianBlur(image, image, {3, 3}, 0.7);
    cv::Mat noise(size, CV_8UC1);
    cv::randn(noise, 0, 2);
    return image + noise;
}

const cv::Mat& Frame480() {
    static const cv::Mat image = Dies({480, 480}, {{150.4f, 120.3f}, {300.4f, 120.3f}, {150.4f, 260.3f}}, {100, 80},
                                      140, 220);
    return image;
}

// 5 x 4 dies of 460 x 430 with streets of 60 and 60, the left and right
// columns cut by the border.
const cv::Mat& FrameLarge() {
    static const cv::Mat image = [] {
        std::vector<cv::Point2f> at;
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 5; ++i) at.emplace_back(-120.f + i * 520, 40.f + j * 490);
        return Dies({2448, 2048}, at, {460, 430}, 5, 80);
    }();
    return image;
}

void BM_CornerDetectF(benchmark::State& state) {
    BenchRoot root;
    inspect::SetSavePauses(false);
    const cv::Mat& image = Frame480();
    int corners[10];
    for (auto _ : state)
        benchmark::DoNotOptimize(CornerDetectF(image.data, static_cast<int>(image.total()), image.cols, image.rows,
                                               110, 90, 160, 140, 100, 80, 10, 10, 0, corners));
}

constexpr const char* kCompute = "black_background_compute";

void BM_BlackBackgroundCompute(benchmark::State& state) {
    const cv::Mat& image = FrameLarge();
    size_t dies = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        const auto found = inspect::die::DetectBlackBackgroundDies(image, {460, 430, 20, 20, 0});
        dies = found.size();
        cv::Mat canvas = inspect::die::DieCanvas(image);
        for (const auto& d : found) inspect::die::DrawDieCorners(canvas, d);
        benchmark::DoNotOptimize(canvas.data);
    }
    state.counters["dies"] = static_cast<double>(dies);
    const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    RecordBaseline(kCompute, ns / static_cast<double>(state.iterations()));
}

// The annotated 2448 x 2048 colour image written as a debug image.
void BM_BlackBackgroundDebugWrite(benchmark::State& state) {
    BenchRoot root;
    inspect::SetSavePauses(false);
    const cv::Mat canvas = inspect::die::DieCanvas(FrameLarge());
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        inspect::SaveDebugImage(inspect::Files(), L"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinResult_Corner.bmp", canvas);
    const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    ReportRatio(state, kCompute, ns / static_cast<double>(state.iterations()));
}

BENCHMARK(BM_CornerDetectF)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlackBackgroundCompute)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlackBackgroundDebugWrite)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace pixmill::bench

BENCHMARK_MAIN();
