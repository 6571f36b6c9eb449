// The loop shared by the die filters: each image of the input pin with key
// 1, read in place and made gray, goes to the filter's search together with
// a colour copy to draw its findings on; the colour copies go to every
// output pin. The stage lines "Get Input Image" and "Out convert" frame it.
#pragma once

#include <vector>

#include "Filters/ImageLoop.h"
#include "framework/Pin.h"
#include "inspect/die/DieCornerImage.h"
#include "logging/Logger.h"

namespace pixmill::filters {

// `find(const cv::Mat& gray, cv::Mat& canvas)` runs once per image; gray is
// only read, canvas (empty for an image without pixels) is drawn on.
template <typename Find>
void RunOnDieImages(const std::vector<IPin*>& pins, const char* filter, Find find) {
    logging::LogW(1, L"Get Input Image");
    std::vector<cv::Mat> canvases;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (const cv::Mat& image : pin->ReadImages()) {
            const cv::Mat gray = inspect::die::DieGray(image, filter);
            cv::Mat canvas = inspect::die::DieCanvas(gray);
            find(gray, canvas);
            canvases.push_back(canvas);
        }
    }
    logging::LogW(1, L"Out convert");
    SetOutputImages(pins, std::move(canvases));
}

}  // namespace pixmill::filters
