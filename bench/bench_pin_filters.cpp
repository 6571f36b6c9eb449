// The pin-tip recipe filters inside recipes run by RecipeExecute, each
// against the image library calls its filters make, done directly.
//
//   PintipRecipe  Source, ThresholdFilter, ImageMaskFilter and
//                 PintipPriorityFilter on a 640 x 480 probe-card view with
//                 five tips; baseline PintipDirect: threshold, AND, the two
//                 labellings, the colour round trip and the means.
//   MarkRecipe    Source, GaussianBlurFilter and FindMarkCenterFilter on a
//                 640 x 480 mark; baseline MarkDirect: blur, threshold,
//                 closing, contours, enclosing circles.
//   HoughRecipe   Source and HoughCirclesFilter on a 1000 x 900 disc of
//                 radius 350; baseline HoughDirect: the transform alone.
//
// What a recipe adds over its baseline is the engine (parsing, building,
// pulls, the copies every pin keeps, the result document), the drawings
// and the debug PNGs some filters write. Each recipe reports "ratio", its
// mean time over its baseline's, both measured in this run.
#include <chrono>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "pixmill/pixmill.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

cv::Mat AddNoise(cv::Mat image, double sigma, int seed) {
    cv::Mat noise(image.size(), CV_8SC1);
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::NORMAL, 0, sigma);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

cv::Mat ProbeCard() {
    cv::Mat image(480, 640, CV_8UC1, cv::Scalar(12));
    image(cv::Rect(120, 80, 400, 320)).setTo(70);
    for (cv::Point tip : {cv::Point(180, 130), cv::Point(470, 150), cv::Point(336, 252), cv::Point(200, 360),
                          cv::Point(455, 350)})
        cv::circle(image, tip, 6, cv::Scalar(220), cv::FILLED);
    cv::GaussianBlur(image, image, cv::Size(3, 3), 0.8);
    return AddNoise(image, 3, 1);
}

cv::Mat Disc(cv::Size size, cv::Point centre, int radius, int level, int background, double noise) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(background));
    cv::circle(image, centre, radius, cv::Scalar(level), cv::FILLED, cv::LINE_AA);
    cv::GaussianBlur(image, image, cv::Size(5, 5), 1.2);
    return AddNoise(image, noise, 2);
}

const wchar_t* const kPintipRecipe =
    LR"({"Name":"pintip","Filters":[)"
    LR"({"Name":"Tip","Key":"p","Type":"PintipPriorityFilter","IsEndPoint":true,"Params":[{"Key":"Minsize","Value":"6"},)"
    LR"({"Key":"Maxsize","Value":"30"},{"Key":"weight","Value":"1.5"}],"Pins":[{"Key":1,"Link":{"FilterKey":"m","PinKey":-1}}]},)"
    LR"({"Name":"Mask","Key":"m","Type":"ImageMaskFilter","Params":[],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":2,"Link":{"FilterKey":"t","PinKey":-1}}]},)"
    LR"({"Name":"Bin","Key":"t","Type":"ThresholdFilter","Params":[{"Key":"Threshold","Value":"30"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}}]},)"
    LR"({"Name":"Src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}]}]})";

const wchar_t* const kMarkRecipe =
    LR"({"Name":"mark","Filters":[)"
    LR"({"Name":"Mark","Key":"f","Type":"FindMarkCenterFilter","IsEndPoint":true,"Params":[{"Key":"radius","Value":"80"},)"
    LR"({"Key":"minSize","Value":"60"},{"Key":"maxSize","Value":"100"},{"Key":"threshold","Value":"120"},)"
    LR"({"Key":"filterSize","Value":"5"}],"Pins":[{"Key":1,"Link":{"FilterKey":"g","PinKey":-1}}]},)"
    LR"({"Name":"Blur","Key":"g","Type":"GaussianBlurFilter","Params":[{"Key":"Kernel","Value":"5"},{"Key":"Sigma","Value":"1"}],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}}]},)"
    LR"({"Name":"Src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}]}]})";

const wchar_t* const kHoughRecipe =
    LR"({"Name":"hough","Filters":[)"
    LR"({"Name":"Hough","Key":"h","Type":"HoughCirclesFilter","IsEndPoint":true,"Params":[],)"
    LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}}]},)"
    LR"({"Name":"Src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}]}]})";

// The direct work of each recipe, on images kept from one run to the next.
void PintipDirect(const cv::Mat& image) {
    cv::Mat bin, masked, labels, stats, centroids, colour, gray, thresholded;
    cv::threshold(image, bin, 30, 255, cv::THRESH_BINARY);
    masked = image & bin;
    const int marked = cv::connectedComponentsWithStats(masked, labels, stats, centroids, 4, CV_32S);
    cv::cvtColor(masked, colour, cv::COLOR_GRAY2BGR);
    cv::cvtColor(colour, gray, cv::COLOR_BGR2GRAY);
    cv::Mat mask = cv::Mat::zeros(masked.size(), CV_8UC1);
    for (int l = 1; l < marked; ++l)
        cv::rectangle(mask, cv::Rect(stats.at<int>(l, 0), stats.at<int>(l, 1), stats.at<int>(l, 2), stats.at<int>(l, 3)),
                      cv::Scalar(255), cv::FILLED);
    const int level = static_cast<int>(cv::mean(gray, mask)[0] * 1.5);
    cv::threshold(masked, thresholded, level, 255, cv::THRESH_BINARY);
    const int n = cv::connectedComponentsWithStats(thresholded, labels, stats, centroids, 4, CV_32S);
    double sum = 0;
    for (int l = 1; l < n; ++l)
        sum += cv::mean(gray(cv::Rect(stats.at<int>(l, 0), stats.at<int>(l, 1), stats.at<int>(l, 2),
                                      stats.at<int>(l, 3))))[0];
    benchmark::DoNotOptimize(sum);
}

void MarkDirect(const cv::Mat& image) {
    cv::Mat blurred, bin;
    cv::GaussianBlur(image, blurred, cv::Size(5, 5), 1);
    cv::threshold(blurred, bin, 120, 255, cv::THRESH_BINARY);
    cv::morphologyEx(bin, bin, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5)));
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(bin, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    float best = 0;
    for (const auto& c : contours) {
        cv::Point2f centre;
        float r;
        cv::minEnclosingCircle(c, centre, r);
        best = std::max(best, r);
    }
    benchmark::DoNotOptimize(best);
}

void HoughDirect(const cv::Mat& image) {
    std::vector<cv::Vec3f> circles;
    cv::HoughCircles(image, circles, cv::HOUGH_GRADIENT, 1.0, 5000, 50, 35.0, 300, 500);
    benchmark::DoNotOptimize(circles.data());
}

struct Case {
    const char* name;
    cv::Mat (*image)();
    void (*direct)(const cv::Mat&);
    const wchar_t* recipe;
};

cv::Mat MarkImage() {
    return Disc({640, 480}, {352, 207}, 80, 180, 60, 4);
}
cv::Mat HoughImage() {
    // Light noise, as after smoothing: the transform's time grows with the
    // number of edge points, and unsmoothed noise makes them tens of
    // thousands.
    return Disc({1000, 900}, {505, 451}, 350, 190, 50, 2);
}

const Case kCases[] = {{"Pintip", ProbeCard, PintipDirect, kPintipRecipe},
                       {"Mark", MarkImage, MarkDirect, kMarkRecipe},
                       {"Hough", HoughImage, HoughDirect, kHoughRecipe}};

void Direct(benchmark::State& state, const Case* c) {
    const cv::Mat image = c->image();
    double total = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        c->direct(image);
        total += Since(start);
    }
    pixmill::bench::RecordBaseline(c->name, total / static_cast<double>(state.iterations()));
}

void Recipe(benchmark::State& state, const Case* c) {
    cv::Mat image = c->image();
    ImageData data{image.cols, image.rows, 1, 1, image.total(), image.data};
    ImageData* list[] = {&data};
    ImageParam input{1, list, nullptr, 0};
    double total = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        ImageParam output{};
        RecipeExecute(&input, &output, c->recipe, nullptr);
        if (output.count < 1) state.SkipWithError("the recipe gave no image");
        ImageParamRelease(&output);
        total += Since(start);
    }
    pixmill::bench::ReportRatio(state, c->name, total / static_cast<double>(state.iterations()));
}

}  // namespace

int main(int argc, char** argv) {
    pixmill::bench::BenchRoot root;
    for (const Case& c : kCases) {
        benchmark::RegisterBenchmark((std::string(c.name) + "Direct").c_str(), Direct, &c)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark((std::string(c.name) + "Recipe").c_str(), Recipe, &c)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    return pixmill::bench::RunRegistered(argc, argv);
}
