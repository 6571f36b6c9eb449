// Pieces shared by the pin-tip recipe filters: blob labelling with a clear
// refusal of images it cannot label, blob geometry from the statistics
// table, the input walk and the fixed debug image paths.
#pragma once

#include <cstdarg>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Pin.h"
#include "platform/Platform.h"

namespace pixmill::filters::pin {

// Folder of the debug images the pin-tip filters overwrite on each run.
inline std::wstring DebugImagePath(const wchar_t* stem) {
    return std::wstring(L"C:/PROBERPARAM/ParaImg/PinImage/") + stem + L"_image.png";
}

// Every image of every input pin, in pin order. An entry without pixels
// comes through as an empty Mat; the images stay owned by their pins.
inline std::vector<cv::Mat> InputImages(const std::vector<IPin*>& pins) {
    std::vector<cv::Mat> images;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (cv::Mat* image : pin->GetImage()) images.push_back(image ? *image : cv::Mat());
    }
    return images;
}

// Throws std::invalid_argument unless `image` is a one-channel 8-bit image
// with pixels: blob labelling and the gray round trips of these filters are
// defined for that form only. The exception ends the filter's run the way
// every failure inside Proc does (logged, outputs kept).
inline void RequireGray8(const cv::Mat& image, const char* filter) {
    if (image.empty() || image.type() != CV_8UC1)
        throw std::invalid_argument(std::string(filter) + ": needs a one-channel 8-bit image with pixels");
}

// The blobs of an image: labels, statistics and centroids, as
// cv::connectedComponentsWithStats gives them. Every non-zero pixel is
// foreground. `count` includes the background label 0.
struct Blobs {
    cv::Mat labels, stats, centroids;
    int count = 0;

    int X(int label) const { return stats.at<int>(label, cv::CC_STAT_LEFT); }
    int Y(int label) const { return stats.at<int>(label, cv::CC_STAT_TOP); }
    int W(int label) const { return stats.at<int>(label, cv::CC_STAT_WIDTH); }
    int H(int label) const { return stats.at<int>(label, cv::CC_STAT_HEIGHT); }
    int Area(int label) const { return stats.at<int>(label, cv::CC_STAT_AREA); }
    cv::Rect Box(int label) const { return {X(label), Y(label), W(label), H(label)}; }
    // The centre of the bounding box, each half-size sum cut to an integer.
    int CentreX(int label) const { return static_cast<int>(W(label) * 0.5 + X(label)); }
    int CentreY(int label) const { return static_cast<int>(H(label) * 0.5 + Y(label)); }
};

// Labels `image` with 4- or 8-connectivity (32-bit labels).
inline Blobs Label(const cv::Mat& image, int connectivity, const char* filter) {
    RequireGray8(image, filter);
    Blobs b;
    b.count = cv::connectedComponentsWithStats(image, b.labels, b.stats, b.centroids, connectivity,
                                               CV_32S);
    return b;
}

// The connectivity a `Near` flag selects.
inline int Connectivity(bool near) {
    return near ? 8 : 4;
}

// `value` cut to an integer the way a cast does, but defined for every
// input: NaN gives 0 and values beyond the int range stop at its ends.
// Parameters are not range-checked, so products such as a level times a
// recipe's weight can leave that range.
inline int CutToInt(double value) {
    if (value != value) return 0;
    if (value >= 2147483647.0) return 2147483647;
    if (value <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int>(value);
}

// Wide printf-style formatting in the C locale, for result fragments that
// are appended rather than set whole.
inline std::wstring Format(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring text;
    if (!pixmill::platform::FormatWide(format, args, text)) text.clear();
    va_end(args);
    return text;
}

}  // namespace pixmill::filters::pin
