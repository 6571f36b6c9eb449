#include "Filters/SizeToleranceFilter.h"

#include <opencv2/imgproc.hpp>
#include <string>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

CSizeToleranceFilter::CSizeToleranceFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Minsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<int>(L"Maxsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<float>(L"weight", 1.0f, 1.0f, 2.0f, 0.1f));
}

void CSizeToleranceFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int minSize = pixmill::ParamValue<int>(params, L"Minsize", 0);
    const int maxSize = pixmill::ParamValue<int>(params, L"Maxsize", 0);
    const float weight = pixmill::ParamValue<float>(params, L"weight", 1.0f);

    std::vector<cv::Mat> outputs;
    std::wstring text;
    int count = 0;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        pin::RequireGray8(image, "SizeToleranceFilter");
        cv::Mat colour;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        // The base level is taken under a mask that nothing is drawn on, so
        // it is 0 and the threshold keeps every non-zero pixel whatever the
        // weight: the filter counts the input's own blobs.
        const cv::Mat emptyMask = cv::Mat::zeros(image.size(), CV_8UC1);
        const int base = pin::CutToInt(cv::mean(colour, emptyMask)[0]);
        cv::Mat thresholded;
        cv::threshold(image, thresholded, pin::CutToInt(static_cast<float>(base) * weight), 255,
                      cv::THRESH_BINARY);
        const pin::Blobs blobs = pin::Label(thresholded, 4, "SizeToleranceFilter");
        bool accepted = false;
        for (int l = 1; l < blobs.count; ++l) {
            const int x = blobs.X(l), y = blobs.Y(l), w = blobs.W(l), h = blobs.H(l);
            if (!(minSize < w && w < maxSize)) continue;
            ++count;
            accepted = true;
            cv::rectangle(colour, cv::Point(x, y), cv::Point(x + w, y + h), cv::Scalar(0, 255, 0, 0), 1,
                          cv::LINE_8);
            cv::putText(colour, std::to_string(l), cv::Point(x, y), cv::FONT_HERSHEY_SIMPLEX, 1.0,
                        cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8);
            text = pin::Format(L"{\"x\":\"%d\",\"y\":\"%d\",", blobs.CentreX(l), blobs.CentreY(l));
            // The same pixels each time: every entry shows all boxes drawn.
            outputs.push_back(colour);
        }
        // The debug file is shared with PintipPriorityFilter; the last
        // accepted blob's drawing is what it ends up holding.
        if (accepted) pixmill::WriteDebugImageFile(pin::DebugImagePath(L"PintipPriorityFilter"), colour);
        // The count closes the text once per image, and runs on across
        // images.
        text += pin::Format(L"\"count\":\"%d\"}", count);
    }
    if (count == 0)
        SetResult(L"{\"x\":\"%d\",\"y\":\"%d\",\"count\":\"%d\"}", -1, -1, count);
    else
        m_result = text;
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CSizeToleranceFilter::Trace() {
    LogW(1, L"SizeToleranceFilter");
}

PIXMILL_REGISTER_FILTER(L"SizeToleranceFilter", CSizeToleranceFilter);
