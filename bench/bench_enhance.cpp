// EnhanceImage against the bare separable filter passes it is built on.
//
// For each image size and sigma, the baseline runs only the two
// cv::sepFilter2D passes of direction 0 (derivative along rows, derivative
// along columns) with the same kernels and anchors, on an image already
// centred in float, into outputs kept across iterations. EnhanceImage then
// does the whole job from the caller's 8-bit pixels to the caller's 8-bit
// result. Its "ratio" counter is its mean time over the baseline's mean,
// both measured in this run, one right after the other.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "enhance/Enhance.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Config {
    int width;
    int height;
    float sigma;
};

const Config kConfigs[] = {
    {480, 480, 4.0f}, {480, 480, 10.0f}, {2448, 2048, 4.0f}, {2448, 2048, 10.0f}};
constexpr float kScale = 1.0f;

std::string Key(const Config& c) {
    return std::to_string(c.width) + "x" + std::to_string(c.height) + "/sigma" +
           std::to_string(static_cast<int>(c.sigma));
}

// Pad-like content: a noisy background with bright pads and dark marks.
cv::Mat1b Scene(const Config& c) {
    cv::Mat1b m(c.height, c.width);
    cv::RNG(1).fill(m, cv::RNG::UNIFORM, 90, 140);
    for (int y = 40; y + 60 < c.height; y += 120)
        for (int x = 40; x + 60 < c.width; x += 120) {
            cv::rectangle(m, cv::Rect(x, y, 50, 30), cv::Scalar(220), -1);
            cv::circle(m, cv::Point(x + 25, y + 50), 8, cv::Scalar(20), -1);
        }
    return m;
}

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// The two cv::sepFilter2D passes of direction 0, with EnhanceImage's kernels
// and anchors, on the image already centred in float, into outputs that stay
// allocated from one run to the next.
class RawPasses {
public:
    RawPasses(const Config& c, const cv::Mat1b& src) {
        pixmill::BuildEnhanceKernels(c.sigma, kScale, &m_smooth, &m_derivative);
        for (float& v : m_smooth.data) v /= static_cast<float>(m_smooth.divisor);
        for (float& v : m_derivative.data) v /= static_cast<float>(m_derivative.divisor);
        m_g = cv::Mat(m_smooth.size, 1, CV_32F, m_smooth.data.data());
        m_d = cv::Mat(m_derivative.size, 1, CV_32F, m_derivative.data.data());
        m_aG = m_smooth.size / 2 - 1;
        m_aD = m_derivative.size / 2 - 1;
        src.convertTo(m_centred, CV_32F, 1.0, -128.0);
    }

    void Run() {
        cv::sepFilter2D(m_centred, m_rows, CV_32F, m_d, m_g, cv::Point(m_aD, m_aG), 0.0,
                        cv::BORDER_REPLICATE);
        cv::sepFilter2D(m_centred, m_cols, CV_32F, m_g, m_d, cv::Point(m_aG, m_aD), 0.0,
                        cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(m_rows.data);
        benchmark::DoNotOptimize(m_cols.data);
        benchmark::ClobberMemory();
    }

private:
    pixmill::EnhanceKernel m_smooth, m_derivative;
    cv::Mat m_g, m_d, m_centred, m_rows, m_cols;
    int m_aG = 0, m_aD = 0;
};

void SepFilterPasses(benchmark::State& state, Config c) {
    RawPasses passes(c, Scene(c));
    double total = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        passes.Run();
        total += Since(start);
    }
    pixmill::bench::RecordBaseline(Key(c), total / static_cast<double>(state.iterations()));
}

// Besides its own time, each iteration also times the raw passes, outside
// the measured time, right after EnhanceImage: "ratio_paired" is the median
// of these pairwise ratios, which slow changes of other load on the machine
// leave alone.
void EnhanceImage(benchmark::State& state, Config c) {
    const cv::Mat1b src = Scene(c);
    std::vector<uint8_t> dst(static_cast<size_t>(c.width) * c.height);
    RawPasses passes(c, src);
    std::vector<double> pairs;
    double total = 0.0;
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        pixmill::EnhanceImage(src.data, dst.data(), c.width, c.height, 0, c.sigma, kScale);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
        const double enhance = Since(start);
        total += enhance;

        state.PauseTiming();
        start = Clock::now();
        passes.Run();
        pairs.push_back(enhance / Since(start));
        state.ResumeTiming();
    }
    pixmill::bench::ReportRatio(state, Key(c), total / static_cast<double>(state.iterations()));
    if (!pairs.empty()) {
        std::nth_element(pairs.begin(), pairs.begin() + pairs.size() / 2, pairs.end());
        state.counters["ratio_paired"] = pairs[pairs.size() / 2];
    }
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    for (const Config& c : kConfigs) {
        benchmark::RegisterBenchmark(("SepFilterPasses/" + Key(c)).c_str(), SepFilterPasses, c)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("EnhanceImage/" + Key(c)).c_str(), EnhanceImage, c)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)
            ->UseRealTime();
    }
    return pixmill::bench::RunRegistered(argc, argv);
}
