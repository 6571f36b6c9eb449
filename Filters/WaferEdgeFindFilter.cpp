#include "Filters/WaferEdgeFindFilter.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>

#include "Filters/ImageLoop.h"
#include "Filters/WorkLimit.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::logging::LogW;

namespace pixmill::filters {

namespace {

// Kernel and element sides are held to what a 16-bit image can use; a
// recipe's larger value would only cost time.
constexpr int kLargestSide = 1001;

int OddSide(int side) {
    side = std::clamp(side, 1, kLargestSide);
    return side % 2 == 1 ? side : side + 1;
}

}  // namespace

BandFind FindBands(const cv::Mat& image, int direction, int blurSize, int closeSize) {
    if (image.empty() || image.depth() != CV_8U)
        throw std::invalid_argument("WaferEdgeFindFilter: an 8-bit image is needed");
    cv::Mat gray = image;
    if (gray.channels() == 3) cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
    if (gray.channels() != 1) throw std::invalid_argument("WaferEdgeFindFilter: one or three channels are needed");
    // Sides beyond what the image can use are refused, not quietly cut.
    CheckWindow(blurSize, gray, true, "WaferEdgeFindFilter: BlurSize");
    CheckWindow(closeSize, gray, true, "WaferEdgeFindFilter: CloseSize");
    const int k = OddSide(blurSize);
    cv::Mat blurred, mask;
    cv::GaussianBlur(gray, blurred, cv::Size(k, k), 0);
    cv::threshold(blurred, mask, 0, 255.0, cv::THRESH_BINARY | cv::THRESH_OTSU);
    const double reference = cv::mean(blurred, mask)[0];
    const int c = std::clamp(closeSize, 1, kLargestSide);
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(c, c)));

    cv::Mat labels, stats, centroids;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centroids);
    BandFind out;
    out.mask = mask.clone();
    const bool across = direction == 0 || direction == 2;
    for (int label = 1; label < count; ++label) {
        const int left = stats.at<int>(label, cv::CC_STAT_LEFT), top = stats.at<int>(label, cv::CC_STAT_TOP);
        const int width = stats.at<int>(label, cv::CC_STAT_WIDTH), height = stats.at<int>(label, cv::CC_STAT_HEIGHT);
        const bool spans = across ? width == gray.cols && height < gray.rows : height == gray.rows && width < gray.cols;
        const cv::Rect box(left, top, width, height);
        bool accepted = false;
        if (spans) {
            const cv::Mat component = labels(box) == label;
            accepted = cv::mean(blurred(box), component)[0] > reference * 0.9;
        }
        if (!accepted) {
            out.mask(box).setTo(0, labels(box) == label);
            continue;
        }
        switch (direction) {
            case 0: out.points.emplace_back(left + width / 2, top); break;
            case 1: out.points.emplace_back(left, top + height / 2); break;
            case 2: out.points.emplace_back(left + width / 2, top + height); break;
            default: out.points.emplace_back(left + width, top + height / 2); break;
        }
    }
    return out;
}

}  // namespace pixmill::filters

CWaferEdgeFindFilter::CWaferEdgeFindFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Direction", 0, 0, 3, 1));
    AddParam(new sorvik::Param<int>(L"BlurSize", 11, 3, 99, 2));
    AddParam(new sorvik::Param<int>(L"CloseSize", 11, 3, 99, 2));
}

void CWaferEdgeFindFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int direction = pixmill::ParamValue<int>(params, L"Direction", 0);
    const int blurSize = pixmill::ParamValue<int>(params, L"BlurSize", 11);
    const int closeSize = pixmill::ParamValue<int>(params, L"CloseSize", 11);
    std::wstring blobs;
    int count = 0;
    std::vector<cv::Mat> out;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (cv::Mat* image : pin->GetImage()) {
            pixmill::filters::BandFind found =
                pixmill::filters::FindBands(image ? *image : cv::Mat(), direction, blurSize, closeSize);
            for (const cv::Point& p : found.points) {
                if (count > 0) blobs += L",";
                blobs += L"{\"Blob\":\"" + std::to_wstring(count) + L"\", \"X\":\"" + std::to_wstring(p.x) +
                         L"\", \"Y\":\"" + std::to_wstring(p.y) + L"\"}";
                ++count;
            }
            out.push_back(found.mask);
        }
    }
    pixmill::filters::SetOutputImages(pins, out);
    SetResult(L"{ \"Count\":\"%d\", \"Blobs\":[%ls]}", count, blobs.c_str());
}

void CWaferEdgeFindFilter::Trace() {
    LogW(1, L"WaferEdgeFindFilter");
}

PIXMILL_REGISTER_FILTER(L"WaferEdgeFindFilter", CWaferEdgeFindFilter);
