// The background, pattern, blob matching and focus-free alignment filters,
// each run through its pins against a baseline of image library calls
// measured on the same inputs in the same run:
//
//   BackgroundSubstractFilter (2448 x 2048, BlurSize 31) against the bare
//     opening, box blur, subtraction and Otsu threshold it is built on;
//   BackgroundPatternSubstractFilter (640 x 480, MaxShift 16) against the
//     bare correlation search, move and absolute difference;
//   BlobMatchingFilter (640 x 480, 64 x 48 masked template) against OpenCV's
//     own masked TM_CCOEFF_NORMED on the same image, template and mask;
//   FocusingFreeAlignFilter (640 x 480, one image blurred) against
//     cv::phaseCorrelate on the same pair, the library's stock aligner.
//
// "ratio" is the filter's mean time over its baseline's. A filter's time
// includes its pins' copies of input and output, which the baselines lack.
#include <chrono>
#include <map>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "framework/Json.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// Texture, streets and pads under light falling across the field.
cv::Mat Scene(cv::Size size, uint64_t seed) {
    cv::Mat m(size, CV_8UC1);
    cv::RNG(seed).fill(m, cv::RNG::UNIFORM, 60, 100);
    for (int y = 0; y < size.height; y += 96)
        for (int x = 0; x < size.width; x += 120) {
            cv::rectangle(m, cv::Rect(x, y, 120, 8), cv::Scalar(30), cv::FILLED);
            cv::rectangle(m, cv::Rect(x + 30, y + 26, 40, 30), cv::Scalar(200), cv::FILLED);
        }
    cv::Mat light(size, CV_32F);
    for (int x = 0; x < size.width; ++x)
        light.col(x).setTo(1.0 - 0.5 * x / size.width);
    cv::Mat lit;
    m.convertTo(lit, CV_32F);
    lit = lit.mul(light);
    lit.convertTo(m, CV_8U);
    cv::GaussianBlur(m, m, cv::Size(0, 0), 0.8);
    return m;
}

struct Inputs {
    cv::Mat camera = Scene({2448, 2048}, 1);
    cv::Mat image;
    cv::Mat shifted;
    cv::Mat blurred;
    cv::Mat templ;
    cv::Mat mask;

    Inputs() {
        const cv::Mat field = Scene({700, 540}, 2);
        image = field(cv::Rect(30, 30, 640, 480)).clone();
        shifted = field(cv::Rect(23, 34, 640, 480)).clone();
        cv::GaussianBlur(shifted, blurred, cv::Size(0, 0), 3.0);
        templ = image(cv::Rect(200, 150, 64, 48)).clone();
        mask = cv::Mat(templ.size(), CV_8UC1, cv::Scalar(255));
        cv::circle(mask, cv::Point(32, 24), 10, cv::Scalar(0), cv::FILLED);
    }
};

const Inputs& In() {
    static const Inputs in;
    return in;
}

// A registered filter with its parameters set, fed and pulled per run.
class Runner {
public:
    Runner(const wchar_t* type, const std::wstring& params) {
        m_object.reset(pixmill::FilterRegistry::Instance().Create(type));
        m_filter = dynamic_cast<IFilter*>(m_object.get());
        pixmill::JsonDocument doc;
        pixmill::ParseJson(doc, (L"{\"Params\":" + params + L"}").c_str());
        m_filter->Init(doc);
    }
    // Sets the inputs (which makes the filter run again) and pulls.
    size_t Run(const std::map<int, cv::Mat>& inputs) {
        for (const auto& [key, image] : inputs) {
            std::vector<cv::Mat*> list{const_cast<cv::Mat*>(&image)};
            m_filter->GetPin(key)->SetImage(list);
        }
        return m_filter->GetPin(-1)->GetImage().size();
    }

private:
    std::unique_ptr<IBaseObject> m_object;
    IFilter* m_filter = nullptr;
};

template <typename Work>
double MeanOf(benchmark::State& state, Work work) {
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        work();
        total += Since(start);
    }
    return total / static_cast<double>(state.iterations());
}

void BareBackground(benchmark::State& state) {
    const cv::Mat& src = In().camera;
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(31, 31));
    cv::Mat open, smooth, flat, binary;
    pixmill::bench::RecordBaseline("background", MeanOf(state, [&] {
        cv::morphologyEx(src, open, cv::MORPH_OPEN, square);
        cv::blur(open, smooth, cv::Size(31, 31));
        cv::subtract(src, smooth, flat);
        cv::threshold(flat, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
        benchmark::DoNotOptimize(binary.data);
    }));
}

void Background(benchmark::State& state) {
    Runner filter(L"BackgroundSubstractFilter", L"[{\"Key\":\"BlurSize\",\"Value\":\"31\"}]");
    pixmill::bench::ReportRatio(state, "background", MeanOf(state, [&] {
        benchmark::DoNotOptimize(filter.Run({{1, In().camera}}));
    }));
}

void BarePattern(benchmark::State& state) {
    const Inputs& in = In();
    cv::Mat scores, moved, diff;
    pixmill::bench::RecordBaseline("pattern", MeanOf(state, [&] {
        cv::matchTemplate(in.shifted, in.image(cv::Rect(16, 16, 608, 448)), scores,
                          cv::TM_CCOEFF_NORMED);
        double best = 0;
        cv::Point at;
        cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
        const cv::Matx23d move(1, 0, at.x - 16, 0, 1, at.y - 16);
        cv::warpAffine(in.image, moved, move, in.image.size());
        cv::absdiff(in.shifted, moved, diff);
        benchmark::DoNotOptimize(diff.data);
    }));
}

void Pattern(benchmark::State& state) {
    Runner filter(L"BackgroundPatternSubstractFilter", L"[{\"Key\":\"MaxShift\",\"Value\":\"16\"}]");
    pixmill::bench::ReportRatio(state, "pattern", MeanOf(state, [&] {
        benchmark::DoNotOptimize(filter.Run({{1, In().shifted}, {2, In().image}}));
    }));
}

void OpenCvMasked(benchmark::State& state) {
    const Inputs& in = In();
    cv::Mat scores;
    pixmill::bench::RecordBaseline("blob", MeanOf(state, [&] {
        cv::matchTemplate(in.image, in.templ, scores, cv::TM_CCOEFF_NORMED, in.mask);
        benchmark::DoNotOptimize(scores.data);
    }));
}

void Blob(benchmark::State& state) {
    Runner filter(L"BlobMatchingFilter", L"[{\"Key\":\"MaxCount\",\"Value\":\"5\"}]");
    pixmill::bench::ReportRatio(state, "blob", MeanOf(state, [&] {
        benchmark::DoNotOptimize(
            filter.Run({{1, In().image}, {2, In().templ}, {3, In().mask}}));
    }));
}

void PhaseCorrelate(benchmark::State& state) {
    cv::Mat a, b;
    In().image.convertTo(a, CV_32F);
    In().blurred.convertTo(b, CV_32F);
    pixmill::bench::RecordBaseline("align", MeanOf(state, [&] {
        benchmark::DoNotOptimize(cv::phaseCorrelate(a, b));
    }));
}

void Align(benchmark::State& state) {
    Runner filter(L"FocusingFreeAlignFilter", L"[{\"Key\":\"MaxShift\",\"Value\":\"32\"}]");
    pixmill::bench::ReportRatio(state, "align", MeanOf(state, [&] {
        benchmark::DoNotOptimize(filter.Run({{1, In().blurred}, {2, In().image}}));
    }));
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    const std::pair<const char*, void (*)(benchmark::State&)> runs[] = {
        {"Bare/background", BareBackground},   {"BackgroundSubstractFilter", Background},
        {"Bare/pattern", BarePattern},         {"BackgroundPatternSubstractFilter", Pattern},
        {"OpenCvMasked/blob", OpenCvMasked},   {"BlobMatchingFilter", Blob},
        {"PhaseCorrelate/align", PhaseCorrelate}, {"FocusingFreeAlignFilter", Align}};
    for (const auto& [name, run] : runs)
        benchmark::RegisterBenchmark(name, run)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.5)
            ->UseRealTime();
    return pixmill::bench::RunRegistered(argc, argv);
}
