#include "inspect/misc/FlatPad.h"

#include <algorithm>
#include <cstdint>
#include <vector>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "Filters/PadLevel.h"
#include "enhance/PadThreshold.h"
#include "framework/ImageFiles.h"
#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::misc {

const wchar_t* const kFlatPadDebugImage = L"C:\\PROBERPARAM\\ParaImg\\FlatPadResult.jpg";

namespace {

const char* const kTag = "[VBcvBinarization_for_Flat_Pad]";
const FlatPadResult kNoMarks{-1, -1, -1, -1, -1, -1, -1};
const cv::Scalar kRed(0, 0, 255, 0);
const cv::Scalar kGreen(0, 255, 0, 0);

// Whether OpenCV has a writer for the file's extension.
bool Writable(const std::string& path) {
    try {
        return cv::haveImageWriter(platform::NativePath(path));
    } catch (const cv::Exception&) {
        return false;
    }
}

// Counts of the gray levels of a set of pixels.
struct GrayHistogram {
    int64_t bins[256] = {};
    int64_t total = 0;
    void Add(uchar v) {
        ++bins[v];
        ++total;
    }
    // The lower median; 0 for no pixels.
    int Median() const {
        int64_t run = 0;
        for (int i = 0; i < 256; ++i)
            if ((run += bins[i]) * 2 >= total && total > 0) return i;
        return 0;
    }
};

}  // namespace

cv::Mat IsolateMarks(const cv::Mat& gray, const cv::Mat& figure, int level, bool blackPad,
                     FlatPadResult& result) {
    const cv::Mat values = blackPad ? cv::Mat(255 - gray) : gray;
    cv::Mat candidates;
    cv::threshold(values, candidates, level, 255.0, cv::THRESH_BINARY_INV);
    cv::bitwise_and(candidates, figure, candidates);

    // Found marks: groups of candidates that are not specks.
    cv::Mat labels, stats, centroids;
    const int count =
        cv::connectedComponentsWithStats(candidates, labels, stats, centroids, 8, CV_32S);
    std::vector<int> slot(static_cast<size_t>(count), -1);  // label -> found mark
    int found = 0;
    for (int i = 1; i < count; ++i)
        if (stats.at<int>(i, cv::CC_STAT_AREA) >= kLeastMarkPixels) slot[i] = found++;

    // Histograms of the pad (the figure above the level) and of each mark.
    std::vector<GrayHistogram> marks(static_cast<size_t>(found));
    GrayHistogram pad;
    for (int y = 0; y < values.rows; ++y) {
        const uchar* v = values.ptr<uchar>(y);
        const uchar* f = figure.ptr<uchar>(y);
        const int* label = labels.ptr<int>(y);
        for (int x = 0; x < values.cols; ++x) {
            if (!f[x]) continue;
            if (v[x] > level) pad.Add(v[x]);
            else if (slot[label[x]] >= 0) marks[slot[label[x]]].Add(v[x]);
        }
    }
    // Each mark's outline: half-way between the pad's and the mark's median
    // level (never above the level that found it).
    const int padMedian = pad.total > 0 ? pad.Median() : level + 1;
    std::vector<double> outline(static_cast<size_t>(found));
    for (int k = 0; k < found; ++k)
        outline[k] = std::min<double>(level, (padMedian + marks[k].Median()) / 2.0);

    cv::Mat kept = cv::Mat::zeros(gray.size(), CV_8UC1);
    for (int y = 0; y < values.rows; ++y) {
        const uchar* v = values.ptr<uchar>(y);
        const int* label = labels.ptr<int>(y);
        uchar* out = kept.ptr<uchar>(y);
        for (int x = 0; x < values.cols; ++x) {
            const int k = slot[label[x]];
            if (k >= 0 && v[x] <= outline[k]) out[x] = 255;
        }
    }

    // The marks as outlined; a mark that shrank to a speck goes.
    const int outlined =
        cv::connectedComponentsWithStats(kept, labels, stats, centroids, 8, CV_32S);
    std::vector<uchar> keep(static_cast<size_t>(outlined), 0);
    cv::Rect box;
    result.Marks = 0;
    result.MarkPixels = 0;
    for (int i = 1; i < outlined; ++i) {
        const int area = stats.at<int>(i, cv::CC_STAT_AREA);
        if (area < kLeastMarkPixels) continue;
        keep[static_cast<size_t>(i)] = 255;
        const cv::Rect r(stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP),
                         stats.at<int>(i, cv::CC_STAT_WIDTH), stats.at<int>(i, cv::CC_STAT_HEIGHT));
        box = result.Marks == 0 ? r : (box | r);
        ++result.Marks;
        result.MarkPixels += area;
    }
    result.MarkX = box.x;
    result.MarkY = box.y;
    result.MarkWidth = box.width;
    result.MarkHeight = box.height;

    cv::Mat marksImage(gray.size(), CV_8UC1);
    for (int y = 0; y < labels.rows; ++y) {
        const int* label = labels.ptr<int>(y);
        uchar* out = marksImage.ptr<uchar>(y);
        for (int x = 0; x < labels.cols; ++x) out[x] = keep[static_cast<size_t>(label[x])];
    }
    return marksImage;
}

FlatPadResult BinarizeFlatPad(const FlatPadArgs& a, ImageStore& store) noexcept {
    return RunGuarded(
        kNoMarks,
        [&]() -> FlatPadResult {
            try {
                TraceVersion();
                VBcvTrace("%s Start \n", kTag);
                VBcvTrace("%s Input : x : %d, y : %d, Shape : %d, BlackPad : %d, Angle : %d, "
                          "Offset : %d\n",
                          kTag, a.x, a.y, a.shape, a.blackPad, a.angle, a.offset);
                if (a.padPath.empty() || a.resultPath.empty() || !Writable(a.resultPath))
                    throw Fail(-1).Line("%s Fail : Parameter Error \n", kTag);
                const cv::Mat gray =
                    store.Read(platform::FromUtf8(a.padPath), cv::IMREAD_GRAYSCALE);
                if (gray.empty()) throw Fail(-1).Line("%s Fail : File Error \n", kTag);
                const cv::Mat pixels = gray.isContinuous() ? gray : gray.clone();

                // The estimator traces its own reason for a refusal.
                const double found =
                    VBcvGetThresholdEx(pixels.data, pixels.cols, pixels.rows, a.x, a.y, a.shape,
                                       a.blackPad, a.angle, a.offset, 0);
                if (found < 0)
                    throw Fail(-1).Line("%s Fail : Threshold Error (%.0f) \n", kTag, found);
                const int level = static_cast<int>(found);
                const bool black = a.blackPad != 0;
                const cv::Mat figure =
                    DrawPadMask(pixels.cols, pixels.rows, a.x, a.y, a.shape, a.angle, a.offset);

                FlatPadResult r{};
                r.Level = filters::PadLevelInImageScale(level, black);
                const cv::Mat marks = IsolateMarks(pixels, figure, level, black, r);
                if (!WriteImageFile(platform::FromUtf8(a.resultPath), marks))
                    throw Fail(-1).Line("%s Fail : Write Error \n", kTag);

                cv::Mat colour;
                cv::cvtColor(pixels, colour, cv::COLOR_GRAY2BGR);
                colour.setTo(kRed, marks);
                if (r.Marks > 0)
                    cv::rectangle(colour, cv::Rect(r.MarkX, r.MarkY, r.MarkWidth, r.MarkHeight),
                                  kGreen, 1, cv::LINE_8);
                SaveDebugImage(store, kFlatPadDebugImage, colour);

                VBcvTrace("%s Result : Level : %d, Marks : %d, Pixels : %d, Box : (%d, %d, %d, "
                          "%d)\n",
                          kTag, r.Level, r.Marks, r.MarkPixels, r.MarkX, r.MarkY, r.MarkWidth,
                          r.MarkHeight);
                VBcvTrace("%s End \n", kTag);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoMarks;
            }
        },
        [] {
            VBcvTrace("%s Fail : Exception \n", kTag);
            return kNoMarks;
        });
}

}  // namespace pixmill::inspect::misc
