// The wafer edge family: DiagonalAverage on a 480 x 480 region against a
// 31 x 31 box mean of the same image (cv::blur, a plain neighbourhood mean
// as the yardstick), and the four-frame find's computation against the
// reading of its four frames.
#include <benchmark/benchmark.h>

#include <chrono>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "../tests/EdgeScenes.h"
#include "BenchSupport.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "inspect/edge/EdgeFindFEX.h"
#include "inspect/edge/EdgeImage.h"
#include "platform/Platform.h"

namespace pixmill::bench {
namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

cv::Mat Region() {
    return test::RenderScene(test::QuadrantScene(0, {240, 240}), {480, 480});
}

const char* const kPrefix = "C:\\bench\\fex";

struct Setup {
    Setup() {
        inspect::SetSavePauses(false);
        for (int i = 0; i < 4; ++i) {
            const std::string native = platform::NativePath(std::string(kPrefix) + std::to_string(i) + ".bmp");
            platform::CreateParentDirectories(native);
            cv::imwrite(native, test::RenderScene(test::QuadrantScene(i, {240, 240}), {640, 480}));
        }
    }
    BenchRoot root;
};

Setup& TheSetup() {
    static Setup setup;
    return setup;
}

void BM_Box31(benchmark::State& state) {
    const cv::Mat src = Region();
    cv::Mat dst;
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        cv::blur(src, dst, cv::Size(31, 31));
        benchmark::DoNotOptimize(dst.data);
        total += Since(start);
    }
    RecordBaseline("box31", total / double(state.iterations()));
}

void BM_DiagonalAverage(benchmark::State& state) {
    const cv::Mat src = Region();
    cv::Mat dst;
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        inspect::edge::DiagonalAverage(src, dst, int(state.range(0)));
        benchmark::DoNotOptimize(dst.data);
        total += Since(start);
    }
    ReportRatio(state, "box31", total / double(state.iterations()));
}

void BM_FEXRead(benchmark::State& state) {
    TheSetup();
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        inspect::edge::FEXFrames frames;
        if (!inspect::edge::ReadFEXFrames(inspect::Files(), kPrefix, frames)) state.SkipWithError("frames");
        benchmark::DoNotOptimize(frames.gray[0].data);
        total += Since(start);
    }
    RecordBaseline("fexread", total / double(state.iterations()));
}

void BM_FEXCompute(benchmark::State& state) {
    TheSetup();
    inspect::edge::FEXFrames frames;
    inspect::edge::ReadFEXFrames(inspect::Files(), kPrefix, frames);
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const inspect::edge::FEXOutcome out = inspect::edge::ComputeFEX(frames, 20, 40, false);
        if (out.combinations.empty()) state.SkipWithError("no combination");
        benchmark::DoNotOptimize(out.canvas.data);
        total += Since(start);
    }
    ReportRatio(state, "fexread", total / double(state.iterations()));
}

BENCHMARK(BM_Box31)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DiagonalAverage)->ArgName("cpos")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FEXRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FEXCompute)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace pixmill::bench

int main(int argc, char** argv) {
    return pixmill::bench::RunRegistered(argc, argv);
}
