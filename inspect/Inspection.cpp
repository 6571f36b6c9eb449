#include "inspect/Inspection.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace pixmill::inspect {

namespace {

std::string FormatV(const char* format, va_list args) {
    return platform::FormatNarrow(format, args);
}

class FileStore final : public ImageStore {
public:
    cv::Mat Read(const std::wstring& proberPath, int flags) override {
        return ReadImageFile(proberPath, flags);
    }
    void Write(const std::wstring& proberPath, const cv::Mat& image) override {
        WriteImageFile(proberPath, image);
    }
};

std::atomic<bool> g_savePauses{true};

// Process-wide, as the pin searches share it; the caller makes one call at
// a time.
int g_pinImageSaveMode = -1;

}  // namespace

void TraceVersion() {
    // The first act of every inspection: a new call begins with no error.
    logging::BeginCall();
    const platform::VersionFields v = platform::OpenCvVersion();
    VBcvTrace("Version : %d,%d,%d,%d\n", v.major, v.minor, v.revision, v.build);
}

std::string Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = FormatV(format, args);
    va_end(args);
    return text;
}

Fail& Fail::Line(const char* format, ...) {
    va_list args;
    va_start(args, format);
    m_lines.push_back(FormatV(format, args));
    va_end(args);
    return *this;
}

void Fail::Trace() const {
    for (const std::string& line : m_lines) VBcvTrace("%s", line.c_str());
}

ImageStore& Files() {
    static FileStore store;
    return store;
}

void SetSavePauses(bool enabled) {
    g_savePauses.store(enabled);
}

void PauseBeforeSave() {
    if (g_savePauses.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void SaveDebugImage(ImageStore& store, const std::wstring& proberPath, const cv::Mat& image) {
    if (!DebugImagesEnabled()) return;  // no pause either: that is the point
    PauseBeforeSave();
    store.Write(proberPath, image);
}

std::string FailureImageName(char letter) {
    const platform::LocalTime t = platform::NowLocal();
    char name[64];
    std::snprintf(name, sizeof name, "%c_%2d%02d%02d_%02d%02d%02d", letter, t.year - 2000, t.month,
                  t.day, t.hour, t.minute, t.second);
    return name;
}

void SaveFailureImage(ImageStore& store, const std::wstring& folder, char letter,
                      const cv::Mat& image) {
    if (!DebugImagesEnabled()) return;
    store.Write(folder + platform::FromUtf8(FailureImageName(letter)) + L".jpg", image);
}

cv::Mat CutRegion(const cv::Mat& image, int x, int y, int w, int h) {
    if (w <= 0 || h <= 0 || x < 0 || y < 0) return cv::Mat();
    if (static_cast<int64_t>(x) + w > image.cols || static_cast<int64_t>(y) + h > image.rows)
        return cv::Mat();
    return image(cv::Rect(x, y, w, h)).clone();
}

TextCanvas::TextCanvas(int width, int height)
    : m_image(height, width, CV_8UC3, cv::Scalar::all(0)) {}

void TextCanvas::Put(int x, int y, const cv::Scalar& colour, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = FormatV(format, args);
    va_end(args);
    cv::putText(m_image, text, cv::Point(x, y), cv::FONT_HERSHEY_SIMPLEX, 0.5, colour, 1,
                cv::LINE_8);
}

int PinImageSaveMode() {
    return g_pinImageSaveMode;
}

void SetPinImageSaveMode(int mode) {
    g_pinImageSaveMode = mode;
}

int CutToInt(double value) {
    if (std::isnan(value)) return 0;
    if (value >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (value <= static_cast<double>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

}  // namespace pixmill::inspect
