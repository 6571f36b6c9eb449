// Input collection for the filters that combine two image streams.
#pragma once

#include <vector>

#include "framework/Pin.h"

namespace pixmill::filters {

// Deep copies of the images of the input pins with key 1 (`first`) and key 2
// (`second`), in pin and image order; other pins are ignored. The copies let
// a filter pair and convert images freely while the pins' own images stay
// untouched.
struct PairedInputs {
    std::vector<cv::Mat> first;
    std::vector<cv::Mat> second;

    explicit PairedInputs(const std::vector<IPin*>& pins) {
        for (IPin* pin : pins) {
            if (pin->IsOutput()) continue;
            std::vector<cv::Mat>* list = pin->GetKey() == 1   ? &first
                                         : pin->GetKey() == 2 ? &second
                                                              : nullptr;
            if (!list) continue;
            for (const cv::Mat& image : pin->ReadImages()) list->push_back(image.clone());
        }
    }
};

}  // namespace pixmill::filters
