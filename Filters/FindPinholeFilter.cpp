#include "Filters/FindPinholeFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogA;
using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

CFindPinholeFilter::CFindPinholeFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Minsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<int>(L"Maxsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<bool>(L"Near"));
}

void CFindPinholeFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int minSize = pixmill::ParamValue<int>(params, L"Minsize", 0);
    const int maxSize = pixmill::ParamValue<int>(params, L"Maxsize", 0);
    const bool near = pixmill::ParamValue<bool>(params, L"Near", false);

    std::vector<cv::Mat> outputs;
    // The fragments of this run; they replace the result only when there is
    // at least one, so a run that accepts nothing leaves it unchanged.
    std::wstring fragments;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        const pin::Blobs blobs = pin::Label(image, pin::Connectivity(near), "FindPinholeFilter");
        cv::Mat colour;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        int hole = 0;
        for (int l = 1; l < blobs.count; ++l)
            if (blobs.Area(l) >= 1) hole = l;
        if (hole < 1) continue;
        const int x = blobs.X(hole), y = blobs.Y(hole), w = blobs.W(hole), h = blobs.H(hole);
        if (!(minSize < w && w < maxSize)) continue;
        cv::rectangle(colour, cv::Point(x, y), cv::Point(x + w, y + h), cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8);
        LogA(1, "holeSize: %d", 0);
        outputs.push_back(colour);
        // The corner of the blob and the size of the image, unquoted.
        fragments += pin::Format(L"{\"x\":%d,\"y\":%d,\"w\":%d,\"h\":%d}", x, y, image.cols, image.rows);
    }
    if (!fragments.empty()) m_result = fragments;
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CFindPinholeFilter::Trace() {
    LogW(1, L"FindPinholeFilter");
}

PIXMILL_REGISTER_FILTER(L"FindPinholeFilter", CFindPinholeFilter);
