// Image buffers: numbered stores of images that a caller fills once and
// recipes then read. The caller holds a handle; only handles that the
// library handed out and has not yet released are accepted.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "framework/Filter.h"

namespace pixmill::api {

class CImageBuffer {
public:
    CImageBuffer() = default;
    ~CImageBuffer();
    CImageBuffer(const CImageBuffer&) = delete;
    CImageBuffer& operator=(const CImageBuffer&) = delete;

    // Entries in order of adding; the Mats are owned by the buffer. Read or
    // change them only through a BufferUse.
    std::vector<MasterImage> entries;

private:
    friend class BufferUse;
    std::mutex m_mutex;
};

// One export's use of a live buffer, from look-up to return. While it lasts
// the buffer's entries are locked against other threads, and a concurrent
// ImageBufferRelease only takes the handle out of the table: the buffer is
// freed when the last use ends, so no export ever reads freed memory.
class BufferUse {
public:
    BufferUse() = default;
    explicit BufferUse(std::shared_ptr<CImageBuffer> buffer);
    explicit operator bool() const { return m_buffer != nullptr; }
    CImageBuffer* operator->() const { return m_buffer.get(); }

private:
    std::shared_ptr<CImageBuffer> m_buffer;
    std::unique_lock<std::mutex> m_lock;
};

// Makes a buffer and returns its handle, or null if memory ran out.
void* CreateImageBuffer();

// The buffer behind a handle, or an empty use. A null handle is refused
// without a word; any other handle that is not live logs "[ERROR] Invalid
// CImageBuffer ID" at level 4.
BufferUse UseImageBuffer(void* handle);

// Takes the handle out of the table. Exactly one of several concurrent
// releases of one handle succeeds; the others, and any later one, log the
// invalid-handle line and return false.
bool ReleaseImageBuffer(void* handle);

}  // namespace pixmill::api
