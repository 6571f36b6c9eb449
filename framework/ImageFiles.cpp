#include "framework/ImageFiles.h"

#include <exception>
#include <opencv2/imgcodecs.hpp>

#include "logging/Logger.h"
#include "platform/Platform.h"

namespace pixmill {

cv::Mat ReadImageFile(const std::wstring& path, int flags) {
    if (path.empty()) return cv::Mat();
    const std::string native = platform::NativePath(path);
    try {
        return cv::imread(native, flags);
    } catch (const std::exception& e) {
        logging::LogA(1, "%s", e.what());
    }
    return cv::Mat();
}

bool WriteImageFile(const std::wstring& path, const cv::Mat& image) {
    const std::string native = platform::NativePath(path);
    platform::CreateParentDirectories(native);
    try {
        return cv::imwrite(native, image);
    } catch (const std::exception& e) {
        logging::LogA(1, "%s", e.what());
    }
    return false;
}

}  // namespace pixmill
