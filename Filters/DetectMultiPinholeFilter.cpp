#include "Filters/DetectMultiPinholeFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "logging/Trace.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

namespace {
constexpr const wchar_t* kResult =
    L"{\"x\":\"%d\",\"y\":\"%d\",\"w\":\"%d\",\"h\":\"%d\",\"count\":\"%d\"}";
}  // namespace

CDetectMultiPinholeFilter::CDetectMultiPinholeFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Minsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<int>(L"Maxsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<bool>(L"Near"));
}

void CDetectMultiPinholeFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int minSize = pixmill::ParamValue<int>(params, L"Minsize", 0);
    const int maxSize = pixmill::ParamValue<int>(params, L"Maxsize", 0);
    const bool near = pixmill::ParamValue<bool>(params, L"Near", false);

    std::vector<cv::Mat> outputs;
    int count = 0;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        const pin::Blobs blobs = pin::Label(image, pin::Connectivity(near), "DetectMultiPinholeFilter");
        cv::Mat boxes = cv::Mat::zeros(image.size(), image.type());
        cv::Mat kept;
        for (int l = 1; l < blobs.count; ++l) {
            const int w = blobs.W(l), h = blobs.H(l);
            if (minSize < w && w < maxSize) {
                ++count;
                cv::rectangle(boxes, blobs.Box(l), cv::Scalar::all(255), cv::FILLED, 1);
                // The input inside every box accepted so far, as an image of
                // its own: each output shows the boxes up to its blob.
                kept = cv::Mat();
                cv::bitwise_and(image, boxes, kept);
                outputs.push_back(kept);
                VBcvTrace("DetectMultiPinholeFilter is success.\n");
                SetResult(kResult, blobs.CentreX(l), blobs.CentreY(l), w, h, count);
            } else {
                // Each blob rewrites the result, so a last blob out of range
                // turns the text to the -1 form although the count stays.
                VBcvTrace("DetectMultiPinholeFilter is fail.\n");
                SetResult(kResult, -1, -1, -1, -1, count);
            }
        }
        // The debug file holds the last masked image of the image; writing
        // it once per image leaves the same file as once per blob.
        if (!kept.empty()) pixmill::WriteDebugImageFile(pin::DebugImagePath(L"DetectMultiPinholeFilter"), kept);
    }
    if (count == 0) {
        VBcvTrace("DetectMultiPinholeFilter is fail.\n");
        SetResult(kResult, -1, -1, -1, -1, count);
    }
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CDetectMultiPinholeFilter::Trace() {
    LogW(1, L"DetectMultiPinholeFilter");
}

PIXMILL_REGISTER_FILTER(L"DetectMultiPinholeFilter", CDetectMultiPinholeFilter);
