// The further inspections against the OpenCV work at their core, measured
// in the same run, so that "ratio" tells what each inspection adds:
//   FiducialMark   search in memory and the exported call on a file, over
//                  one cv::matchTemplate of the window with a drawn mark
//                  (baseline). The search adds drawing the template,
//                  the sub-pixel step and the debug image.
//   IntensityData  in memory and on a file, over cv::meanStdDev,
//                  cv::minMaxLoc and cv::calcHist on the region.
//   FlatPad        in memory (result file written), over the pad threshold
//                  estimator alone.
#include <chrono>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "enhance/PadThreshold.h"
#include "framework/TestHooks.h"
#include "inspect/Inspection.h"
#include "inspect/misc/FiducialMark.h"
#include "inspect/misc/FlatPad.h"
#include "inspect/misc/IntensityData.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace misc = pixmill::inspect::misc;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// Serves images from memory by prober path and drops every write.
class MemoryStore final : public pixmill::inspect::ImageStore {
public:
    void Put(const std::wstring& path, const cv::Mat& image) { m_images[path] = image; }
    cv::Mat Read(const std::wstring& path, int) override {
        const auto it = m_images.find(path);
        return it == m_images.end() ? cv::Mat() : it->second;
    }
    void Write(const std::wstring&, const cv::Mat&) override {}

private:
    std::map<std::wstring, cv::Mat> m_images;
};

cv::Mat Textured(cv::Size size, int seed) {
    cv::Mat f(size, CV_32F), out;
    cv::RNG(seed).fill(f, cv::RNG::NORMAL, 120, 10);
    cv::GaussianBlur(f, f, cv::Size(0, 0), 1.5);
    f.convertTo(out, CV_8U);
    return out;
}

void WriteFile(const std::string& proberPath, const cv::Mat& image) {
    const std::string native = pixmill::platform::NativePath(proberPath);
    pixmill::platform::CreateParentDirectories(native);
    cv::imwrite(native, image);
}

// ---------------------------------------------------------------------------
// Fiducial marks: a 60 x 60 cross of stroke 6 on a textured ground.
// ---------------------------------------------------------------------------

struct MarkConfig {
    cv::Size image;
    int window;  // 0: the whole image
};

const MarkConfig kMarkConfigs[] = {{{480, 480}, 240}, {{1280, 960}, 0}};

std::string Key(const MarkConfig& c) {
    return std::to_string(c.image.width) + "x" + std::to_string(c.image.height) + "/window" +
           std::to_string(c.window);
}

cv::Mat MarkImage(const MarkConfig& c) {
    cv::Mat image = Textured(c.image, 3);
    const cv::Point centre(c.image.width / 2 + 17, c.image.height / 2 - 11);
    cv::rectangle(image, cv::Rect(centre.x - 30, centre.y - 3, 60, 6), cv::Scalar(30), cv::FILLED);
    cv::rectangle(image, cv::Rect(centre.x - 3, centre.y - 30, 6, 60), cv::Scalar(30), cv::FILLED);
    return image;
}

misc::FiducialArgs MarkArgs(const MarkConfig& c) {
    misc::FiducialArgs a;
    a.path = "C:\\bench\\mark.bmp";
    a.markType = misc::kCross;
    a.tx = a.ty = 60;
    a.lineWidth = 6;
    a.polarity = misc::kDarkMark;
    a.sx = a.sy = c.window;
    a.minScore = 50;
    return a;
}

void MarkBaseline(benchmark::State& state, MarkConfig c) {
    const cv::Mat image = MarkImage(c);
    const int w = c.window ? c.window : image.cols, h = c.window ? c.window : image.rows;
    const cv::Mat window = image(cv::Rect(image.cols / 2 - w / 2, image.rows / 2 - h / 2, w, h));
    const cv::Mat templ = misc::DrawFiducialTemplate(misc::kCross, 60, 60, 6);
    cv::Mat scores;
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        cv::matchTemplate(window, templ, scores, cv::TM_CCOEFF_NORMED);
        benchmark::DoNotOptimize(scores.data);
        total += Since(start);
    }
    pixmill::bench::RecordBaseline("mark/" + Key(c), total / state.iterations());
}

void MarkSearch(benchmark::State& state, MarkConfig c, bool onFile) {
    pixmill::inspect::SetSavePauses(false);
    MemoryStore memory;
    const misc::FiducialArgs a = MarkArgs(c);
    memory.Put(pixmill::platform::FromUtf8(a.path), MarkImage(c));
    WriteFile(a.path, MarkImage(c));
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const FiducialMarkResult r =
            onFile ? VBcvFiducialMarkFind(a.path.c_str(), a.markType, a.tx, a.ty, a.lineWidth,
                                          a.polarity, a.sx, a.sy, a.minScore)
                   : misc::FindFiducialMark(a, memory);
        total += Since(start);
        if (r.Score < 50) state.SkipWithError("the mark was not found");
    }
    pixmill::bench::ReportRatio(state, "mark/" + Key(c), total / state.iterations());
}

// ---------------------------------------------------------------------------
// Intensity data: a 2448 x 2048 frame, the whole of it or a 480 x 480 region.
// ---------------------------------------------------------------------------

const cv::Rect kRegions[] = {{0, 0, 2448, 2048}, {1000, 800, 480, 480}};

std::string Key(const cv::Rect& r) {
    return std::to_string(r.width) + "x" + std::to_string(r.height);
}

const cv::Mat& Frame() {
    static const cv::Mat frame = Textured({2448, 2048}, 5);
    return frame;
}

void IntensityBaseline(benchmark::State& state, cv::Rect region) {
    const cv::Mat roi = Frame()(region);
    const int channels[] = {0}, bins[] = {256};
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        cv::Scalar mean, deviation;
        double least, greatest;
        cv::Mat hist;
        cv::meanStdDev(roi, mean, deviation);
        cv::minMaxLoc(roi, &least, &greatest);
        cv::calcHist(&roi, 1, channels, cv::Mat(), hist, 1, bins, ranges);
        benchmark::DoNotOptimize(hist.data);
        total += Since(start);
    }
    pixmill::bench::RecordBaseline("intensity/" + Key(region), total / state.iterations());
}

void Intensity(benchmark::State& state, cv::Rect region, bool onFile) {
    MemoryStore memory;
    const std::string path = "C:\\bench\\frame.png";
    memory.Put(pixmill::platform::FromUtf8(path), Frame());
    if (onFile) WriteFile(path, Frame());
    std::vector<int> hist(256);
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const IntensityData r =
            onFile ? VBcvGetIntesityData(path.c_str(), region.x, region.y, region.width,
                                         region.height, hist.data(), 256)
                   : misc::GetIntensityData(path.c_str(), region.x, region.y, region.width,
                                            region.height, hist.data(), 256, memory);
        total += Since(start);
        if (r.Pixels < 0) state.SkipWithError("no data");
    }
    pixmill::bench::ReportRatio(state, "intensity/" + Key(region), total / state.iterations());
}

// ---------------------------------------------------------------------------
// Flat pads: a pad filling the image with two probe marks.
// ---------------------------------------------------------------------------

const cv::Size kPads[] = {{220, 180}, {480, 480}};

std::string Key(const cv::Size& s) {
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

cv::Mat PadImage(cv::Size size) {
    cv::Mat f(size, CV_32F, cv::Scalar(180)), noise(size, CV_32F), out;
    cv::ellipse(f, cv::RotatedRect({size.width * 0.4f, size.height * 0.45f}, {34, 22}, 20),
                cv::Scalar(70), cv::FILLED);
    cv::ellipse(f, cv::RotatedRect({size.width * 0.7f, size.height * 0.6f}, {26, 18}, -35),
                cv::Scalar(90), cv::FILLED);
    cv::RNG(9).fill(noise, cv::RNG::NORMAL, 0, 4);
    f += noise;
    cv::GaussianBlur(f, f, cv::Size(0, 0), 1.0);
    f.convertTo(out, CV_8U);
    return out;
}

void FlatPadBaseline(benchmark::State& state, cv::Size size) {
    const cv::Mat pad = PadImage(size);
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        benchmark::DoNotOptimize(
            pixmill::VBcvGetThresholdEx(pad.data, pad.cols, pad.rows, 0, 0, 0, 0, 0, 0, 0));
        total += Since(start);
    }
    pixmill::bench::RecordBaseline("flatpad/" + Key(size), total / state.iterations());
}

void FlatPad(benchmark::State& state, cv::Size size) {
    pixmill::inspect::SetSavePauses(false);
    MemoryStore memory;
    misc::FlatPadArgs a;
    a.padPath = "C:\\bench\\pad.bmp";
    a.resultPath = "C:\\bench\\pad_bin.png";
    memory.Put(pixmill::platform::FromUtf8(a.padPath), PadImage(size));
    double total = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const FlatPadResult r = misc::BinarizeFlatPad(a, memory);
        total += Since(start);
        if (r.Marks != 2) state.SkipWithError("the marks were not isolated");
    }
    pixmill::bench::ReportRatio(state, "flatpad/" + Key(size), total / state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    const auto add = [](const std::string& name, auto&& fn, auto... args) {
        benchmark::RegisterBenchmark(name.c_str(), fn, args...)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.5)
            ->UseRealTime();
    };
    for (const MarkConfig& c : kMarkConfigs) {
        add("FiducialMark/baseline/" + Key(c), MarkBaseline, c);
        add("FiducialMark/memory/" + Key(c), MarkSearch, c, false);
        add("FiducialMark/export/" + Key(c), MarkSearch, c, true);
    }
    for (const cv::Rect& r : kRegions) {
        add("IntensityData/baseline/" + Key(r), IntensityBaseline, r);
        add("IntensityData/memory/" + Key(r), Intensity, r, false);
        add("IntensityData/export/" + Key(r), Intensity, r, true);
    }
    for (const cv::Size& s : kPads) {
        add("FlatPad/baseline/" + Key(s), FlatPadBaseline, s);
        add("FlatPad/memory/" + Key(s), FlatPad, s);
    }
    return pixmill::bench::RunRegistered(argc, argv);
}
