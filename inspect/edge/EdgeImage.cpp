#include "inspect/edge/EdgeImage.h"

#include <cstdint>
#include <vector>

namespace pixmill::inspect::edge {

cv::Point InnerStep(int cpos) {
    switch (cpos) {
        case kTopRight: return {-1, 1};
        case kTopLeft: return {1, 1};
        case kBottomLeft: return {1, -1};
        default: return {-1, -1};
    }
}

void DiagonalAverage(const cv::Mat& src, cv::Mat& dst, int cpos) {
    CV_Assert(src.empty() || src.type() == CV_8UC1);
    if (src.empty()) {
        dst.release();
        return;
    }
    const int rows = src.rows, cols = src.cols;
    // Diagonal number of (r, c): column - row, shifted to start at 0, where
    // row and column grow together; row + column on the anti-diagonals.
    const bool falling = cpos == kTopRight || cpos == kBottomLeft;
    const size_t count = static_cast<size_t>(rows) + cols - 1;
    std::vector<int64_t> sums(count, 0);
    std::vector<int32_t> sizes(count, 0);
    for (int r = 0; r < rows; ++r) {
        const uint8_t* p = src.ptr<uint8_t>(r);
        for (int c = 0; c < cols; ++c) {
            const size_t k = falling ? static_cast<size_t>(c - r + rows - 1) : static_cast<size_t>(r + c);
            sums[k] += p[c];
            ++sizes[k];
        }
    }
    std::vector<uint8_t> means(count, 0);
    for (size_t k = 0; k < count; ++k)
        if (sizes[k] > 0) means[k] = static_cast<uint8_t>(static_cast<double>(sums[k]) / sizes[k]);
    cv::Mat out(rows, cols, CV_8UC1);
    for (int r = 0; r < rows; ++r) {
        uint8_t* q = out.ptr<uint8_t>(r);
        for (int c = 0; c < cols; ++c)
            q[c] = means[falling ? static_cast<size_t>(c - r + rows - 1) : static_cast<size_t>(r + c)];
    }
    dst = out;
}

cv::Mat CameraRegion(const cv::Mat& frame) {
    if (frame.empty() || frame.cols - kDroppedColumns < kRegion || frame.rows < kRegion) return {};
    return frame(cv::Rect(0, 0, kRegion, kRegion)).clone();
}

cv::Mat SquareRegion(const cv::Mat& frame) {
    if (frame.empty() || frame.cols < kRegion || frame.rows < kRegion) return {};
    return frame(cv::Rect(0, 0, kRegion, kRegion)).clone();
}

cv::Point DiagonalPoint(int cpos, int t) {
    switch (cpos) {
        case kTopRight: return {kLast - t, t};
        case kTopLeft: return {t, t};
        case kBottomLeft: return {t, kLast - t};
        default: return {kLast - t, kLast - t};
    }
}

std::vector<double> DiagonalProfile(const cv::Mat& region, int cpos) {
    std::vector<double> profile;
    if (region.rows < kRegion || region.cols < kRegion) return profile;
    profile.resize(kRegion);
    for (int t = 0; t < kRegion; ++t) profile[t] = region.at<uint8_t>(DiagonalPoint(cpos, t));
    return profile;
}

}  // namespace pixmill::inspect::edge
