#include "enhance/OtsuLevel.h"

#include <cstddef>

namespace pixmill {

int SmoothedVarianceLevel(const int64_t (&histogram)[256]) {
    // One count added to every bin keeps every class weight above zero.
    double bins[256];
    double sum = 0.0;
    for (int i = 0; i < 256; ++i) {
        bins[i] = static_cast<double>(histogram[i]) + 1.0;
        sum += bins[i];
    }
    double weight[256];
    double moment[256];
    double w = 0.0;
    double m = 0.0;
    for (int i = 0; i < 256; ++i) {
        const double p = bins[i] / sum;
        w += p;
        m += static_cast<double>(i + 1) * p;
        weight[i] = w;
        moment[i] = m;
    }
    const double total = moment[255];
    int level = 0;
    double best = -10000.0;
    for (int i = 0; i < 256; ++i) {
        double d = weight[i] - weight[i] * weight[i];
        if (d == 0.0) d = 0.000001;
        const double between = total * weight[i] - moment[i];
        const double measure = between * between / d;
        if (measure > best) {
            best = measure;
            level = i;
        }
    }
    return level;
}

int OtsuLevel(const uint8_t* data, int width, int height) {
    int64_t histogram[256] = {};
    if (data && width > 0 && height > 0) {
        const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
        for (size_t i = 0; i < count; ++i) ++histogram[data[i]];
    }
    return SmoothedVarianceLevel(histogram);
}

int DarkHalfVarianceLevel(const uint8_t* data, int width, int height, int stride) {
    int64_t histogram[256] = {};
    if (data && width > 0 && height > 0 && stride >= width) {
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = data + static_cast<size_t>(y) * static_cast<size_t>(stride);
            for (int x = 0; x < width; ++x)
                if (row[x] < 128) ++histogram[row[x]];
        }
    }
    return SmoothedVarianceLevel(histogram);
}

}  // namespace pixmill
