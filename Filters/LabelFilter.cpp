#include "Filters/LabelFilter.h"

#include <opencv2/imgproc.hpp>
#include <string>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

CLabelFilter::CLabelFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<bool>(L"Near"));
}

void CLabelFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const bool near = pixmill::ParamValue<bool>(params, L"Near", false);

    std::vector<cv::Mat> outputs;
    for (const cv::Mat& image : pin::InputImages(pins)) {
        const pin::Blobs blobs = pin::Label(image, pin::Connectivity(near), "DiagnosisFilter");
        cv::Mat colour;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        int maxArea = 0;
        double cx = 0.0, cy = 0.0;
        for (int l = 1; l < blobs.count; ++l) {
            const int x = blobs.X(l), y = blobs.Y(l), w = blobs.W(l), h = blobs.H(l);
            cv::rectangle(colour, cv::Point(x, y), cv::Point(x + w, y + h), cv::Scalar(0, 255, 0, 0), 1,
                          cv::LINE_8, 0);
            cv::putText(colour, std::to_string(l), cv::Point(x + 20, y + 20), cv::FONT_HERSHEY_SIMPLEX, 1.0,
                        cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8);
            if (blobs.Area(l) > maxArea) {
                maxArea = blobs.Area(l);
                cx = w * 0.5 + x;
                cy = h * 0.5 + y;
            }
        }
        // LabelCount counts the background too: 1 for an image without blobs.
        SetResult(L"{\"LabelCount\":\"%d\", \"ImageWidth\":\"%d\", \"ImageHeight\":\"%d\", \"MaxArea\":\"%d\", "
                  L"\"x\":\"%f\", \"y\":\"%f\"}",
                  blobs.count, image.cols, image.rows, maxArea, cx, cy);
        outputs.push_back(colour);
    }
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CLabelFilter::Trace() {
    LogW(1, L"LabelFilter");
}

PIXMILL_REGISTER_FILTER(L"DiagnosisFilter", CLabelFilter);
