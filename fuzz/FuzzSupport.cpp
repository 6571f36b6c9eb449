#include "FuzzSupport.h"

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <unistd.h>

#include "pixmill/pixmill_ext.h"

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

}  // namespace pixmill::fuzz
