// Recycled image memory.
//
// A prober runs the same recipe once per die, thousands of times per wafer,
// and every run needs buffers of the same sizes again. Fresh large buffers
// come from the system as untouched pages, and touching them for the first
// time is costly, most of all on virtual machines. The pool keeps buffers
// that the engine's images no longer use and hands them back out for the
// next image of the same byte size.
//
// Only matrices made through PooledMat draw on the pool; the pool is the
// allocator of those matrices alone, never the image library's default, so
// a host's own use of the library is untouched. Idle memory is capped, so
// the resident size of a process stays flat however many runs it makes.
// Every function here may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

namespace pixmill {

// An empty matrix whose pixels, once an image library call (or create) gives
// it a size, come from the pool; they go back to the pool when the last
// matrix sharing them is released. Use it for a filter's output and working
// images.
cv::Mat PooledMat();

// Raw bytes from the pool, 64-byte aligned; never null (throws
// std::bad_alloc when memory runs out). Give them back with
// ReturnPooledBytes and the same size.
uint8_t* TakePooledBytes(size_t bytes);
void ReturnPooledBytes(uint8_t* data, size_t bytes);

struct BufferPoolStats {
    size_t idleBytes = 0;    // held for reuse now
    size_t idleBuffers = 0;
    uint64_t reused = 0;     // requests served from idle buffers
    uint64_t fresh = 0;      // requests served with new memory
};
BufferPoolStats GetBufferPoolStats();

// Buffers below this size are not kept: their first touch is cheap.
inline constexpr size_t kPooledMinBytes = 64 * 1024;
// Idle memory above this is given back to the system at once.
inline constexpr size_t kPoolIdleCapBytes = 256u * 1024 * 1024;

// Frees every idle buffer (tests and hosts about to go idle for long).
void TrimBufferPool();

}  // namespace pixmill
