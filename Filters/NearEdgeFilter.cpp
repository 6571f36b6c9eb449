#include "Filters/NearEdgeFilter.h"

#include <algorithm>
#include <cstdint>
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

CNearEdgeFilter::CNearEdgeFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"Near"));
    AddParam(new sorvik::Param<int>(L"Erosion", 0, 0, 10, 1));
}

void CNearEdgeFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool near = pixmill::ParamValue<bool>(params, L"Near", false);
    const int erosion = pixmill::ParamValue<int>(params, L"Erosion", 0);

    std::vector<cv::Mat> outputs;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        const pin::Blobs blobs = pin::Label(image, pin::Connectivity(near), "NearEdgeFilter");
        if (blobs.count < 2) continue;
        cv::Mat discs = cv::Mat::zeros(image.size(), image.type());
        // A disc wider than the image's two sides together covers all of it
        // from any centre inside, so larger radii change nothing; the bound
        // keeps the drawing's fixed-point arithmetic in range when a recipe
        // sets a negative Erosion.
        const int64_t largest = int64_t{image.rows} + image.cols;
        for (int l = 1; l < blobs.count; ++l) {
            const int x = blobs.X(l), y = blobs.Y(l), w = blobs.W(l), h = blobs.H(l);
            const bool inside = x > 0 && image.cols - w - x > 0 && y > 0 && image.rows - h - y > 0;
            const int64_t radius = int64_t{w / 2} - erosion;
            if (!inside || radius < 0) continue;
            cv::circle(discs, cv::Point(blobs.CentreX(l), blobs.CentreY(l)),
                       static_cast<int>(std::min(radius, largest)), cv::Scalar::all(255), cv::FILLED, 1);
        }
        outputs.push_back(discs);
        VBcvTrace("NearEdgeFilter is success.\n");
        pixmill::WriteDebugImageFile(pin::DebugImagePath(L"NearEdgeFilter"), discs);
    }
    if (outputs.empty()) VBcvTrace("NearEdgeFilter is fail.\n");
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CNearEdgeFilter::Trace() {
    LogW(1, L"NearEdgeFilter");
}

PIXMILL_REGISTER_FILTER(L"NearEdgeFilter", CNearEdgeFilter);
