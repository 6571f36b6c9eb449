#include "api/ImageRecords.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "logging/Logger.h"

// The records are shared with callers in other languages: their layout is
// fixed.
static_assert(offsetof(ImageParam, count) == 0);
static_assert(offsetof(ImageParam, images) == 8);
static_assert(offsetof(ImageParam, result) == 16);
static_assert(offsetof(ImageParam, resultSize) == 24);
static_assert(sizeof(ImageParam) == 32);
static_assert(offsetof(ImageData, width) == 0);
static_assert(offsetof(ImageData, height) == 4);
static_assert(offsetof(ImageData, channels) == 8);
static_assert(offsetof(ImageData, ImageID) == 12);
static_assert(offsetof(ImageData, size) == 16);
static_assert(offsetof(ImageData, data) == 24);
static_assert(sizeof(ImageData) == 32);

namespace pixmill::api {

using logging::LogW;

namespace {

// Arrays and texts handed out in output records, so that a release never
// frees memory the library did not allocate. Never destroyed: a host may
// release its records from its own static destructors or exit handlers,
// which can run after this library's.
struct Allocations {
    std::mutex mutex;
    std::unordered_map<ImageData**, int32_t> arrays;
    std::unordered_set<wchar_t*> texts;
};

Allocations& Handed() {
    static Allocations* handed = new Allocations();
    return *handed;
}

}  // namespace

void InputImages::Add(cv::Mat image, int id) {
    storage.push_back(std::make_unique<cv::Mat>(std::move(image)));
    masters.push_back(MasterImage{storage.back().get(), id});
}

cv::Mat MatFromPixels(const uint8_t* data, int64_t size, int width, int height) {
    if (!data || width < 1 || height < 1 || size < 1) return cv::Mat();
    const int64_t pixels = static_cast<int64_t>(width) * height;
    int type = -1;
    if (size == pixels) type = CV_8UC1;
    if (size == pixels * 3) type = CV_8UC3;
    if (type < 0) return cv::Mat();
    cv::Mat m(height, width, type);
    std::memcpy(m.data, data, static_cast<size_t>(size));
    return m;
}

void ImagesFromRecord(const ImageParam* record, InputImages& images) {
    if (!record || record->count < 1 || !record->images) return;
    for (int i = 0; i < record->count; ++i) {
        const ImageData* d = record->images[i];
        if (!d) continue;
        cv::Mat m;
        if ((d->channels == 1 || d->channels == 3) && d->data && d->width > 0 && d->height > 0) {
            const uint64_t need = static_cast<uint64_t>(d->width) * d->height * d->channels;
            if (d->size >= need) {
                // The caller's pixels are read in place, not copied: they stay
                // valid for the whole call, no filter writes into an image it
                // reads, and every image that leaves the library is copied
                // into its own record.
                m = cv::Mat(d->height, d->width, d->channels == 1 ? CV_8UC1 : CV_8UC3, d->data);
            } else {
                LogW(4, L"<ERROR func=\"RecipeExecute\" image=\"%d\" size=\"%llu\" need=\"%llu\"/>",
                     i, static_cast<unsigned long long>(d->size),
                     static_cast<unsigned long long>(need));
            }
        }
        images.Add(std::move(m), d->ImageID);
    }
}

void ImagesToRecord(const std::vector<cv::Mat*>& images, const std::wstring& result,
                    ImageParam* record) {
    // Everything is built in owning containers first and handed to the
    // caller's record only when complete: should an allocation fail part-way,
    // what was built so far is freed on the way out and the record is left
    // as it was.
    struct Entry {
        std::unique_ptr<ImageData> record;
        std::unique_ptr<uint8_t[]> pixels;
    };
    const int32_t count = static_cast<int32_t>(images.size());
    std::vector<Entry> entries;
    entries.reserve(images.size());
    for (const cv::Mat* image : images) {
        const cv::Mat& m = *image;
        Entry e;
        e.record = std::make_unique<ImageData>();
        e.record->width = m.cols;
        e.record->height = m.rows;
        e.record->channels = static_cast<int8_t>(m.channels());
        e.record->ImageID = 0;
        e.record->size = static_cast<uint64_t>(m.rows) * m.cols * m.elemSize();
        e.pixels.reset(new uint8_t[std::max<uint64_t>(e.record->size, 1)]);
        CopyPixels(m, e.pixels.get(), e.record->size);
        entries.push_back(std::move(e));
    }
    std::unique_ptr<ImageData*[]> array(new ImageData*[std::max<int32_t>(count, 1)]());
    std::unique_ptr<wchar_t[]> text(new wchar_t[result.size() + 1]());
    std::copy(result.begin(), result.end(), text.get());
    {
        Allocations& handed = Handed();
        std::lock_guard<std::mutex> lock(handed.mutex);
        handed.arrays.reserve(handed.arrays.size() + 1);
        handed.texts.reserve(handed.texts.size() + 1);
        handed.arrays.emplace(array.get(), count);
        try {
            handed.texts.insert(text.get());
        } catch (...) {
            handed.arrays.erase(array.get());
            throw;
        }
    }
    // Nothing below allocates: the record is published whole.
    for (int32_t i = 0; i < count; ++i) {
        entries[i].record->data = entries[i].pixels.release();
        array[i] = entries[i].record.release();
    }
    record->count = count;
    record->images = array.release();
    record->resultSize = (result.size() + 1) * sizeof(wchar_t);
    record->result = text.release();
}

bool ReleaseRecord(ImageParam* record) {
    bool ours = true;
    Allocations& handed = Handed();
    std::lock_guard<std::mutex> lock(handed.mutex);
    if (record->images) {
        auto it = handed.arrays.find(record->images);
        if (it != handed.arrays.end()) {
            // The count the library wrote, not what the record says now.
            for (int32_t i = 0; i < it->second; ++i) {
                if (ImageData* d = record->images[i]) {
                    delete[] d->data;
                    delete d;
                    record->images[i] = nullptr;
                }
            }
            delete[] record->images;
            handed.arrays.erase(it);
        } else {
            ours = false;
        }
    }
    if (ours) {
        record->images = nullptr;
        record->count = 0;
    }
    if (record->result) {
        if (handed.texts.erase(record->result)) {
            delete[] record->result;
            record->result = nullptr;
        } else {
            ours = false;
        }
    }
    return ours;
}

void DumpImages(const ImageParam* record) {
    if (!record) {
        LogW(1, L"<NULL/>");
        return;
    }
    LogW(1, L"<Images count=\"%d\"/>", record->count);
    for (int i = 0; record->images && i < record->count; ++i) {
        const ImageData* d = record->images[i];
        if (!d) {
            LogW(4, L"<Image count %d Image null/>", i);
            continue;
        }
        LogW(1, L"<Image channel=\"%d\" ImageID=\"%d\" width=\"%d\" height=\"%d\"/>", d->channels,
             d->ImageID, d->width, d->height);
    }
    LogW(1, L"</Images>");
}

size_t CopyPixels(const cv::Mat& image, uint8_t* destination, size_t limit) {
    if (!destination || image.empty()) return 0;
    const size_t rowBytes = image.cols * image.elemSize();
    size_t copied = 0;
    for (int r = 0; r < image.rows && copied < limit; ++r) {
        size_t n = std::min(rowBytes, limit - copied);
        std::memcpy(destination + copied, image.ptr(r), n);
        copied += n;
    }
    return copied;
}

void CopyResultBytes(const std::wstring& text, wchar_t* destination, int capacityBytes) {
    if (!destination || capacityBytes <= 0) return;
    size_t n = std::min(static_cast<size_t>(capacityBytes), text.size() * sizeof(wchar_t));
    std::memcpy(destination, text.data(), n);
}

int ResultBytes(const std::wstring& text) {
    size_t bytes = text.size() * sizeof(wchar_t);
    return bytes > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(bytes);
}

}  // namespace pixmill::api
