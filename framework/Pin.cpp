#include "framework/Pin.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "framework/BufferPool.h"
#include "framework/Filter.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

namespace {

// Pulls recurse one level per chained filter on the caller's stack. Below a
// reserve of stack left, a pull stops instead of running another filter, so
// an overlong chain ends with an error line rather than a stack overflow.
// The reserve is an eighth of the calling thread's stack, between 16 KiB and
// 256 KiB: room for the last filter's own work on the 8 MiB main thread,
// and still most of the stack for the recipe on a host's small worker
// thread, where a fixed 256 KiB would refuse every pull.
size_t StackReserve() {
    constexpr size_t kLeast = 16 * 1024, kMost = 256 * 1024;
    const size_t size = pixmill::platform::StackSize();
    if (size == 0) return kMost;
    return std::clamp(size / 8, kLeast, kMost);
}

bool StackTooLow(int key) {
    if (pixmill::platform::StackBytesLeft() >= StackReserve()) return false;
    LogW(4, L"<ERROR func=\"CPin::GetImage\" result=\"pull too deep\" key=\"%d\"/>", key);
    return true;
}

}  // namespace

CPin::CPin(IFilter* owner, const wchar_t* name, int key, bool outputFlag, bool grayFlag)
    : m_name(name ? name : L""),
      m_key(key),
      m_owner(owner),
      m_output(outputFlag),
      m_gray(grayFlag) {}

CPin::~CPin() {
    DeleteImages();
    DeleteCopies();
}

void CPin::DeleteImages() {
    for (cv::Mat* m : m_images) delete m;
    m_images.clear();
}

void CPin::DeleteCopies() {
    for (cv::Mat* m : m_copies) delete m;
    m_copies.clear();
    m_copiedFrom = nullptr;
    m_copiedVersion = -1;
}

std::vector<cv::Mat> IPin::ReadImages() {
    std::vector<cv::Mat> headers;
    for (cv::Mat* m : GetImage()) headers.push_back(m ? *m : cv::Mat());
    return headers;
}

void IPin::SetImages(std::vector<cv::Mat> images) {
    std::vector<cv::Mat*> list;
    list.reserve(images.size());
    for (cv::Mat& m : images) list.push_back(&m);
    SetImage(list);
}

bool CPin::Pull(std::vector<cv::Mat>& images, IPin*& source, int& version) {
    images.clear();
    if (!m_link) {
        for (cv::Mat* m : m_images) images.push_back(m ? *m : cv::Mat());
        source = this;
        version = m_version;
        return true;
    }
    LogW(1, L"<CPin::GetImage link=\"%d\"/>", m_link->GetKey());
    if (m_pulling) {
        LogW(4, L"<ERROR func=\"CPin::GetImage\" result=\"link loop\" key=\"%d\"/>", m_key);
        return false;
    }
    if (StackTooLow(m_key)) return false;
    m_pulling = true;
    try {
        images = m_link->ReadImages();
    } catch (...) {
        m_pulling = false;
        throw;
    }
    m_pulling = false;
    source = m_link;
    version = m_link->GetVersion();
    return true;
}

std::vector<cv::Mat> CPin::ReadImages() {
    if (m_output) {
        LogW(1, L"<CPin::GetImage procfilter=\"%ls\"/>", m_owner ? m_owner->GetName() : L"");
        if (m_owner && !StackTooLow(m_key)) m_owner->Process();
        std::vector<cv::Mat> headers;
        headers.reserve(m_images.size());
        for (cv::Mat* m : m_images) headers.push_back(m ? *m : cv::Mat());
        return headers;
    }
    std::vector<cv::Mat> images;
    IPin* source = nullptr;
    int version = 0;
    if (!Pull(images, source, version)) return {};
    return images;
}

std::vector<cv::Mat*> CPin::GetImage() {
    if (m_output) {
        LogW(1, L"<CPin::GetImage procfilter=\"%ls\"/>", m_owner ? m_owner->GetName() : L"");
        if (m_owner && !StackTooLow(m_key)) m_owner->Process();
        return m_images;
    }
    std::vector<cv::Mat> images;
    IPin* source = nullptr;
    int version = 0;
    if (!Pull(images, source, version)) return {};
    if (source == m_copiedFrom && version == m_copiedVersion && m_copies.size() == images.size())
        return m_copies;
    // The consumer may write into what it gets: give it copies of its own,
    // so the pixels that other consumers read stay as they were.
    std::vector<cv::Mat*> copies;
    copies.reserve(images.size());
    try {
        for (const cv::Mat& m : images) {
            copies.push_back(new cv::Mat());
            m.copyTo(*copies.back());
        }
    } catch (...) {
        for (cv::Mat* m : copies) delete m;
        throw;
    }
    DeleteCopies();
    m_copies = std::move(copies);
    m_copiedFrom = source;
    m_copiedVersion = version;
    return m_copies;
}

void CPin::Store(std::vector<cv::Mat*>&& images) {
    DeleteImages();
    m_images = std::move(images);
    ++m_version;
}

void CPin::SetImage(const std::vector<cv::Mat*>& images) {
    // The copies are made before the old images go, so a list that points
    // at this pin's own images (a filter linked to itself) stays readable.
    std::vector<cv::Mat*> copies;
    copies.reserve(images.size());
    try {
        for (cv::Mat* src : images) {
            copies.push_back(new cv::Mat());
            if (src && m_gray && src->channels() == 3) {
                cv::cvtColor(*src, *copies.back(), cv::COLOR_BGR2GRAY);
            } else if (src) {
                src->copyTo(*copies.back());
            }
        }
    } catch (...) {
        for (cv::Mat* m : copies) delete m;
        DeleteImages();
        ++m_version;
        throw;
    }
    Store(std::move(copies));
}

void CPin::SetImages(std::vector<cv::Mat> images) {
    std::vector<cv::Mat*> stored;
    stored.reserve(images.size());
    try {
        for (cv::Mat& src : images) {
            stored.push_back(new cv::Mat());
            if (m_gray && src.channels() == 3) {
                *stored.back() = pixmill::PooledMat();
                cv::cvtColor(src, *stored.back(), cv::COLOR_BGR2GRAY);
            } else {
                *stored.back() = std::move(src);
            }
        }
    } catch (...) {
        for (cv::Mat* m : stored) delete m;
        DeleteImages();
        ++m_version;
        throw;
    }
    Store(std::move(stored));
}

void CPin::ClearImage() {
    m_link = nullptr;
    DeleteImages();
    DeleteCopies();
}
