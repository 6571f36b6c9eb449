#include "framework/DebugImages.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "framework/ImageFiles.h"

namespace pixmill {

namespace {

// -1 undecided, 0 off, 1 on. Decided by the host's call, or else by the
// environment on the first query. Queries run on every filter and inspection
// thread, so this is a lock-free atomic.
std::atomic<int> g_debugImages{-1};

int FromEnvironment() {
    const char* text = std::getenv("PIXMILL_DEBUG_IMAGES");
    return (text && std::strcmp(text, "0") == 0) ? 0 : 1;
}

}  // namespace

bool DebugImagesEnabled() {
    int state = g_debugImages.load(std::memory_order_acquire);
    if (state < 0) {
        int expected = -1;
        const int read = FromEnvironment();
        // A host setting made meanwhile stays.
        if (g_debugImages.compare_exchange_strong(expected, read, std::memory_order_acq_rel))
            state = read;
        else
            state = expected;
    }
    return state != 0;
}

void SetDebugImages(bool enabled) {
    g_debugImages.store(enabled ? 1 : 0, std::memory_order_release);
}

bool WriteDebugImageFile(const std::wstring& path, const cv::Mat& image) {
    if (!DebugImagesEnabled()) return false;
    return WriteImageFile(path, image);
}

void ResetDebugImagesForTesting() {
    g_debugImages.store(-1, std::memory_order_release);
}

}  // namespace pixmill
