#include "Demo.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "ToolSupport.h"
#include "pixmill/pixmill_ext.h"

namespace fs = std::filesystem;

namespace pixmill::tool {

namespace {

// A die image as the prober's camera sees it: a dark wafer surface with a
// 4 x 3 grid of bright pads of 60 x 40 pixels, light sensor noise, and one
// probe mark on the pad at row 1, column 1.
constexpr int kPadWidth = 60, kPadHeight = 40, kPitchX = 140, kPitchY = 120;
constexpr int kFirstX = 60, kFirstY = 80, kColumns = 4, kRows = 3;

cv::Rect PadRect(int row, int column) {
    return {kFirstX + column * kPitchX, kFirstY + row * kPitchY, kPadWidth, kPadHeight};
}

cv::Mat DrawPads() {
    cv::Mat image(480, 640, CV_8UC1, cv::Scalar(40));
    cv::RNG rng(20261121);  // fixed seed: the same picture every run
    cv::Mat noise(image.size(), CV_8SC1);
    rng.fill(noise, cv::RNG::NORMAL, 0, 4);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    for (int r = 0; r < kRows; ++r)
        for (int c = 0; c < kColumns; ++c) cv::rectangle(image, PadRect(r, c), cv::Scalar(200), cv::FILLED);
    cv::Rect marked = PadRect(1, 1);
    cv::circle(image, (marked.tl() + marked.br()) / 2, 6, cv::Scalar(90), cv::FILLED);
    return image;
}

// A probe-card view for the pin-tip sample recipe: a dark frame around a
// dim window of the card (120, 80, 400 x 320) and five bright pin tips of
// radius 6; the tip nearest the window's centre is at (336, 252).
cv::Mat DrawProbeCard() {
    cv::Mat image(480, 640, CV_8UC1, cv::Scalar(12));
    image(cv::Rect(120, 80, 400, 320)).setTo(70);
    for (cv::Point tip : {cv::Point(180, 130), cv::Point(470, 150), cv::Point(336, 252), cv::Point(200, 360),
                          cv::Point(455, 350)})
        cv::circle(image, tip, 6, cv::Scalar(220), cv::FILLED);
    cv::GaussianBlur(image, image, cv::Size(3, 3), 0.8);
    cv::Mat noise(image.size(), CV_8SC1);
    cv::RNG rng(20261123);
    rng.fill(noise, cv::RNG::NORMAL, 0, 3);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

// A circular mark for the mark-centre sample recipe: a bright disc of
// radius 80 centred at (352.5, 207.5) on a gray, noisy background.
cv::Mat DrawMark() {
    cv::Mat image(480, 640, CV_8UC1, cv::Scalar(60));
    // Centre and radius in fixed point with 4 fractional bits.
    cv::circle(image, cv::Point(352 * 16 + 8, 207 * 16 + 8), 80 * 16, cv::Scalar(180), cv::FILLED, cv::LINE_AA, 4);
    cv::GaussianBlur(image, image, cv::Size(5, 5), 1.2);
    cv::Mat noise(image.size(), CV_8SC1);
    cv::RNG rng(20261124);
    rng.fill(noise, cv::RNG::NORMAL, 0, 4);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
    return image;
}

// The region the recipe crops: it holds the pads of rows 0 and 1, columns
// 1 and 2, whole.
const cv::Rect kCrop(180, 60, 280, 200);

std::wstring DemoRecipe() {
    auto crop = [](int v) { return std::to_wstring(v); };
    return LR"({"Name":"pixmill demo","Comment":"source, blur, threshold, morphology, crop; histogram of the source",)"
           LR"("Filters":[)"
           LR"({"Name":"Crop","Key":"5","Type":"CropFilter","IsEndPoint":true,"Params":[)"
           LR"({"Key":"x","Value":")" + crop(kCrop.x) + LR"("},{"Key":"y","Value":")" + crop(kCrop.y) +
           LR"("},{"Key":"width","Value":")" + crop(kCrop.width) + LR"("},{"Key":"height","Value":")" +
           crop(kCrop.height) + LR"("}],"Pins":[{"Key":1,"Link":{"FilterKey":"4","PinKey":-1}}]},)"
           LR"({"Name":"Histogram","Key":"6","Type":"HistogramFilter","IsEndPoint":true,"Params":[)"
           LR"({"Key":"Display","Value":"1"}],"Pins":[{"Key":1,"Link":{"FilterKey":"1","PinKey":-1}}]},)"
           LR"({"Name":"Morphology","Key":"4","Type":"MorphologyFilter","Params":[{"Key":"KernelSize","Value":"3"}],)"
           LR"("Pins":[{"Key":1,"Link":{"FilterKey":"3","PinKey":-1}}]},)"
           LR"({"Name":"Threshold","Key":"3","Type":"ThresholdFilter","Params":[{"Key":"Threshold","Value":"120"},)"
           LR"({"Key":"Invert","Value":"false"}],"Pins":[{"Key":1,"Link":{"FilterKey":"2","PinKey":-1}}]},)"
           LR"({"Name":"Blur","Key":"2","Type":"GaussianBlurFilter","Params":[{"Key":"Kernel","Value":"5"},)"
           LR"({"Key":"Sigma","Value":"2"}],"Pins":[{"Key":1,"Link":{"FilterKey":"1","PinKey":-1}}]},)"
           LR"({"Name":"Source","Key":"1","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"},)"
           LR"({"Key":"Path","Value":""}],"Pins":[{"Key":-1}]}]})";
}

int CountBlobs(const cv::Mat& binary) {
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(binary.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    return static_cast<int>(contours.size());
}

}  // namespace

int RunDemo(const std::string& rootArg) {
    const fs::path root = fs::absolute(rootArg);
    const fs::path images = root / "images", out = root / "out";
    fs::create_directories(images);
    fs::create_directories(out);
    // Logs and the library's own files go under the demo folder too.
    PixmillSetRoot(root.string().c_str());

    std::cout << "Pixmill demo in " << root.string() << "\n\n";
    const cv::Mat pads = DrawPads();
    const fs::path padsPath = images / "pads.png";
    if (!cv::imwrite(padsPath.string(), pads)) throw ToolError("cannot write " + padsPath.string());
    std::cout << "1. Drew " << padsPath.string() << ": 640 x 480, a dark wafer with " << kRows * kColumns
              << " bright pads of " << kPadWidth << " x " << kPadHeight << " and one probe mark.\n";

    // The images of the sample recipes under examples/ in the source tree.
    for (const auto& [name, image] : {std::pair<const char*, cv::Mat>{"pins.png", DrawProbeCard()},
                                      std::pair<const char*, cv::Mat>{"mark.png", DrawMark()}}) {
        const fs::path path = images / name;
        if (!cv::imwrite(path.string(), image)) throw ToolError("cannot write " + path.string());
    }
    std::cout << "   Drew pins.png (a probe-card view, five pin tips) and mark.png (a circular mark)\n"
                 "   for the sample recipes pintip_recipe.json and mark_center_recipe.json.\n";

    const fs::path recipePath = root / "demo_recipe.json";
    {
        std::ofstream file(recipePath, std::ios::binary);
        file << Narrow(DemoRecipe());
        if (!file) throw ToolError("cannot write " + recipePath.string());
    }
    std::cout << "2. Wrote the recipe " << recipePath.string()
              << ":\n   Source -> GaussianBlur -> Threshold -> Morphology -> Crop (end point),\n"
                 "   Source -> Histogram (end point).\n";

    InputImage input;
    input.image = pads;
    input.id = 1;
    input.path = padsPath.string();
    Execution run({input});
    const std::wstring recipe = DemoRecipe();
    std::cout << "3. Ran it with RecipeExecute on pads.png as image 1.\n\n";
    RecipeExecute(run.input(), run.output(), recipe.c_str(), nullptr);
    if (run.Result().empty()) throw ToolError("the demo recipe gave no result");

    std::string text = Narrow(run.Result()), pretty;
    std::cout << "Result document:\n" << (PrettyJson(text, pretty) ? pretty : text) << "\n\n";

    std::vector<std::string> written = run.WriteOutputs(out.string(), "demo");
    std::cout << "Output images:\n";
    for (const std::string& path : written) std::cout << "  " << path << "\n";
    if (written.empty()) throw ToolError("the demo recipe gave no image");

    // The crop holds 4 whole pads of the drawing; count what the recipe
    // left in it.
    cv::Mat cropped = cv::imread(written.front(), cv::IMREAD_GRAYSCALE);
    int expected = 0;
    for (int r = 0; r < kRows; ++r)
        for (int c = 0; c < kColumns; ++c) expected += (PadRect(r, c) & kCrop) == PadRect(r, c);
    const int found = cropped.empty() ? -1 : CountBlobs(cropped);
    std::cout << "\nThe cropped binary image holds " << found << " pads; the drawing put " << expected
              << " whole pads in that region.\n";
    std::cout << "Logs (errors only by default) are under " << (root / "C" / "Logs" / "SORVIK").string()
              << "\n";
    return found == expected ? 0 : 1;
}

}  // namespace pixmill::tool
