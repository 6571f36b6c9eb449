#include "Filters/PinMaskFilter.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PairedInputs.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "logging/Trace.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

CPinMaskFilter::CPinMaskFilter() {
    AddPin(L"origin", 1, false);
    AddPin(L"mask", 2, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"Near"));
}

void CPinMaskFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    Trace();
    const pixmill::filters::PairedInputs inputs(pins);
    const size_t pairs = std::min(inputs.first.size(), inputs.second.size());

    std::vector<cv::Mat> outputs;
    for (size_t i = 0; i < pairs; ++i) {
        const cv::Mat& origin = inputs.first[i];
        const cv::Mat& mask = inputs.second[i];
        // The mask must be a one-channel 8-bit image: the flood below is
        // defined on that form only.
        pin::RequireGray8(mask, "PinMaskFilter");
        const cv::Rect shared(0, 0, std::min(origin.cols, mask.cols), std::min(origin.rows, mask.rows));
        cv::Mat result;
        if (!shared.empty()) {
            const cv::Mat cutMask = mask(shared);
            // Flooding the outside from the corner leaves unreached, after
            // the inversion, exactly the holes. A blob covering the corner
            // is flooded instead; the operators below then give what they
            // give, with no special case.
            cv::Mat flooded = cutMask.clone();
            cv::floodFill(flooded, cv::Point(0, 0), cv::Scalar(255), nullptr, cv::Scalar(), cv::Scalar(), 4);
            cv::Mat holes;
            cv::bitwise_not(flooded, holes);
            const cv::Mat filled = cutMask | holes;
            // Throws for an origin of another type than the mask.
            result = filled & origin(shared);
        }
        // A result without any pixel left counts as a miss.
        if (result.empty() || cv::countNonZero(result.reshape(1)) == 0) {
            result = cv::Mat::zeros(shared.size(), origin.type());
            VBcvTrace("PinMaskFilter is fail.\n");
        } else {
            VBcvTrace("PinMaskFilter is success.\n");
        }
        outputs.push_back(result);
        pixmill::WriteDebugImageFile(pin::DebugImagePath(L"PinMaskFilter"), result);
    }
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CPinMaskFilter::Trace() {
    LogW(1, L"PinMaskFilter");
}

PIXMILL_REGISTER_FILTER(L"PinMaskFilter", CPinMaskFilter);
