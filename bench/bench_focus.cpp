// The focus measures against the image library calls they are built on.
//
// TenengradFocusFilter runs through its pins on a 2448 x 2048 camera image:
// each iteration times the filter's run, then, outside the measured time,
// the copy that its output pin makes of the picture (a deep copy the pins
// must make) and the bare calls the measure needs: two Sobel passes,
// magnitude, the box filter2D, minMaxLoc and normalize, each into a fresh
// matrix as a one-shot call has. "ratio_paired" is the median over the
// iterations of (filter - copy) / bare calls, which slow changes of other
// load on the machine leave alone.
//
// MultiPeakFocusMeasureF runs its built-in recipe on an image buffer of ten
// 640 x 480 frames; its time per call is the figure.
#include <algorithm>
#include <chrono>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "BenchSupport.h"
#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// Streets, pads and a fine texture, mildly blurred.
cv::Mat Scene(int width, int height, double blur) {
    cv::Mat m(height, width, CV_8UC1);
    cv::RNG(3).fill(m, cv::RNG::UNIFORM, 90, 130);
    for (int y = 0; y < height; y += 96)
        for (int x = 0; x < width; x += 96) {
            cv::rectangle(m, cv::Rect(x, y, 96, 10), cv::Scalar(40), cv::FILLED);
            cv::rectangle(m, cv::Rect(x + 20, y + 24, 40, 30), cv::Scalar(210), cv::FILLED);
        }
    if (blur > 0) cv::GaussianBlur(m, m, cv::Size(0, 0), blur);
    return m;
}

double BareTenengrad(const cv::Mat& src, int kernel) {
    const Clock::time_point start = Clock::now();
    cv::Mat gx, gy, m, a, normalized;
    cv::Sobel(src, gx, CV_64F, 1, 0, 3);
    cv::Sobel(src, gy, CV_64F, 0, 1, 3);
    cv::magnitude(gx, gy, m);
    const cv::Mat box = cv::Mat::ones(kernel, kernel, CV_64F) / double(kernel * kernel);
    cv::filter2D(m, a, -1, box);
    double max = 0;
    cv::Point at;
    cv::minMaxLoc(a, nullptr, &max, nullptr, &at);
    cv::normalize(a, normalized, 0.0, 255.0, cv::NORM_MINMAX, CV_8U);
    benchmark::DoNotOptimize(normalized.data);
    benchmark::DoNotOptimize(max);
    return Since(start);
}

void Tenengrad(benchmark::State& state) {
    const int kernel = static_cast<int>(state.range(0));
    cv::Mat image = Scene(2448, 2048, 1.0);
    std::unique_ptr<IBaseObject> object(
        pixmill::FilterRegistry::Instance().Create(L"TenengradFocusFilter"));
    auto* filter = dynamic_cast<IFilter*>(object.get());
    pixmill::JsonDocument doc;
    pixmill::ParseJson(doc, (L"{\"Params\":[{\"Key\":\"Kernel\",\"Value\":\"" +
                             std::to_wstring(kernel) + L"\"}]}")
                                .c_str());
    filter->Init(doc);
    std::vector<cv::Mat*> input{&image};
    std::vector<double> pairs;
    for (auto _ : state) {
        state.PauseTiming();
        filter->GetPin(1)->SetImage(input);  // a new input makes the filter run
        state.ResumeTiming();
        const Clock::time_point start = Clock::now();
        const std::vector<cv::Mat*> out = filter->GetPin(-1)->GetImage();
        const double run = Since(start);
        state.PauseTiming();
        const Clock::time_point copyStart = Clock::now();
        cv::Mat copy;
        out.front()->copyTo(copy);
        benchmark::DoNotOptimize(copy.data);
        const double copyTime = Since(copyStart);
        pairs.push_back((run - copyTime) / BareTenengrad(image, kernel));
        state.ResumeTiming();
    }
    std::nth_element(pairs.begin(), pairs.begin() + pairs.size() / 2, pairs.end());
    state.counters["ratio_paired"] = pairs[pairs.size() / 2];
}

void BareCalls(benchmark::State& state) {
    const cv::Mat image = Scene(2448, 2048, 1.0);
    for (auto _ : state) BareTenengrad(image, static_cast<int>(state.range(0)));
}

void MultiPeak(benchmark::State& state) {
    void* buffer = ImageBufferCreate();
    for (int k = 0; k < 10; ++k) {
        const cv::Mat frame = Scene(640, 480, 0.4 * std::abs(k - 6));
        ImageBufferAdd(buffer, 1, frame.data, 640 * 480, 640, 480);
    }
    std::vector<wchar_t> text(2048);
    int index = -1;
    for (auto _ : state)
        index = MultiPeakFocusMeasureF(buffer, text.data(), static_cast<int>(text.size() * sizeof(wchar_t)));
    state.counters["focus_index"] = index;
    ImageBufferRelease(buffer);
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    for (int kernel : {10, 30}) {
        // Whole seconds per run on a busy machine: a fixed count of runs
        // gives the paired median enough pairs.
        benchmark::RegisterBenchmark("TenengradBareCalls/2448x2048", BareCalls)
            ->Arg(kernel)
            ->Iterations(5)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("TenengradFocusFilter/2448x2048", Tenengrad)
            ->Arg(kernel)
            ->Iterations(11)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("MultiPeakFocusMeasureF/10x640x480", MultiPeak)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    return pixmill::bench::RunRegistered(argc, argv);
}
