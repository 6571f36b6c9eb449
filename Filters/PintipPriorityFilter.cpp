#include "Filters/PintipPriorityFilter.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>

#include "Filters/ImageLoop.h"
#include "Filters/PinBlobs.h"
#include "framework/FilterRegistry.h"
#include "framework/DebugImages.h"
#include "framework/ImageFiles.h"
#include "logging/Logger.h"
#include "logging/Trace.h"

using pixmill::logging::LogA;
using pixmill::logging::LogW;
namespace pin = pixmill::filters::pin;

namespace {

constexpr const char* kName = "PintipPriorityFilter";
constexpr const wchar_t* kResult =
    L"{\"x\":\"%d\",\"y\":\"%d\",\"w\":\"%d\",\"h\":\"%d\",\"count\":\"%d\"}";

// One entry of the priority list: a label of the thresholded image and its
// priority so far.
struct Pretip {
    int label = 0;
    int priority = 0;
};

// The blob chosen so far, kept across the input images of one run together
// with its priority: a later image's blob must beat it to replace it.
struct Choice {
    int best = 0;
    int label = 0;
    int x = 0, y = 0, w = 0, h = 0, cx = 0, cy = 0;

    // Takes every entry whose priority is strictly above the best so far, so
    // on equal priorities the earliest entry stays.
    void Walk(const std::vector<Pretip>& list, const pin::Blobs& blobs) {
        for (const Pretip& entry : list) {
            if (entry.priority <= best) continue;
            // Only entries of labels that passed the size test carry a
            // priority, so the label exists; checked all the same.
            if (entry.label < 1 || entry.label >= blobs.count) continue;
            best = entry.priority;
            label = entry.label;
            x = blobs.X(label), y = blobs.Y(label), w = blobs.W(label), h = blobs.H(label);
            cx = blobs.CentreX(label), cy = blobs.CentreY(label);
        }
    }
};

}  // namespace

CPintipPriorityFilter::CPintipPriorityFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"Minsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<int>(L"Maxsize", 0, 0, 480, 1));
    AddParam(new sorvik::Param<float>(L"weight", 1.0f, 1.0f, 2.0f, 0.1f));
}

void CPintipPriorityFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    const int minSize = pixmill::ParamValue<int>(params, L"Minsize", 0);
    const int maxSize = pixmill::ParamValue<int>(params, L"Maxsize", 0);
    const float weight = pixmill::ParamValue<float>(params, L"weight", 1.0f);
    auto inRange = [&](int w) { return minSize < w && w < maxSize; };

    std::vector<cv::Mat> outputs;
    Choice choice;
    int count = 0;
    bool succeeded = false;
    const std::vector<cv::Mat> inputs = pin::InputImages(pins);
    for (const cv::Mat& image : inputs) {
        // The marked area: the blobs of the input as they come.
        const pin::Blobs marked = pin::Label(image, 4, kName);
        cv::Mat colour, gray;
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        cv::cvtColor(colour, gray, cv::COLOR_BGR2GRAY);
        cv::Mat mask = cv::Mat::zeros(image.size(), CV_8UC1);
        float cx = 0.0f, cy = 0.0f;
        int markedWidth = 0;
        for (int l = 1; l < marked.count; ++l) {
            const int x = marked.X(l), y = marked.Y(l), w = marked.W(l), h = marked.H(l);
            // The centre and width are those of the last blob of the area.
            cx = static_cast<float>(w * 0.5 + x);
            cy = static_cast<float>(h * 0.5 + y);
            markedWidth = w;
            cv::rectangle(colour, cv::Point(x, y), cv::Point(x + w, y + h), cv::Scalar(255, 0, 0, 0), 1,
                          cv::LINE_8, 0);
            cv::rectangle(mask, marked.Box(l), cv::Scalar(255), cv::FILLED);
        }

        // Threshold relative to the gray level inside the marked area.
        const int base = pin::CutToInt(cv::mean(gray, mask)[0]);
        const int brightThreshold = pin::CutToInt(static_cast<float>(base) * weight);
        LogA(1, "bright_threshold: %d", brightThreshold);
        cv::Mat thresholded;
        cv::threshold(image, thresholded, brightThreshold, 255, cv::THRESH_BINARY);
        const pin::Blobs blobs = pin::Label(thresholded, 4, kName);
        LogA(1, "label_count: %d", blobs.count);

        // Nearness to the centre of the marked area, 0 to 100. A marked
        // area less than two pixels wide has no half width to measure
        // against and gives every blob 0 here.
        std::vector<Pretip> pretip(100);
        bool rebuilt = false;
        const int halfWidth = markedWidth / 2;
        for (int l = 1; l < blobs.count; ++l) {
            if (!inRange(blobs.W(l))) continue;
            const double d = std::hypot(double(blobs.CentreX(l) - int(cx)), double(blobs.CentreY(l) - int(cy)));
            float s = halfWidth == 0 ? 0.0f : static_cast<float>((halfWidth - d) / halfWidth);
            if (s <= 0.0f) s = 0.0f;
            if (!rebuilt) {
                // One entry per label, background included: entry k holds
                // label k + 1, so the last entry names no blob.
                pretip.assign(blobs.count, Pretip{});
                for (int k = 0; k < blobs.count; ++k) pretip[k].label = k + 1;
                rebuilt = true;
            }
            pretip[l - 1].priority = static_cast<int>(s * 100.0);
        }
        choice.Walk(pretip, blobs);

        // Brightness, 0 to 100: the mean gray level over the blob's box, or
        // the pixel itself for a one-pixel blob.
        for (int l = 1; l < blobs.count; ++l) {
            if (!inRange(blobs.W(l))) continue;
            const cv::Rect box = blobs.Box(l);
            const int level = box.area() == 1 ? gray.at<uchar>(box.y, box.x)
                                              : pin::CutToInt(cv::mean(gray(box))[0]);
            double brightness = level / 255.0;
            if (brightness <= 0.0) brightness = 0.0;
            pretip[l - 1].priority =
                static_cast<int>(static_cast<float>(pretip[l - 1].priority) + 100.0f * static_cast<float>(brightness));
        }
        LogA(1, "pretipSize: %d", static_cast<int>(pretip.size()));
        for (size_t k = 0; k < pretip.size(); ++k) {
            LogA(1, "pretip[%d][0] = %d", static_cast<int>(k), pretip[k].label);
            LogA(1, "pretip[%d][1] = %d", static_cast<int>(k), pretip[k].priority);
        }
        choice.Walk(pretip, blobs);

        if (choice.label < 1) {
            outputs.push_back(cv::Mat::zeros(image.size(), image.type()));
            SetResult(kResult, -1, -1, -1, -1, count);
            VBcvTrace("PintipPriorityFilter is fail.\n");
            continue;
        }
        ++count;
        succeeded = true;
        cv::rectangle(colour, cv::Point(choice.x, choice.y), cv::Point(choice.x + choice.w, choice.y + choice.h),
                      cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8);
        cv::putText(colour, std::to_string(choice.label), cv::Point(choice.x, choice.y), cv::FONT_HERSHEY_SIMPLEX,
                    1.0, cv::Scalar(0, 0, 255, 0), 1, cv::LINE_8);
        SetResult(kResult, choice.cx, choice.cy, choice.w, choice.h, count);
        outputs.push_back(colour);
        pixmill::WriteDebugImageFile(pin::DebugImagePath(L"PintipPriorityFilter"), colour);
        VBcvTrace("PintipPriorityFilter is success.\n");
    }
    if (!succeeded) {
        SetResult(kResult, -1, -1, -1, -1, count);
        // A failing image has said so already.
        if (inputs.empty()) VBcvTrace("PintipPriorityFilter is fail.\n");
    }
    pixmill::filters::SetOutputImages(pins, outputs);
}

void CPintipPriorityFilter::Trace() {
    LogW(1, L"PintipPriorityFilter");
}

PIXMILL_REGISTER_FILTER(L"PintipPriorityFilter", CPintipPriorityFilter);
