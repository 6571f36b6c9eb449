#include "Filters/ImageMaskFilter.h"

#include <algorithm>
#include <exception>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CImageMaskFilter::CImageMaskFilter() {
    AddPin(L"origin", 1, false);
    AddPin(L"mask", 2, false);
    AddPin(L"Out", -1, true);
}

void CImageMaskFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    Trace();
    const pixmill::filters::PairedInputs inputs(pins);
    const size_t pairs = std::min(inputs.first.size(), inputs.second.size());

    std::vector<cv::Mat> results;
    try {
        for (size_t i = 0; i < pairs; ++i) {
            const cv::Mat& origin = inputs.first[i];
            const cv::Mat& mask = inputs.second[i];
            // The conversion refuses an origin that is not a gray image, which
            // ends the pairing here.
            cv::Mat bgr;
            cv::cvtColor(origin, bgr, cv::COLOR_GRAY2BGR);
            const cv::Rect common(0, 0, std::min(origin.cols, mask.cols),
                                  std::min(origin.rows, mask.rows));
            // Images of different types or channel counts throw in the AND.
            results.push_back(cv::Mat(origin(common) & mask(common)));
        }
    } catch (const std::exception&) {
        // A pair that cannot be combined drops it and the pairs after it;
        // the outputs made so far are delivered as they are.
    }
    pixmill::filters::SetOutputImages(pins, results);
}

void CImageMaskFilter::Trace() {
    LogW(1, L"ImageMaskFilter");
}

PIXMILL_REGISTER_FILTER(L"ImageMaskFilter", CImageMaskFilter);
