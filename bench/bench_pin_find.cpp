// VBcvPinFind and VBcvPinFindEX on a 480 x 480 camera image, search area
// 200 x 200, tip 40 x 40: the whole exported call, and its two parts
// measured apart: the search on images held in memory, and the image
// reading and writing of one call replayed on the files.
#include <benchmark/benchmark.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "inspect/Inspection.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFindEX.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace pixmill::bench {
namespace {

using inspect::ImageStore;
using inspect::pin::PinFindArgs;

PinFindArgs Args() {
    PinFindArgs a;
    a.sx = a.sy = 200;
    a.sType = inspect::pin::CIRCLE;
    a.aType = inspect::pin::RECTANGLE;
    a.tx = a.ty = 40;
    a.edgeRatioThreshold = 0.01;
    a.sizeDivisor = 2.0;
    a.maxCircleRadius = 280.0;
    return a;
}

// A disc tip 17 pixels right of and 11 above the centre, on blurred noise.
void WriteCameraImage() {
    cv::Mat noise(480, 480, CV_32F), image;
    cv::RNG rng(7);
    rng.fill(noise, cv::RNG::NORMAL, 60, 6);
    cv::GaussianBlur(noise, noise, cv::Size(3, 3), 0);
    noise.convertTo(image, CV_8U);
    cv::circle(image, cv::Point(257, 229), 20, 230, cv::FILLED);
    const std::string native = platform::NativePath(inspect::pin::kPinInputImage);
    platform::CreateParentDirectories(native);
    cv::imwrite(native, image);
}

// Serves the camera image from memory and drops what is written: the search
// alone.
class MemoryStore final : public ImageStore {
public:
    MemoryStore() {
        for (int flags : {cv::IMREAD_GRAYSCALE, cv::IMREAD_COLOR})
            m_images.emplace_back(flags,
                                  inspect::Files().Read(inspect::pin::kPinInputImage, flags));
    }
    cv::Mat Read(const std::wstring&, int flags) override {
        for (auto& [f, image] : m_images)
            if (f == flags) return image;
        return cv::Mat();
    }
    void Write(const std::wstring&, const cv::Mat&) override {}

private:
    std::vector<std::pair<int, cv::Mat>> m_images;
};

// Passes everything to the files and keeps a copy of each write, so that a
// call's file traffic can be replayed alone.
class RecordingStore final : public ImageStore {
public:
    cv::Mat Read(const std::wstring& path, int flags) override {
        reads.emplace_back(path, flags);
        return inspect::Files().Read(path, flags);
    }
    void Write(const std::wstring& path, const cv::Mat& image) override {
        writes.emplace_back(path, image.clone());
        inspect::Files().Write(path, image);
    }
    std::vector<std::pair<std::wstring, int>> reads;
    std::vector<std::pair<std::wstring, cv::Mat>> writes;
};

struct Setup {
    Setup() {
        WriteCameraImage();
        inspect::SetSavePauses(false);
    }
    BenchRoot root;
};

Setup& TheSetup() {
    static Setup setup;
    return setup;
}

bool Verified(int search) {
    return search == 1;
}

PinFindResult Call(int search, ImageStore& store) {
    return Verified(search) ? inspect::pin::PinFindEX(Args(), 0.5, -1, store)
                            : inspect::pin::PinFind(Args(), store);
}

// The exported call as the prober makes it, with the 1 ms pause before each
// debug image.
void BM_Export(benchmark::State& state) {
    TheSetup();
    inspect::SetSavePauses(true);
    const PinFindArgs a = Args();
    for (auto _ : state) {
        const PinFindResult r =
            Verified(state.range(0))
                ? VBcvPinFindEX(a.sx, a.sy, a.sType, a.aType, a.tx, a.ty, a.edgeRatioThreshold,
                                a.sizeDivisor, a.maxCircleRadius, 0.0, 0.5, -1)
                : VBcvPinFind(a.sx, a.sy, a.sType, a.aType, a.tx, a.ty, a.edgeRatioThreshold,
                              a.sizeDivisor, a.maxCircleRadius, 0.0);
        if (r.Code != 0.0) state.SkipWithError("the tip was not found");
        benchmark::DoNotOptimize(r);
    }
    inspect::SetSavePauses(false);
}

// The same call without the pauses: search plus file traffic.
void BM_NoPause(benchmark::State& state) {
    TheSetup();
    for (auto _ : state)
        benchmark::DoNotOptimize(Call(static_cast<int>(state.range(0)), inspect::Files()));
}

// The search alone: the camera image from memory, nothing written.
void BM_Search(benchmark::State& state) {
    TheSetup();
    MemoryStore memory;
    for (auto _ : state) benchmark::DoNotOptimize(Call(static_cast<int>(state.range(0)), memory));
}

// The file traffic of one call alone: its two reads and its writes.
void BM_Files(benchmark::State& state) {
    TheSetup();
    RecordingStore recorded;
    Call(static_cast<int>(state.range(0)), recorded);
    for (auto _ : state) {
        for (const auto& [path, flags] : recorded.reads)
            benchmark::DoNotOptimize(inspect::Files().Read(path, flags));
        for (const auto& [path, image] : recorded.writes) inspect::Files().Write(path, image);
    }
    state.counters["writes"] = static_cast<double>(recorded.writes.size());
}

// Argument 0: VBcvPinFind, 1: VBcvPinFindEX.
BENCHMARK(BM_Export)->ArgName("EX")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NoPause)->ArgName("EX")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Search)->ArgName("EX")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Files)->ArgName("EX")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace pixmill::bench

BENCHMARK_MAIN();
