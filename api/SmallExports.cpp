// Image file helpers for callers that hold raw pixels, and the small exports.
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "api/Boundary.h"
#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

using pixmill::logging::LogA;
using pixmill::logging::LogW;

extern "C" int ImageRead(uint8_t* data, int size, int* width, int* height, const char* path) {
    pixmill::api::EnsureStartup();
    try {
        if (!path) throw std::invalid_argument("null path");
        cv::Mat m =
            cv::imread(pixmill::platform::NativePath(std::string(path)), cv::IMREAD_GRAYSCALE);
        const int pixels = m.rows * m.cols;
        if (size >= 1)
            pixmill::api::CopyPixels(m, data, static_cast<size_t>(std::min(size, pixels)));
        if (width) *width = m.cols;
        if (height) *height = m.rows;
        LogA(1, "<ImageRead width=\"%d\" height=\"%d\" path=\"%s\" />", m.cols, m.rows, path);
        return pixels;
    } catch (...) {
        LogA(4, "<ERROR func=\"ImageRead\">%s</ERROR>", path ? path : "");
        return -1;
    }
}

extern "C" int ImageWrite(const uint8_t* data, int width, int height, const char* path) {
    pixmill::api::EnsureStartup();
    LogA(1, "<ImageWrite width=\"%d\" height=\"%d\" path=\"%s\" />", width, height,
         path ? path : "");
    try {
        if (!path) throw std::invalid_argument("null path");
        cv::Mat m =
            pixmill::api::MatFromPixels(data, static_cast<int64_t>(width) * height, width, height);
        if (!cv::imwrite(pixmill::platform::NativePath(std::string(path)), m)) return -1;
        return 0;
    } catch (...) {
        LogA(4, "<ERROR func=\"ImageWrite\">%s</ERROR>", path ? path : "");
        return -1;
    }
}

extern "C" int ImageInvert(const uint8_t* source, uint8_t* destination, int width, int height) try {
    pixmill::api::EnsureStartup();
    LogW(2, L"ImageInvert : %d x %d ", width, height);
    if (width < 0 || height < 0) return -1;
    if (width == 0 || height == 0) return 0;
    if (!source || !destination) return -1;
    cv::Mat src(height, width, CV_8UC1, const_cast<uint8_t*>(source));
    cv::Mat inverted = cv::Scalar(255) - src;
    pixmill::api::CopyPixels(inverted, destination, static_cast<size_t>(width) * height);
    return 0;
} catch (...) {
    pixmill::api::LogRefusal(L"ImageInvert");
    return -1;
}

extern "C" int Add(int a, int b) {
    pixmill::logging::BeginCall();
    // Wraps around on overflow instead of leaving it undefined.
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

extern "C" int VBcvTestConv(void) try {
    pixmill::logging::BeginCall();
    pixmill::platform::VersionFields v = pixmill::platform::OpenCvVersion();
    VBcvTrace("Version : %d,%d,%d,%d\n", v.major, v.minor, v.revision, v.build);
    cv::Mat image = pixmill::ReadImageFile(L"D:\\a.bmp", cv::IMREAD_UNCHANGED);
    if (image.empty()) return -1;
    // Every non-zero sample becomes 255.
    cv::Mat binary = image != 0;
    return pixmill::WriteImageFile(L"D:\\b.bmp", binary) ? 0 : -1;
} catch (...) {
    pixmill::api::LogRefusal(L"VBcvTestConv");
    return -1;
}

extern "C" int Gnuplot_splot(void) {
    pixmill::logging::BeginCall();
    return pixmill::platform::OpenCvVersion().build;
}
