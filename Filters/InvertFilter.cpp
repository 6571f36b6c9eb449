#include "Filters/InvertFilter.h"

#include "Filters/ImageLoop.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

CInvertFilter::CInvertFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
}

void CInvertFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    Trace();
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [](const cv::Mat& src) { return cv::Mat(~src); });
    pixmill::filters::SetOutputImages(pins, results);
    m_result = L"{}";
}

void CInvertFilter::Trace() {
    LogW(1, L"InvertFilter");
}

PIXMILL_REGISTER_FILTER(L"InvertFilter", CInvertFilter);
