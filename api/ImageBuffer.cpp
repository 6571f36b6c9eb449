// ImageBufferCreate, ImageBufferAdd, ImageBufferGet and ImageBufferRelease.
#include "api/ImageBuffer.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "api/Boundary.h"
#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"

namespace pixmill::api {

using logging::LogW;

namespace {

// Live handles. A handle is an opaque number, never an address and never
// handed out twice, so a stale or foreign handle is refused instead of being
// written to, even after its memory has been reused.
struct HandleTable {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::shared_ptr<CImageBuffer>> live;
    uintptr_t next = 0x1000;
};

// Never destroyed: a host may release its buffers from its own static
// destructors or exit handlers, which can run after this library's.
HandleTable& Handles() {
    static HandleTable* table = new HandleTable();
    return *table;
}

void LogInvalid() {
    LogW(4, L"[ERROR] Invalid  CImageBuffer ID");
}

}  // namespace

CImageBuffer::~CImageBuffer() {
    for (MasterImage& e : entries) delete e.image;
}

BufferUse::BufferUse(std::shared_ptr<CImageBuffer> buffer)
    : m_buffer(std::move(buffer)), m_lock(m_buffer->m_mutex) {}

void* CreateImageBuffer() {
    try {
        auto buffer = std::make_shared<CImageBuffer>();
        HandleTable& table = Handles();
        std::lock_guard<std::mutex> lock(table.mutex);
        const uintptr_t handle = table.next;
        table.live.emplace(handle, std::move(buffer));
        table.next += 16;
        return reinterpret_cast<void*>(handle);
    } catch (...) {
        LogW(4, L"<ERROR func=\"ImageBufferCreate\"/>");
        return nullptr;
    }
}

BufferUse UseImageBuffer(void* handle) {
    if (!handle) return BufferUse();
    std::shared_ptr<CImageBuffer> buffer;
    {
        HandleTable& table = Handles();
        std::lock_guard<std::mutex> lock(table.mutex);
        auto it = table.live.find(reinterpret_cast<uintptr_t>(handle));
        if (it != table.live.end()) buffer = it->second;
    }
    if (!buffer) {
        LogInvalid();
        return BufferUse();
    }
    return BufferUse(std::move(buffer));
}

bool ReleaseImageBuffer(void* handle) {
    if (!handle) return false;
    std::shared_ptr<CImageBuffer> buffer;
    {
        HandleTable& table = Handles();
        std::lock_guard<std::mutex> lock(table.mutex);
        auto it = table.live.find(reinterpret_cast<uintptr_t>(handle));
        if (it != table.live.end()) {
            buffer = std::move(it->second);
            table.live.erase(it);
        }
    }
    if (!buffer) {
        LogInvalid();
        return false;
    }
    // The buffer goes here, or when the last export still using it returns.
    return true;
}

}  // namespace pixmill::api

using pixmill::api::BufferUse;
using pixmill::api::UseImageBuffer;

extern "C" void* ImageBufferCreate(void) {
    pixmill::api::EnsureStartup();
    return pixmill::api::CreateImageBuffer();
}

extern "C" int ImageBufferAdd(void* buffer, int imageId, const uint8_t* data, int size, int width,
                              int height) try {
    pixmill::api::EnsureStartup();
    BufferUse b = UseImageBuffer(buffer);
    if (!b) return -1;
    auto image = std::make_unique<cv::Mat>(pixmill::api::MatFromPixels(data, size, width, height));
    b->entries.push_back(MasterImage{image.get(), imageId});
    image.release();
    return 0;
} catch (...) {
    pixmill::api::LogRefusal(L"ImageBufferAdd");
    return -1;
}

extern "C" int ImageBufferGet(void* buffer, int imageId, uint8_t* data, int size, int* width,
                              int* height) try {
    pixmill::api::EnsureStartup();
    BufferUse b = UseImageBuffer(buffer);
    if (!b) return -1;
    // The newest of several images with one ID wins.
    auto it = std::find_if(b->entries.rbegin(), b->entries.rend(),
                           [imageId](const MasterImage& e) { return e.ImageID == imageId; });
    if (it == b->entries.rend()) return 0;
    const cv::Mat& m = *it->image;
    const int pixels = m.rows * m.cols;
    // Counted in pixels, not bytes: of a three-channel image only the first
    // third arrives.
    if (size > 0) pixmill::api::CopyPixels(m, data, std::min(size, pixels));
    if (width) *width = m.cols;
    if (height) *height = m.rows;
    return pixels;
} catch (...) {
    pixmill::api::LogRefusal(L"ImageBufferGet");
    return -1;
}

extern "C" int ImageBufferRelease(void* buffer) try {
    pixmill::api::EnsureStartup();
    return pixmill::api::ReleaseImageBuffer(buffer) ? 0 : -1;
} catch (...) {
    pixmill::api::LogRefusal(L"ImageBufferRelease");
    return -1;
}
