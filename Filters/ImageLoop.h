// The loop shared by filters that turn each input image into one output
// image: pull every input pin in pin order, apply the operation to each
// image, and hand the whole list to every output pin.
#pragma once

#include <vector>

#include "framework/Pin.h"

namespace pixmill::filters {

// The results of `op(const cv::Mat&)` for every image of every input pin, in
// order. An image entry without pixels reaches `op` as an empty Mat. The
// input images are only read: they stay owned by their pins.
template <typename Op>
std::vector<cv::Mat> MapInputImages(const std::vector<IPin*>& pins, Op op) {
    std::vector<cv::Mat> results;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (cv::Mat* image : pin->GetImage()) results.push_back(op(image ? *image : cv::Mat()));
    }
    return results;
}

// Gives `images` to every output pin; each pin stores its own deep copies.
inline void SetOutputImages(const std::vector<IPin*>& pins, std::vector<cv::Mat>& images) {
    std::vector<cv::Mat*> list;
    list.reserve(images.size());
    for (cv::Mat& m : images) list.push_back(&m);
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImage(list);
}

}  // namespace pixmill::filters
