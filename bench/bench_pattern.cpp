// matchTemplateMask against OpenCV's own masked TM_CCOEFF_NORMED.
//
// For each image and template size, the baseline runs cv::matchTemplate with
// a mask on the same 8-bit image, template and binary mask; matchTemplateMask
// then runs on the very same inputs. Its "ratio" counter is its mean time over
// the baseline's mean, both measured in this run, and "max_diff" the largest
// difference between the two score maps where OpenCV's is finite. A further
// case cuts the image from a larger one (a region of interest, rows not
// contiguous) to show the tiling reads through the parent's stride.
// "MatchTemplateMask1T" runs with OpenCV's pool held to one thread: the gain
// of sharing the transforms alone, whatever else runs on the machine.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>

#include "BenchSupport.h"
#include "inspect/pattern/MatchTemplateMask.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Config {
    cv::Size image;
    cv::Size templ;
    bool roi;
};

const Config kConfigs[] = {{{640, 480}, {64, 64}, false},
                           {{640, 480}, {160, 120}, false},
                           {{2448, 2048}, {256, 256}, false},
                           {{640, 480}, {64, 64}, true}};

std::string Key(const Config& c) {
    return std::to_string(c.image.width) + "x" + std::to_string(c.image.height) + "/" +
           std::to_string(c.templ.width) + "x" + std::to_string(c.templ.height) +
           (c.roi ? "/roi" : "");
}

// Pad-like texture: blurred noise with bright pads.
struct Inputs {
    cv::Mat parent, image, templ, mask;

    explicit Inputs(const Config& c) {
        cv::Mat noise(c.image.height + 40, c.image.width + 40, CV_32F);
        cv::RNG(5).fill(noise, cv::RNG::UNIFORM, 0, 255);
        cv::GaussianBlur(noise, noise, cv::Size(0, 0), 2.0);
        noise.convertTo(parent, CV_8U);
        for (int y = 20; y + 40 < parent.rows; y += 90)
            for (int x = 20; x + 60 < parent.cols; x += 110)
                cv::rectangle(parent, cv::Rect(x, y, 60, 40), cv::Scalar(220), cv::FILLED);
        image = c.roi ? parent(cv::Rect(20, 20, c.image.width, c.image.height))
                      : parent(cv::Rect(20, 20, c.image.width, c.image.height)).clone();
        templ = image(cv::Rect((image.cols - c.templ.width) / 3, (image.rows - c.templ.height) / 3,
                               c.templ.width, c.templ.height))
                    .clone();
        mask = cv::Mat(c.templ, CV_8U, cv::Scalar(255));
        cv::circle(mask, cv::Point(c.templ.width / 2, c.templ.height / 2),
                   std::min(c.templ.width, c.templ.height) / 4, cv::Scalar(0), cv::FILLED);
    }
};

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

void OpenCvMasked(benchmark::State& state, Config c) {
    const Inputs in(c);
    cv::Mat result;
    double total = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        cv::matchTemplate(in.image, in.templ, result, cv::TM_CCOEFF_NORMED, in.mask);
        benchmark::DoNotOptimize(result.data);
        total += Since(start);
    }
    pixmill::bench::RecordBaseline(Key(c), total / static_cast<double>(state.iterations()));
}

void MatchTemplateMask(benchmark::State& state, Config c, int threads) {
    const Inputs in(c);
    const int before = cv::getNumThreads();
    if (threads > 0) cv::setNumThreads(threads);
    cv::Mat result;
    double total = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        pixmill::inspect::pattern::matchTemplateMask(in.image, in.templ, result, in.mask);
        benchmark::DoNotOptimize(result.data);
        total += Since(start);
    }
    cv::setNumThreads(before);
    pixmill::bench::ReportRatio(state, Key(c), total / static_cast<double>(state.iterations()));

    cv::Mat theirs;
    cv::matchTemplate(in.image, in.templ, theirs, cv::TM_CCOEFF_NORMED, in.mask);
    double worst = 0.0;
    for (int r = 0; r < theirs.rows; ++r)
        for (int x = 0; x < theirs.cols; ++x) {
            const float t = theirs.at<float>(r, x);
            if (std::isfinite(t))
                worst = std::max(worst, std::fabs(static_cast<double>(result.at<float>(r, x)) - t));
        }
    state.counters["max_diff"] = worst;
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    for (const Config& c : kConfigs) {
        benchmark::RegisterBenchmark(("OpenCvMasked/" + Key(c)).c_str(), OpenCvMasked, c)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.0)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("MatchTemplateMask/" + Key(c)).c_str(), MatchTemplateMask, c, 0)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.0)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("MatchTemplateMask1T/" + Key(c)).c_str(), MatchTemplateMask, c, 1)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.0)
            ->UseRealTime();
    }
    return pixmill::bench::RunRegistered(argc, argv);
}
