#include "framework/BufferPool.h"

#include <map>
#include <mutex>
#include <new>

namespace pixmill {

namespace {

// Idle buffers by exact byte size. A buffer of another size is never handed
// out: images of one recipe come in a few sizes that repeat run after run.
class Pool {
public:
    uint8_t* Take(size_t bytes) {
        if (bytes >= kPooledMinBytes) {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto it = m_idle.find(bytes);
            if (it != m_idle.end()) {
                uint8_t* data = it->second;
                m_idle.erase(it);
                m_idleBytes -= bytes;
                ++m_reused;
                return data;
            }
            ++m_fresh;
        }
        void* data = cv::fastMalloc(bytes == 0 ? 1 : bytes);  // throws when out of memory
        return static_cast<uint8_t*>(data);
    }

    void Return(uint8_t* data, size_t bytes) {
        if (!data) return;
        if (bytes >= kPooledMinBytes) {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_idleBytes + bytes <= kPoolIdleCapBytes) {
                try {
                    m_idle.emplace(bytes, data);
                    m_idleBytes += bytes;
                    return;
                } catch (const std::bad_alloc&) {
                    // No room to remember it: free it below.
                }
            }
        }
        cv::fastFree(data);
    }

    BufferPoolStats Stats() {
        std::lock_guard<std::mutex> lock(m_mutex);
        BufferPoolStats s;
        s.idleBytes = m_idleBytes;
        s.idleBuffers = m_idle.size();
        s.reused = m_reused;
        s.fresh = m_fresh;
        return s;
    }

    void Trim() {
        std::multimap<size_t, uint8_t*> idle;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            idle.swap(m_idle);
            m_idleBytes = 0;
        }
        for (auto& entry : idle) cv::fastFree(entry.second);
    }

private:
    std::mutex m_mutex;
    std::multimap<size_t, uint8_t*> m_idle;
    size_t m_idleBytes = 0;
    uint64_t m_reused = 0;
    uint64_t m_fresh = 0;
};

// Never destroyed: images may be released from a host's static destructors
// after this library's have run.
Pool& ThePool() {
    static Pool* pool = new Pool();
    return *pool;
}

// The matrix allocator of pooled matrices. It lays out a matrix exactly as
// the image library's standard allocator does (packed rows, or the caller's
// steps for caller memory), only the bytes come from the pool.
class PoolAllocator final : public cv::MatAllocator {
public:
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data0, size_t* step,
                           cv::AccessFlag /*flags*/,
                           cv::UMatUsageFlags /*usageFlags*/) const override {
        size_t total = CV_ELEM_SIZE(type);
        for (int i = dims - 1; i >= 0; i--) {
            if (step) {
                if (data0 && step[i] != cv::Mat::AUTO_STEP) {
                    CV_Assert(total <= step[i]);
                    total = step[i];
                } else {
                    step[i] = total;
                }
            }
            total *= static_cast<size_t>(sizes[i]);
        }
        uint8_t* data = data0 ? static_cast<uint8_t*>(data0) : ThePool().Take(total);
        cv::UMatData* u = nullptr;
        try {
            u = new cv::UMatData(this);
        } catch (...) {
            if (!data0) ThePool().Return(data, total);
            throw;
        }
        u->data = u->origdata = data;
        u->size = total;
        if (data0) u->flags |= cv::UMatData::USER_ALLOCATED;
        return u;
    }

    bool allocate(cv::UMatData* u, cv::AccessFlag /*accessFlags*/,
                  cv::UMatUsageFlags /*usageFlags*/) const override {
        return u != nullptr;
    }

    void deallocate(cv::UMatData* u) const override {
        if (!u) return;
        if (!(u->flags & cv::UMatData::USER_ALLOCATED)) {
            ThePool().Return(u->origdata, u->size);
            u->origdata = nullptr;
        }
        delete u;
    }
};

cv::MatAllocator* Allocator() {
    static PoolAllocator* allocator = new PoolAllocator();
    return allocator;
}

}  // namespace

cv::Mat PooledMat() {
    cv::Mat m;
    m.allocator = Allocator();
    return m;
}

uint8_t* TakePooledBytes(size_t bytes) {
    return ThePool().Take(bytes);
}

void ReturnPooledBytes(uint8_t* data, size_t bytes) {
    ThePool().Return(data, bytes);
}

BufferPoolStats GetBufferPoolStats() {
    return ThePool().Stats();
}

void TrimBufferPool() {
    ThePool().Trim();
}

}  // namespace pixmill
