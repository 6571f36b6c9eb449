// Several host threads calling the execute exports at once: every call gets
// its own, correct result. Built as a program of its own so that it can run
// under the thread sanitizer without the rest of the suite.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <opencv2/imgproc.hpp>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace pixmill::test {
namespace {

constexpr int kThreads = 4;
constexpr int kRuns = 200;
constexpr int kWidth = 320;
constexpr int kHeight = 240;

// Texture with blobs, different for every seed. Large enough that the
// images go through the buffer pool.
cv::Mat1b Scene(int seed) {
    cv::Mat1b m(kHeight, kWidth);
    cv::RNG rng(static_cast<uint64_t>(seed) + 1);
    rng.fill(m, cv::RNG::UNIFORM, 60, 160);
    for (int k = 0; k < 6; ++k)
        cv::circle(m, cv::Point(rng.uniform(0, kWidth), rng.uniform(0, kHeight)),
                   rng.uniform(3, 12), cv::Scalar(rng.uniform(0, 2) ? 230 : 20), -1);
    return m;
}

// The recipe's image work done directly: blur, threshold, open and close,
// crop.
cv::Mat Expected(const cv::Mat1b& scene, int kernel, int threshold, const cv::Rect& crop) {
    cv::Mat blurred, binary, t;
    cv::GaussianBlur(scene, blurred, cv::Size(kernel, kernel), 3, 0, cv::BORDER_DEFAULT);
    cv::threshold(blurred, binary, threshold, 255, cv::THRESH_BINARY);
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    cv::morphologyEx(binary, t, cv::MORPH_OPEN, element, cv::Point(-1, -1), 1,
                     cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    cv::morphologyEx(t, t, cv::MORPH_CLOSE, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
                     cv::morphologyDefaultBorderValue());
    return t(crop).clone();
}

std::wstring Recipe(int kernel, int threshold, const cv::Rect& crop) {
    wchar_t text[2048];
    std::swprintf(
        text, 2048,
        L"{\"Name\":\"mt\",\"Filters\":["
        L"{\"Name\":\"src\",\"Key\":\"s\",\"Type\":\"SourceFilter\",\"Params\":[{\"Key\":"
        L"\"ImageID\",\"Value\":\"1\"}],\"Pins\":[{\"Key\":-1}]},"
        L"{\"Name\":\"blur\",\"Key\":\"g\",\"Type\":\"GaussianBlurFilter\",\"Params\":[{\"Key\":"
        L"\"Kernel\",\"Value\":\"%d\"},{\"Key\":\"Sigma\",\"Value\":\"3\"}],"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"s\",\"PinKey\":-1}},{\"Key\":-1}]},"
        L"{\"Name\":\"bin\",\"Key\":\"t\",\"Type\":\"ThresholdFilter\",\"Params\":[{\"Key\":"
        L"\"Threshold\",\"Value\":\"%d\"}],"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"g\",\"PinKey\":-1}},{\"Key\":-1}]},"
        L"{\"Name\":\"morph\",\"Key\":\"m\",\"Type\":\"MorphologyFilter\",\"Params\":[{\"Key\":"
        L"\"KernelSize\",\"Value\":\"3\"}],"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"t\",\"PinKey\":-1}},{\"Key\":-1}]},"
        L"{\"Name\":\"crop\",\"Key\":\"c\",\"Type\":\"CropFilter\",\"IsEndPoint\":true,"
        L"\"Params\":[{\"Key\":\"x\",\"Value\":\"%d\"},{\"Key\":\"y\",\"Value\":\"%d\"},{\"Key\":"
        L"\"width\",\"Value\":\"%d\"},{\"Key\":\"height\",\"Value\":\"%d\"}],"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"m\",\"PinKey\":-1}},{\"Key\":-1}]}]}",
        kernel, threshold, crop.x, crop.y, crop.width, crop.height);
    return text;
}

bool SamePixels(const cv::Mat& expected, const uint8_t* data, int width, int height) {
    if (expected.cols != width || expected.rows != height || !data) return false;
    const cv::Mat got(height, width, CV_8UC1, const_cast<uint8_t*>(data));
    return cv::countNonZero(got != expected) == 0;
}

// One execution through one of the three entry families, checked against the
// direct computation. Returns "" when right, else what was wrong.
std::string RunOnce(int thread, int run) {
    const cv::Mat1b scene = Scene(thread * 1000 + run);
    const int kernel = (thread + run) % 2 ? 3 : 5;
    const int threshold = 60 + 17 * thread + run % 40;
    const cv::Rect crop(thread * 3, run % 7, 40 + thread * 5, 30 + run % 11);
    const cv::Mat expected = Expected(scene, kernel, threshold, crop);
    const std::wstring recipe = Recipe(kernel, threshold, crop);
    wchar_t fragment[64];
    std::swprintf(fragment, 64, L"{\"threshold\":%d}", threshold);

    switch ((thread + run) % 3) {
        case 0: {  // records
            ImageData data{kWidth, kHeight, 1, 1, scene.total(), scene.data};
            ImageData* list[] = {&data};
            ImageParam input{1, list, nullptr, 0};
            ImageParam output{};
            RecipeExecute(&input, &output, recipe.c_str(), nullptr);
            std::string error;
            if (output.count != 1 || !output.images || !output.images[0]) {
                error = "no output image";
            } else if (!SamePixels(expected, output.images[0]->data, output.images[0]->width,
                                   output.images[0]->height)) {
                error = "wrong pixels";
            } else if (!output.result || !std::wcsstr(output.result, fragment)) {
                error = "wrong result text";
            }
            ImageParamRelease(&output);
            return error;
        }
        case 1: {  // a single filter on caller memory
            std::vector<uint8_t> out(scene.total(), 1);
            wchar_t param[128];
            std::swprintf(param, 128, L"{\"Params\":[{\"Key\":\"Threshold\",\"Value\":\"%d\"}]}",
                          threshold);
            wchar_t result[256] = {};
            FilterExecuteByBuffer(scene.data, out.data(), kWidth, kHeight, L"ThresholdFilter", param,
                                  result, 256);
            cv::Mat binary;
            cv::threshold(scene, binary, threshold, 255, cv::THRESH_BINARY);
            if (!SamePixels(binary, out.data(), kWidth, kHeight)) return "wrong filter pixels";
            if (!std::wcsstr(result, fragment)) return "wrong filter result";
            return "";
        }
        default: {  // an image buffer
            void* buffer = ImageBufferCreate();
            if (!buffer) return "no buffer";
            ImageBufferAdd(buffer, 1, scene.data, static_cast<int>(scene.total()), kWidth, kHeight);
            std::vector<uint8_t> out(scene.total(), 0);
            int width = 0, height = 0;
            wchar_t result[1024] = {};
            RecipeExecuteByBufferID(buffer, out.data(), static_cast<int>(out.size()), &width,
                                    &height, recipe.c_str(), nullptr, result, sizeof result);
            int gotWidth = 0, gotHeight = 0;
            std::vector<uint8_t> back(scene.total(), 0);
            const int pixels = ImageBufferGet(buffer, 1, back.data(), static_cast<int>(back.size()),
                                              &gotWidth, &gotHeight);
            ImageBufferRelease(buffer);
            if (!SamePixels(expected, out.data(), width, height)) return "wrong buffer pixels";
            if (!std::wcsstr(result, fragment)) return "wrong buffer result";
            if (pixels != kWidth * kHeight || !SamePixels(scene, back.data(), gotWidth, gotHeight))
                return "buffer image changed by the run";
            return "";
        }
    }
}

class ConcurrencyTest : public PixmillTest {};

TEST_F(ConcurrencyTest, FourThreadsRunDifferentRecipesAndEachGetsItsOwnResult) {
    // The fixed-path debug images are shared by all calls; a host running
    // calls in parallel turns them off.
    PixmillSetDebugImages(0);
    std::atomic<int> failures{0};
    std::vector<std::string> firstError(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &failures, &firstError] {
            for (int run = 0; run < kRuns; ++run) {
                std::string error = RunOnce(t, run);
                if (error.empty()) continue;
                if (failures.fetch_add(1) == 0 || firstError[t].empty())
                    firstError[t] = "thread " + std::to_string(t) + " run " +
                                    std::to_string(run) + ": " + error;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
    for (const std::string& error : firstError) EXPECT_EQ(error, "");
}

TEST_F(ConcurrencyTest, ReleasingAndUsingOneBufferFromManyThreadsStaysSafe) {
    // Threads add to, read and release buffers they share; exactly one
    // release of each buffer succeeds and no call touches freed memory.
    const cv::Mat1b scene = Scene(7);
    for (int round = 0; round < 50; ++round) {
        void* buffer = ImageBufferCreate();
        ASSERT_NE(buffer, nullptr);
        std::atomic<int> released{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                ImageBufferAdd(buffer, 1, scene.data, static_cast<int>(scene.total()), kWidth,
                               kHeight);
                std::vector<uint8_t> back(scene.total());
                ImageBufferGet(buffer, 1, back.data(), static_cast<int>(back.size()), nullptr,
                               nullptr);
                if (ImageBufferRelease(buffer) == 0) released.fetch_add(1);
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(released.load(), 1) << "round " << round;
    }
}

}  // namespace
}  // namespace pixmill::test
