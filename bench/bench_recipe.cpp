// A five-filter recipe through RecipeExecute against the same image library
// calls made directly.
//
// The recipe is SourceFilter, GaussianBlurFilter, ThresholdFilter,
// MorphologyFilter (3 by 3) and CropFilter (a 2048 by 1600 window) on a
// 2448 by 2048 gray image. Three baselines are measured in the same run,
// each adding one part of what the engine does on top of the image work:
//   Direct           the filters' image library calls, nothing else;
//   DirectCopies     plus the deep copies the engine makes: the caller's
//                    pixels into a matrix, every filter output stored by its
//                    pin (five), the end point's image copied out, and that
//                    copied into the caller's record;
//   DirectCopiesPng  plus the crop's debug image, written as PNG;
//   DirectPng        the image library calls and the PNG, no copies.
// The baselines keep their images from one iteration to the next, as a
// program calling the image library in a loop would; the engine reuses its
// image memory through its buffer pool.
//
// RecipeExecute runs with debug images on (the default, one PNG per run),
// RecipeExecuteNoDebug with them off. RecipeThroughput/1 and /2 run the
// recipe (debug images off) from one and from two host threads; there the
// image library's own worker threads are set to one, so that the figure
// shows how the engine scales with the host's threads rather than the
// library's.
//
// Each reports its fastest iteration ("best_ms"), which other load on the
// machine disturbs far less than the mean, and "ratio", its mean time over
// its baseline's. At the end the three figures that matter are printed:
//   debug off:  RecipeExecuteNoDebug / Direct
//   debug on:   RecipeExecute / DirectPng
//   threads:    executions per second with 2 threads / with 1 thread
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <chrono>
#include <cstdint>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWidth = 2448;
constexpr int kHeight = 2048;
const cv::Rect kCrop(100, 100, 2048, 1600);
// Executions per host thread in one throughput measurement.
constexpr int kPerThread = 60;

const wchar_t* const kRecipe =
    LR"({"Name":"bench","Filters":[)"
    LR"({"Name":"src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}],"Pins":[{"Key":-1}]},)"
    LR"({"Name":"blur","Key":"g","Type":"GaussianBlurFilter","Params":[{"Key":"Kernel","Value":"3"},{"Key":"Sigma","Value":"3"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":-1}]},)"
    LR"({"Name":"bin","Key":"t","Type":"ThresholdFilter","Params":[{"Key":"Threshold","Value":"127"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"g","PinKey":-1}},{"Key":-1}]},)"
    LR"({"Name":"morph","Key":"m","Type":"MorphologyFilter","Params":[{"Key":"KernelSize","Value":"3"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"t","PinKey":-1}},{"Key":-1}]},)"
    LR"({"Name":"crop","Key":"c","Type":"CropFilter","IsEndPoint":true,)"
    LR"("Params":[{"Key":"x","Value":"100"},{"Key":"y","Value":"100"},{"Key":"width","Value":"2048"},{"Key":"height","Value":"1600"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"m","PinKey":-1}},{"Key":-1}]}]})";

// Pad-like content: a noisy background with bright pads and dark marks.
cv::Mat1b Scene() {
    cv::Mat1b m(kHeight, kWidth);
    cv::RNG(1).fill(m, cv::RNG::UNIFORM, 90, 140);
    for (int y = 40; y + 60 < kHeight; y += 120)
        for (int x = 40; x + 60 < kWidth; x += 120) {
            cv::rectangle(m, cv::Rect(x, y, 50, 30), cv::Scalar(220), -1);
            cv::circle(m, cv::Point(x + 25, y + 50), 8, cv::Scalar(20), -1);
        }
    return m;
}

enum class Extra { None, Copies, CopiesAndPng, Png };

// The images of the direct runs, named after the engine's copies they stand
// for. Kept across iterations, so the library reuses their memory.
struct Images {
    cv::Mat input, source, blurred, blurPin, bgr, gray, binary, thresholdPin, opened, closed,
        morphologyPin, cropPin, endPoint, record;
};

// The recipe's image work, called directly; with the engine's copies and
// its debug image when asked.
const cv::Mat& DirectPipeline(const cv::Mat& scene, Extra extra, const std::string& pngPath,
                              Images& m) {
    static const cv::Mat element =
        cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3), cv::Point(-1, -1));
    const bool copies = extra == Extra::Copies || extra == Extra::CopiesAndPng;
    if (copies) scene.copyTo(m.input), m.input.copyTo(m.source);
    cv::GaussianBlur(copies ? m.source : scene, m.blurred, cv::Size(3, 3), 3, 0,
                     cv::BORDER_DEFAULT);
    if (copies) m.blurred.copyTo(m.blurPin);
    cv::cvtColor(m.blurred, m.bgr, cv::COLOR_GRAY2BGR);
    cv::cvtColor(m.bgr, m.gray, cv::COLOR_RGB2GRAY);
    cv::threshold(m.gray, m.binary, 127, 255, cv::THRESH_BINARY);
    if (copies) m.binary.copyTo(m.thresholdPin);
    cv::morphologyEx(m.binary, m.opened, cv::MORPH_OPEN, element, cv::Point(-1, -1), 1,
                     cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    cv::morphologyEx(m.opened, m.closed, cv::MORPH_CLOSE, element, cv::Point(-1, -1), 1,
                     cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    if (copies) m.closed.copyTo(m.morphologyPin);
    const cv::Mat crop = m.closed(kCrop);
    if (extra == Extra::CopiesAndPng || extra == Extra::Png) cv::imwrite(pngPath, crop);
    if (!copies) return m.closed;
    crop.copyTo(m.cropPin);
    m.cropPin.copyTo(m.endPoint);
    m.endPoint.copyTo(m.record);
    return m.record;
}

// Mean and fastest iteration of one run.
struct Times {
    double total = 0, best = 0;
    int64_t count = 0;
    void Add(Clock::duration d) {
        const double nanos = std::chrono::duration<double, std::nano>(d).count();
        total += nanos;
        best = count++ == 0 ? nanos : std::min(best, nanos);
    }
    double Mean() const { return count ? total / count : 0.0; }
};

void Direct(benchmark::State& state, Extra extra, std::string name, std::string png) {
    const cv::Mat1b scene = Scene();
    Images images;
    Times times;
    for (auto _ : state) {
        const auto start = Clock::now();
        const cv::Mat& out = DirectPipeline(scene, extra, png, images);
        benchmark::DoNotOptimize(out.data);
        times.Add(Clock::now() - start);
    }
    pixmill::bench::RecordBaseline(name, times.Mean());
    pixmill::bench::RecordBaseline(name + "/best", times.best);
    state.counters["best_ms"] = times.best / 1e6;
    if (name != "Direct") pixmill::bench::ReportRatio(state, "Direct", times.Mean());
}

void Recipe(benchmark::State& state, bool debugImages, std::string name,
            std::string baseline) {
    PixmillSetDebugImages(debugImages ? 1 : 0);
    cv::Mat1b scene = Scene();
    ImageData data{kWidth, kHeight, 1, 1, scene.total(), scene.data};
    ImageData* list[] = {&data};
    ImageParam input{1, list, nullptr, 0};
    Times times;
    for (auto _ : state) {
        ImageParam output{};
        const auto start = Clock::now();
        RecipeExecute(&input, &output, kRecipe, nullptr);
        times.Add(Clock::now() - start);
        if (output.count != 1 || output.images[0]->width != kCrop.width)
            state.SkipWithError("unexpected output");
        ImageParamRelease(&output);
    }
    PixmillSetDebugImages(1);
    pixmill::bench::RecordBaseline(name, times.Mean());
    pixmill::bench::RecordBaseline(name + "/best", times.best);
    pixmill::bench::ReportRatio(state, baseline, times.Mean());
    state.counters["best_ms"] = times.best / 1e6;
    for (const char* b : {"Direct", "DirectCopies", "DirectCopiesPng", "DirectPng"}) {
        const double best = pixmill::bench::Baseline(std::string(b) + "/best");
        if (best > 0) state.counters[std::string("best_over_") + b] = times.best / best;
    }
}

// Executions per second of `threads` host threads, each running the recipe
// `perThread` times on its own input, debug images off.
double ExecutionsPerSecond(int threads, int perThread) {
    PixmillSetDebugImages(0);
    const cv::Mat1b scene = Scene();
    std::atomic<bool> go{false};
    std::atomic<int> bad{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            cv::Mat1b own = scene.clone();
            ImageData data{kWidth, kHeight, 1, 1, own.total(), own.data};
            ImageData* list[] = {&data};
            ImageParam input{1, list, nullptr, 0};
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < perThread; ++i) {
                ImageParam output{};
                RecipeExecute(&input, &output, kRecipe, nullptr);
                if (output.count != 1) bad.fetch_add(1);
                ImageParamRelease(&output);
            }
        });
    const auto start = Clock::now();
    go.store(true);
    for (std::thread& w : workers) w.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    PixmillSetDebugImages(1);
    return bad.load() ? 0.0 : threads * perThread / seconds;
}

// Executions per second of `threads` host threads, each making the direct
// calls `perThread` times on its own images: what the machine itself allows.
double DirectExecutionsPerSecond(int threads, int perThread) {
    const cv::Mat1b scene = Scene();
    std::atomic<bool> go{false};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            const cv::Mat1b own = scene.clone();
            Images images;
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < perThread; ++i)
                benchmark::DoNotOptimize(DirectPipeline(own, Extra::None, "", images).data);
        });
    const auto start = Clock::now();
    go.store(true);
    for (std::thread& w : workers) w.join();
    return threads * perThread / std::chrono::duration<double>(Clock::now() - start).count();
}

void DirectThroughput(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    const int previous = cv::getNumThreads();
    cv::setNumThreads(1);
    double best = 0;
    for (auto _ : state) best = std::max(best, DirectExecutionsPerSecond(threads, kPerThread));
    cv::setNumThreads(previous);
    state.counters["exec_per_s"] = best;
    pixmill::bench::RecordBaseline("DirectThroughput/" + std::to_string(threads), best);
}

void Throughput(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    const int previous = cv::getNumThreads();
    cv::setNumThreads(1);
    ExecutionsPerSecond(threads, 2);  // the pool fills for this many threads
    double best = 0;
    for (auto _ : state) best = std::max(best, ExecutionsPerSecond(threads, kPerThread));
    cv::setNumThreads(previous);
    state.counters["exec_per_s"] = best;
    pixmill::bench::RecordBaseline("Throughput/" + std::to_string(threads), best);
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    const std::string png = (root.path() / "direct_crop.png").string();
    // One untimed pass of the engine first, so that the library's start-up
    // (log set-up, first registry use) falls outside the figures.
    {
        cv::Mat1b scene = Scene();
        ImageData data{kWidth, kHeight, 1, 1, scene.total(), scene.data};
        ImageData* list[] = {&data};
        ImageParam input{1, list, nullptr, 0}, output{};
        RecipeExecute(&input, &output, kRecipe, nullptr);
        ImageParamRelease(&output);
    }
    const std::pair<const char*, Extra> baselines[] = {{"Direct", Extra::None},
                                                       {"DirectCopies", Extra::Copies},
                                                       {"DirectCopiesPng", Extra::CopiesAndPng},
                                                       {"DirectPng", Extra::Png}};
    for (const auto& [name, extra] : baselines)
        benchmark::RegisterBenchmark(name, Direct, extra, std::string(name), png)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)
            ->UseRealTime();
    benchmark::RegisterBenchmark("RecipeExecute", Recipe, true, std::string("RecipeExecute"),
                                 std::string("DirectPng"))
        ->Unit(benchmark::kMillisecond)
        ->MinTime(2.0)
        ->UseRealTime();
    benchmark::RegisterBenchmark("RecipeExecuteNoDebug", Recipe, false,
                                 std::string("RecipeExecuteNoDebug"), std::string("Direct"))
        ->Unit(benchmark::kMillisecond)
        ->MinTime(2.0)
        ->UseRealTime();
    benchmark::RegisterBenchmark("DirectThroughput", DirectThroughput)
        ->Arg(1)
        ->Arg(2)
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("RecipeThroughput", Throughput)
        ->Arg(1)
        ->Arg(2)
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    const int rc = pixmill::bench::RunRegistered(argc, argv);

    // The three figures, from the fastest iterations and the best throughput.
    auto ratio = [](const char* a, const char* b) {
        const double x = pixmill::bench::Baseline(a), y = pixmill::bench::Baseline(b);
        return (x > 0 && y > 0) ? x / y : 0.0;
    };
    std::printf("debug images off: RecipeExecute / direct calls          = %.3f (mean %.3f)\n",
                ratio("RecipeExecuteNoDebug/best", "Direct/best"),
                ratio("RecipeExecuteNoDebug", "Direct"));
    std::printf("debug images on:  RecipeExecute / (direct calls + PNG)  = %.3f (mean %.3f)\n",
                ratio("RecipeExecute/best", "DirectPng/best"), ratio("RecipeExecute", "DirectPng"));
    std::printf("throughput:       2 threads / 1 thread (debug off)      = %.3f\n",
                ratio("Throughput/2", "Throughput/1"));
    std::printf("machine:          2 threads / 1 thread (direct calls)   = %.3f\n",
                ratio("DirectThroughput/2", "DirectThroughput/1"));
    return rc;
}
