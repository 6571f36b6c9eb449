// The loop shared by filters that turn each input image into one output
// image: pull every input pin in pin order, apply the operation to each
// image, and hand the whole list to every output pin.
#pragma once

#include <vector>

#include "framework/Pin.h"

namespace pixmill::filters {

// The results of `op(const cv::Mat&)` for every image of every input pin, in
// order. An image entry without pixels reaches `op` as an empty Mat. The
// input images are only read, in place (no copy is made): they stay owned by
// their pins and other consumers read the same pixels, so `op` must write
// into images it creates (see PooledMat in framework/BufferPool.h).
template <typename Op>
std::vector<cv::Mat> MapInputImages(const std::vector<IPin*>& pins, Op op) {
    std::vector<cv::Mat> results;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (const cv::Mat& image : pin->ReadImages()) results.push_back(op(image));
    }
    return results;
}

// Gives `images` to every output pin; each pin stores its own deep copies,
// so the filter may go on using and changing `images`.
inline void SetOutputImages(const std::vector<IPin*>& pins, std::vector<cv::Mat>& images) {
    std::vector<cv::Mat*> list;
    list.reserve(images.size());
    for (cv::Mat& m : images) list.push_back(&m);
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImage(list);
}

// Hands `images` over to every output pin without copying the pixels:
// `SetOutputImages(pins, std::move(results))`. The filter gives them up;
// several output pins share the same pixels, which consumers only read.
inline void SetOutputImages(const std::vector<IPin*>& pins, std::vector<cv::Mat>&& images) {
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImages(images);
    images.clear();
}

}  // namespace pixmill::filters
