// ImageBufferCreate, ImageBufferAdd, ImageBufferGet and ImageBufferRelease.
#include "api/ImageBuffer.h"

#include <algorithm>
#include <mutex>
#include <unordered_set>

#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"

namespace pixmill::api {

using logging::LogW;

namespace {

// Live handles. A handle is checked against this table before it is used,
// so a stale or foreign pointer is refused instead of being written to.
std::mutex g_handlesMutex;
std::unordered_set<CImageBuffer*> g_handles;

}  // namespace

CImageBuffer::~CImageBuffer() {
    for (MasterImage& e : entries) delete e.image;
}

CImageBuffer* LookUpImageBuffer(void* handle) {
    if (!handle) return nullptr;
    auto* buffer = static_cast<CImageBuffer*>(handle);
    {
        std::lock_guard<std::mutex> lock(g_handlesMutex);
        if (g_handles.count(buffer)) return buffer;
    }
    LogW(4, L"[ERROR] Invalid  CImageBuffer ID");
    return nullptr;
}

}  // namespace pixmill::api

using pixmill::api::CImageBuffer;
using pixmill::api::LookUpImageBuffer;

extern "C" void* ImageBufferCreate(void) {
    pixmill::api::EnsureStartup();
    try {
        auto* buffer = new CImageBuffer();
        std::lock_guard<std::mutex> lock(pixmill::api::g_handlesMutex);
        pixmill::api::g_handles.insert(buffer);
        return buffer;
    } catch (...) {
        pixmill::logging::LogW(4, L"<ERROR func=\"ImageBufferCreate\"/>");
        return nullptr;
    }
}

extern "C" int ImageBufferAdd(void* buffer, int imageId, const uint8_t* data, int size, int width,
                              int height) {
    pixmill::api::EnsureStartup();
    CImageBuffer* b = LookUpImageBuffer(buffer);
    if (!b) return -1;
    auto* image = new cv::Mat(pixmill::api::MatFromPixels(data, size, width, height));
    try {
        b->entries.push_back(MasterImage{image, imageId});
    } catch (...) {
        delete image;
        throw;
    }
    return 0;
}

extern "C" int ImageBufferGet(void* buffer, int imageId, uint8_t* data, int size, int* width,
                              int* height) {
    pixmill::api::EnsureStartup();
    CImageBuffer* b = LookUpImageBuffer(buffer);
    if (!b) return -1;
    // The newest of several images with one ID wins.
    auto it = std::find_if(b->entries.rbegin(), b->entries.rend(),
                           [imageId](const MasterImage& e) { return e.ImageID == imageId; });
    if (it == b->entries.rend()) return 0;
    const cv::Mat& m = *it->image;
    const int pixels = m.rows * m.cols;
    // Counted in pixels, not bytes: of a three-channel image only the first
    // third arrives, as callers have always received.
    if (size > 0) pixmill::api::CopyPixels(m, data, std::min(size, pixels));
    if (width) *width = m.cols;
    if (height) *height = m.rows;
    return pixels;
}

extern "C" int ImageBufferRelease(void* buffer) {
    pixmill::api::EnsureStartup();
    CImageBuffer* b = LookUpImageBuffer(buffer);
    if (!b) return -1;
    {
        std::lock_guard<std::mutex> lock(pixmill::api::g_handlesMutex);
        pixmill::api::g_handles.erase(b);
    }
    delete b;
    return 0;
}
