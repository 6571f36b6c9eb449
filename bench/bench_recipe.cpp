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
//   DirectCopiesPng  plus the crop's debug image, written as PNG.
// The baselines keep their images from one iteration to the next, as a
// program calling the image library in a loop would. The engine cannot: it
// builds the recipe's filters anew for every execution, so its images are
// fresh memory that the system maps on first touch. What remains of
// RecipeExecute over DirectCopiesPng is that, and the engine itself: parsing
// the recipe, building and linking the filters, the pulls, the log calls and
// the result document.
//
// Each reports its fastest iteration ("best_ms"), which other load on the
// machine disturbs far less than the mean. RecipeExecute reports "ratio",
// its mean time over Direct's, and for each baseline the ratio of the
// fastest iterations ("best_over_<baseline>").
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "pixmill/pixmill.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWidth = 2448;
constexpr int kHeight = 2048;
const cv::Rect kCrop(100, 100, 2048, 1600);

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

enum class Extra { None, Copies, CopiesAndPng };

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
    const bool copies = extra != Extra::None;
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
    if (extra == Extra::CopiesAndPng) cv::imwrite(pngPath, crop);
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

void Recipe(benchmark::State& state) {
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
    pixmill::bench::ReportRatio(state, "Direct", times.Mean());
    state.counters["best_ms"] = times.best / 1e6;
    for (const char* name : {"Direct", "DirectCopies", "DirectCopiesPng"}) {
        const double best = pixmill::bench::Baseline(std::string(name) + "/best");
        if (best > 0) state.counters[std::string("best_over_") + name] = times.best / best;
    }
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
                                                       {"DirectCopiesPng", Extra::CopiesAndPng}};
    for (const auto& [name, extra] : baselines)
        benchmark::RegisterBenchmark(name, Direct, extra, std::string(name), png)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)
            ->UseRealTime();
    benchmark::RegisterBenchmark("RecipeExecute", Recipe)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(2.0)
        ->UseRealTime();
    return pixmill::bench::RunRegistered(argc, argv);
}
