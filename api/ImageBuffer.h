// Image buffers: numbered stores of images that a caller fills once and
// recipes then read. The caller holds a handle; only handles that the
// library handed out and has not yet released are accepted.
#pragma once

#include <vector>

#include "framework/Filter.h"

namespace pixmill::api {

class CImageBuffer {
public:
    CImageBuffer() = default;
    ~CImageBuffer();
    CImageBuffer(const CImageBuffer&) = delete;
    CImageBuffer& operator=(const CImageBuffer&) = delete;

    // Entries in order of adding; the Mats are owned by the buffer.
    std::vector<MasterImage> entries;
};

// The buffer behind a handle, or null. A null handle is refused without a
// word; any other handle that is not live logs "[ERROR] Invalid  CImageBuffer
// ID" at level 4.
CImageBuffer* LookUpImageBuffer(void* handle);

}  // namespace pixmill::api
