// EnhancePadFindFilter on die images of 480 x 480 and 2448 x 2048: the time
// of one run of the filter, and the share of it that its one EnhanceImage
// call takes. Each iteration also times EnhanceImage alone on the same image
// with the filter's arguments (both directions, Sigma 4, gain 5), outside
// the measured time, right after the filter: "enhance_share" is the median
// of these pairwise fractions.
#include <algorithm>
#include <chrono>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "enhance/Enhance.h"
#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "framework/Json.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

struct Config {
    int width;
    int height;
    int padWidth;
    int padHeight;
};

const Config kConfigs[] = {{480, 480, 80, 60}, {2448, 2048, 240, 180}};

std::string Key(const Config& c) {
    return std::to_string(c.width) + "x" + std::to_string(c.height);
}

// Uneven light, a street, bond squares and one pad in the lower right that
// stands `contrast` above its surround.
cv::Mat DieScene(const Config& c, int contrast) {
    cv::Mat1f scene(c.height, c.width);
    for (int y = 0; y < c.height; ++y)
        for (int x = 0; x < c.width; ++x)
            scene(y, x) = 70.0f + 50.0f * x / c.width - 20.0f * y / c.height;
    cv::Mat1f structures = cv::Mat1f::zeros(c.height, c.width);
    cv::rectangle(structures, cv::Rect(0, c.height / 4, c.width, c.height / 32), cv::Scalar(70),
                  cv::FILLED);
    for (int x = c.width / 12; x < c.width / 2; x += c.width / 10)
        cv::rectangle(structures, cv::Rect(x, c.height / 2, c.width / 22, c.width / 22),
                      cv::Scalar(90), cv::FILLED);
    cv::rectangle(structures,
                  cv::Rect(c.width * 6 / 10, c.height * 6 / 10, c.padWidth, c.padHeight),
                  cv::Scalar(contrast), cv::FILLED);
    cv::Mat noise(scene.size(), CV_32F);
    cv::RNG(3).fill(noise, cv::RNG::NORMAL, 0, 6);
    cv::Mat out;
    cv::Mat(scene + structures + noise).convertTo(out, CV_8U);
    cv::GaussianBlur(out, out, cv::Size(3, 3), 0);
    return out;
}

std::unique_ptr<IFilter> PadFinder(const Config& c) {
    std::unique_ptr<IFilter> filter(dynamic_cast<IFilter*>(
        pixmill::FilterRegistry::Instance().Create(L"EnhancePadFindFilter")));
    pixmill::JsonDocument doc;
    const std::wstring json =
        L"{\"Params\":[{\"Key\":\"PadWidth\",\"Value\":\"" + std::to_wstring(c.padWidth) +
        L"\"},{\"Key\":\"PadHeight\",\"Value\":\"" + std::to_wstring(c.padHeight) +
        L"\"},{\"Key\":\"Acceptance\",\"Value\":\"0.7\"}]}";
    pixmill::ParseJson(doc, json.c_str());
    filter->Init(doc);
    return filter;
}

// Contrast 80: the first detector finds the pad. Contrast 30: the pad is
// found only by the frame match on the bars, the slowest path.
void PadFind(benchmark::State& state, Config c, int contrast) {
    cv::Mat scene = DieScene(c, contrast);
    std::vector<uint8_t> enhanced(scene.total());
    auto filter = PadFinder(c);
    std::vector<double> shares;
    for (auto _ : state) {
        // A new input image makes the filter run again.
        Clock::time_point start = Clock::now();
        filter->GetPin(1)->SetImage({&scene});
        const std::vector<cv::Mat*> out = filter->GetPin(-1)->GetImage();
        benchmark::DoNotOptimize(out.data());
        const double whole = Since(start);
        if (out.size() != 1) state.SkipWithError("no output image");

        state.PauseTiming();
        start = Clock::now();
        pixmill::EnhanceImage(scene.data, enhanced.data(), c.width, c.height, 0, 4.0f, 5.0f);
        benchmark::DoNotOptimize(enhanced.data());
        shares.push_back(Since(start) / whole);
        state.ResumeTiming();
    }
    if (!shares.empty()) {
        std::nth_element(shares.begin(), shares.begin() + shares.size() / 2, shares.end());
        state.counters["enhance_share"] = shares[shares.size() / 2];
    }
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    for (const Config& c : kConfigs)
        for (int contrast : {80, 30})
            benchmark::RegisterBenchmark(
                ("EnhancePadFindFilter/" + Key(c) + "/contrast" + std::to_string(contrast)).c_str(),
                PadFind, c, contrast)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(2.0)
                ->UseRealTime();
    return pixmill::bench::RunRegistered(argc, argv);
}
