#include "inspect/pattern/PatternMatch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "framework/DebugImages.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pattern {

using logging::LogA;

const wchar_t* const kPatternSuccessImage = L"C:\\PROBERPARAM\\ParaImg\\PinLowAlignResult.jpg";
const wchar_t* const kPatternFailImage = L"C:\\PROBERPARAM\\ParaImg\\PinLowAlignFail.jpg";

namespace {

constexpr int kProgress = 2;
constexpr int kError = 4;

const PatternMatchResult kNoMatch{-1, -1, -1};

cv::Mat ReadUnchanged(ImageStore& store, const std::string& path) {
    return store.Read(platform::FromUtf8(path), cv::IMREAD_UNCHANGED);
}

// Pixel types cv::matchTemplate accepts.
bool Matchable(const cv::Mat& m) {
    return m.depth() == CV_8U || m.depth() == CV_32F;
}

}  // namespace

// ---------------------------------------------------------------------------
// VBcvPatternMatching
// ---------------------------------------------------------------------------

PatternMatchResult FindPattern(const char* targetPath, const char* patternPath,
                               int scoreThreshold, ImageStore& store) noexcept {
    return RunGuarded(
        kNoMatch,
        [&]() -> PatternMatchResult {
            try {
                TraceVersion();
                if (!targetPath || !patternPath || targetPath[0] == '\0' ||
                    patternPath[0] == '\0') {
                    LogA(kError, "[VBcvPatternMatching] Image Path is incorrect\n");
                    LogA(kError,
                         "[VBcvPatternMatching] Target Image Path : %s, Pattern Image Path : %s\n",
                         targetPath ? targetPath : "", patternPath ? patternPath : "");
                    return kNoMatch;
                }
                if (scoreThreshold < 0) {
                    LogA(kError, "[VBcvPatternMatching] Score threshold is incorrect : %d \n",
                         scoreThreshold);
                    return kNoMatch;
                }
                cv::Mat target = ReadUnchanged(store, targetPath);
                if (target.empty()) {
                    LogA(kError, "[VBcvPatternMatching] Target Image loading fail \n");
                    return kNoMatch;
                }
                LogA(kProgress, "[VBcvPatternMatching] Target Image loading done \n");
                const cv::Mat pattern = ReadUnchanged(store, patternPath);
                if (pattern.empty()) {
                    LogA(kError, "[VBcvPatternMatching] Pattern Image loading fail \n");
                    return kNoMatch;
                }
                LogA(kProgress, "[VBcvPatternMatching] Pattern Image loading done \n");
                if (pattern.type() != target.type() || !Matchable(target)) {
                    LogA(kError,
                         "[VBcvPatternMatching] Pattern Image type differs from Target Image \n");
                    return kNoMatch;
                }
                if (pattern.cols > target.cols || pattern.rows > target.rows) {
                    LogA(kError,
                         "[VBcvPatternMatching] Pattern Image is larger than Target Image \n");
                    return kNoMatch;
                }

                cv::Mat scores;
                cv::matchTemplate(target, pattern, scores, cv::TM_CCOEFF_NORMED);
                double best = 0;
                cv::Point at;
                cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
                cv::rectangle(target, at, cv::Point(at.x + pattern.cols, at.y + pattern.rows),
                              cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8, 0);
                const int x = pattern.cols / 2 + at.x, y = pattern.rows / 2 + at.y;
                const int score = CutToInt(best * 100.0);
                if (score >= scoreThreshold) {
                    if (DebugImagesEnabled()) store.Write(kPatternSuccessImage, target);
                    LogA(kProgress,
                         "[VBcvPatternMatching] Pattern matching success, Score / Threshold : %d "
                         "/ %d \n",
                         score, scoreThreshold);
                    return PatternMatchResult{x, y, score};
                }
                LogA(kProgress,
                     "[VBcvPatternMatching] Pattern matching fail, Score / Threshold : %d / %d \n",
                     score, scoreThreshold);
                if (DebugImagesEnabled()) store.Write(kPatternFailImage, target);
                return kNoMatch;
            } catch (const std::exception& e) {
                LogA(kError, "[VBcvPatternMatching] Fail : %s\n", e.what());
                return kNoMatch;
            }
        },
        [] { return kNoMatch; });
}

// ---------------------------------------------------------------------------
// VBcvMakePatternMask
// ---------------------------------------------------------------------------

int MakePatternMask(const char* path, const char* name, int imageCount, int pixelTolerance,
                    int changeLimit, ImageStore& store) noexcept {
    return RunGuarded(
        0,
        [&]() -> int {
            try {
                TraceVersion();
                LogA(kProgress, "[VBcvMakePatternMask] Start \n");
                const auto fileError = [] {
                    LogA(kError, "[VBcvMakePatternMask] Fail : File Error \n");
                    std::fputs("File Error \n", stdout);
                    return 0;
                };
                // No series to read (a null text or no image) is a file error.
                if (!path || !name || imageCount <= 0) return fileError();
                std::vector<cv::Mat> images;
                for (int i = 0; i < imageCount; ++i) {
                    cv::Mat image = ReadUnchanged(store, Format("%s%s%d.bmp", path, name, i));
                    if (image.empty()) return fileError();
                    // Every image is read at image 0's layout, so they must share it.
                    if (!images.empty() && (image.size() != images[0].size() ||
                                            image.type() != images[0].type()))
                        return fileError();
                    images.push_back(image);
                }

                const cv::Mat& first = images[0];
                cv::Mat mask(first.size(), CV_8UC1);
                int64_t count = 0;
                for (int r = 0; r < first.rows; ++r) {
                    uchar* out = mask.ptr<uchar>(r);
                    for (int c = 0; c < first.cols; ++c) {
                        // Bytes compare as signed values, so 127 and 128 lie 255 apart.
                        const int reference = static_cast<int8_t>(first.ptr<uchar>(r)[c]);
                        bool stable = true;
                        for (const cv::Mat& image : images) {
                            const int value = static_cast<int8_t>(image.ptr<uchar>(r)[c]);
                            if (!(std::abs(value - reference) < pixelTolerance)) {
                                stable = false;
                                break;
                            }
                        }
                        out[c] = stable ? 0 : 255;
                        if (!stable) ++count;
                    }
                }
                const int64_t pixels = static_cast<int64_t>(first.rows) * first.cols;
                const int64_t percent = count * 100 / pixels;
                if (percent > changeLimit) {
                    LogA(kError, "[VBcvMakePatternMask] Fail : Bigger than %d(TH2) Error \n",
                         changeLimit);
                    return 0;
                }
                store.Write(platform::FromUtf8(Format("%s%sM.bmp", path, name)), mask);
                LogA(kProgress, "[VBcvMakePatternMask] End \n");
                return 1;
            } catch (const std::exception& e) {
                LogA(kError, "[VBcvMakePatternMask] Fail : %s\n", e.what());
                return 0;
            }
        },
        [] { return 0; });
}

}  // namespace pixmill::inspect::pattern
