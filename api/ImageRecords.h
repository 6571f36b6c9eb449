// Conversions between the caller's image records and pixel buffers and the
// engine's matrices.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "framework/Filter.h"
#include "pixmill/pixmill.h"

namespace pixmill::api {

// Matrices that the library made for one call, deleted when it ends.
struct OwnedMats {
    std::vector<cv::Mat*> mats;
    OwnedMats() = default;
    OwnedMats(const OwnedMats&) = delete;
    OwnedMats& operator=(const OwnedMats&) = delete;
    ~OwnedMats() {
        for (cv::Mat* m : mats) delete m;
    }
};

// Input images of one call: the matrices and the list that routes them.
struct InputImages {
    std::vector<std::unique_ptr<cv::Mat>> storage;
    std::vector<MasterImage> masters;
    void Add(cv::Mat image, int id);
};

// A Mat from packed pixels: one channel when size is width*height, three
// when it is three times that, otherwise (or for a null pointer or a
// dimension below 1) an empty Mat.
cv::Mat MatFromPixels(const uint8_t* data, int64_t size, int width, int height);

// The caller's ImageParam as input images: headers over the caller's own
// pixels, valid for the length of the call and only ever read. Null entries
// are skipped; an
// entry whose channels are not 1 or 3, whose size is below what its
// dimensions need, or whose pixels are null gives an empty image.
void ImagesFromRecord(const ImageParam* record, InputImages& images);

// Fills an output record with copies of the images and the result text.
void ImagesToRecord(const std::vector<cv::Mat*>& images, const std::wstring& result,
                    ImageParam* record);

// Frees what ImagesToRecord allocated. Records whose arrays the library did
// not allocate are left alone. Returns false for such a record.
bool ReleaseRecord(ImageParam* record);

// Logs an image list at level 1 (null entries at level 4).
void DumpImages(const ImageParam* record);

// Copies at most `limit` bytes of an image's pixels, row by row.
size_t CopyPixels(const cv::Mat& image, uint8_t* destination, size_t limit);

// Copies at most `capacityBytes` bytes of the text, without a terminator.
void CopyResultBytes(const std::wstring& text, wchar_t* destination, int capacityBytes);

// The text's size in bytes as the API counts it.
int ResultBytes(const std::wstring& text);

}  // namespace pixmill::api
