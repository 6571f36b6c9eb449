#include "inspect/misc/IntensityData.h"

#include <algorithm>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "logging/Trace.h"
#include "platform/Platform.h"

namespace pixmill::inspect::misc {

namespace {

const char* const kTag = "[VBcvGetIntesityData]";
const IntensityData kNoData{-1.0, -1.0, -1.0, -1.0, -1.0};

// cv::calcHist counts in single precision, exact up to 2^24 per bin: no
// band of rows holds more pixels than that.
constexpr int64_t kExactBand = int64_t{1} << 24;

}  // namespace

void CountGrayLevels(const cv::Mat& gray, int64_t (&counts)[kIntensityBins]) {
    std::fill(std::begin(counts), std::end(counts), 0);
    if (gray.empty()) return;
    const int bandRows =
        static_cast<int>(std::max<int64_t>(1, kExactBand / std::max(1, gray.cols)));
    const int channels[] = {0};
    const int bins[] = {kIntensityBins};
    const float range[] = {0.0f, 256.0f};
    const float* ranges[] = {range};
    for (int top = 0; top < gray.rows; top += bandRows) {
        const cv::Mat band = gray.rowRange(top, std::min(gray.rows, top + bandRows));
        cv::Mat hist;
        cv::calcHist(&band, 1, channels, cv::Mat(), hist, 1, bins, ranges);
        for (int i = 0; i < kIntensityBins; ++i)
            counts[i] += static_cast<int64_t>(hist.at<float>(i));
    }
}

IntensityData GetIntensityData(const char* path, int x, int y, int width, int height,
                               int* histogram, int histogramSize, ImageStore& store) noexcept {
    return RunGuarded(
        kNoData,
        [&]() -> IntensityData {
            try {
                TraceVersion();
                VBcvTrace("%s Start \n", kTag);
                VBcvTrace("%s Input : x : %d, y : %d, Width : %d, Height : %d, Bins : %d\n", kTag,
                          x, y, width, height, histogramSize);
                if (!histogram || histogramSize < kIntensityBins)
                    throw Fail(-1).Line("%s Fail : Parameter Error \n", kTag);
                const cv::Mat gray =
                    path ? store.Read(platform::FromUtf8(path), cv::IMREAD_GRAYSCALE) : cv::Mat();
                if (gray.empty()) throw Fail(-1).Line("%s Fail : File Error \n", kTag);

                const bool whole = x == 0 && y == 0 && width == 0 && height == 0;
                const cv::Rect region = whole ? cv::Rect(0, 0, gray.cols, gray.rows)
                                              : cv::Rect(x, y, width, height);
                const bool inside =
                    width >= 0 && height >= 0 && x >= 0 && y >= 0 &&
                    static_cast<int64_t>(x) + width <= gray.cols &&
                    static_cast<int64_t>(y) + height <= gray.rows;
                if (!inside || region.width == 0 || region.height == 0)
                    throw Fail(-1).Line("%s Fail : Region Error \n", kTag);
                const cv::Mat roi = gray(region);

                // The mean from the exact counts, by one true division: a
                // flat region's mean is its level. (cv::mean and
                // cv::meanStdDev multiply by 1 / n and can land a rounding
                // step below it, under the region's least pixel.)
                int64_t counts[kIntensityBins];
                CountGrayLevels(roi, counts);
                int64_t sum = 0;
                for (int i = 0; i < kIntensityBins; ++i) sum += counts[i] * i;
                const double pixels = static_cast<double>(region.width) * region.height;
                cv::Scalar unused, deviation;
                cv::meanStdDev(roi, unused, deviation);
                double least = 0, greatest = 0;
                cv::minMaxLoc(roi, &least, &greatest);
                const IntensityData r{static_cast<double>(sum) / pixels, deviation[0], least,
                                      greatest, pixels};
                // Counts above the int range cannot be handed over; they
                // saturate (an image that large cannot be read anyway).
                for (int i = 0; i < kIntensityBins; ++i)
                    histogram[i] = static_cast<int>(std::min<int64_t>(
                        counts[i], std::numeric_limits<int>::max()));
                VBcvTrace("%s Result : Mean : %.3f, StdDev : %.3f, Min : %.0f, Max : %.0f, "
                          "Pixels : %.0f\n",
                          kTag, r.Mean, r.StdDev, r.Min, r.Max, r.Pixels);
                VBcvTrace("%s End \n", kTag);
                return r;
            } catch (const Fail& fail) {
                fail.Trace();
                return kNoData;
            }
        },
        [] {
            VBcvTrace("%s Fail : Exception \n", kTag);
            return kNoData;
        });
}

}  // namespace pixmill::inspect::misc
