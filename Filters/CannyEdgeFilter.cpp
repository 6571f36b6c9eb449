#include "Filters/CannyEdgeFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CCannyEdgeFilter::CCannyEdgeFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"MinThreshold", 50, 0, 255, 1));
    AddParam(new sorvik::Param<int>(L"MaxThreshold", 100, 0, 255, 1));
}

void CCannyEdgeFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int minThreshold = pixmill::ParamValue<int>(params, L"MinThreshold", 50);
    const int maxThreshold = pixmill::ParamValue<int>(params, L"MaxThreshold", 100);

    // A gradient above MaxThreshold starts an edge, and the edge follows
    // neighbours above MinThreshold. Images that are not 8-bit throw.
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [minThreshold, maxThreshold](const cv::Mat& src) {
            cv::Mat dst;
            cv::Canny(src, dst, minThreshold, maxThreshold, 3, false);
            return dst;
        });
    pixmill::filters::SetOutputImages(pins, results);
}

void CCannyEdgeFilter::Trace() {
    LogW(1, L"CannyEdgeFilter");
}

PIXMILL_REGISTER_FILTER(L"CannyEdgeFilter", CCannyEdgeFilter);
