#include "FuzzSupport.h"

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <unistd.h>

#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::fuzz {

void SetUpOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        auto root = std::filesystem::temp_directory_path() / ("pixmill-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(root);
        PixmillSetRoot(root.string().c_str());
        PixmillSetLogLevels(4, 6, 6);
    });
}

std::wstring WideText(const std::string& bytes) {
    std::wstring out;
    out.reserve(bytes.size());
    for (unsigned char c : bytes) out += static_cast<wchar_t>(c);
    return out;
}

std::string JsonEscape(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

void WriteFrameFile(FuzzedDataProvider& in, const std::string& native, size_t junkBytes,
                    const std::function<void(FuzzedDataProvider&, cv::Mat&)>& draw) {
    const int mode = in.ConsumeIntegralInRange(0, 3);
    if (mode == 3) {
        platform::WriteWholeFile(native, in.ConsumeRandomLengthString(junkBytes));
        return;
    }
    cv::Size size(640, 480);
    if (in.ConsumeBool()) size = {in.ConsumeIntegralInRange(1, 700), in.ConsumeIntegralInRange(1, 520)};
    cv::Mat image(size, in.ConsumeBool() ? CV_8UC1 : CV_8UC3, cv::Scalar::all(in.ConsumeIntegral<uint8_t>()));
    if (mode == 0) {
        draw(in, image);
    } else if (mode == 1) {
        const std::vector<uint8_t> px = in.ConsumeBytes<uint8_t>(image.total() * image.elemSize());
        std::copy(px.begin(), px.end(), image.data);
    }
    cv::imwrite(native, image);
}

}  // namespace pixmill::fuzz
