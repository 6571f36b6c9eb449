// Synthetic rim frames with known truth for the wafer edge tests and
// benchmarks: a disc of known centre and radius (optionally with a dark
// bevel ring), a die grid on the wafer, texture near the rim, camera noise
// and a mild blur.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

namespace pixmill::test {

struct WaferScene {
    cv::Point2d centre;
    double radius = 30000;
    double bevel = 0;  // width of the dark ring outside the radius
    int wafer = 170, bevelGray = 30, chuck = 50;
    double noise = 4.0;
    uint64_t seed = 1;
};

inline double Coverage(double edgeRadius, double d) {
    return std::clamp(edgeRadius - d + 0.5, 0.0, 1.0);
}

inline cv::Mat RenderScene(const WaferScene& s, cv::Size size) {
    cv::Mat f(size, CV_32F);
    for (int y = 0; y < size.height; ++y) {
        float* row = f.ptr<float>(y);
        for (int x = 0; x < size.width; ++x) {
            const double dx = x - s.centre.x, dy = y - s.centre.y;
            const double d = std::sqrt(dx * dx + dy * dy);
            const double inner = Coverage(s.radius, d);
            const double outer = s.bevel > 0 ? Coverage(s.radius + s.bevel, d) : inner;
            double v = s.chuck * (1 - outer) + s.bevelGray * (outer - inner) + s.wafer * inner;
            // Streets of the die grid, every 64 pixels, on the wafer only.
            const double gx = std::fmod(std::fabs(dx), 64.0), gy = std::fmod(std::fabs(dy), 64.0);
            if (gx < 3 || gy < 3) v -= 25 * inner;
            // Texture of the chuck and bevel near the rim.
            if (d > s.radius && d < s.radius + 60) v += 5 * std::sin(x * 0.7) * std::cos(y * 0.9);
            row[x] = float(v);
        }
    }
    cv::Mat noise(size, CV_32F);
    cv::RNG rng(s.seed);
    rng.fill(noise, cv::RNG::NORMAL, 0.0, s.noise);
    f += noise;
    cv::GaussianBlur(f, f, cv::Size(3, 3), 0.8);
    cv::Mat out;
    f.convertTo(out, CV_8U);
    return out;
}

// Towards the wafer centre from a frame of quadrant `cpos`.
inline cv::Point2d Inward(int cpos) {
    const double k = 1.0 / std::sqrt(2.0);
    switch (cpos) {
        case 0: return {-k, k};
        case 1: return {k, k};
        case 2: return {k, -k};
        default: return {-k, -k};
    }
}

// A 640 x 480 frame of quadrant `cpos` whose rim (the wafer's own radius)
// passes through `rim`.
inline WaferScene QuadrantScene(int cpos, cv::Point2d rim, double radius = 30000, double bevel = 0) {
    WaferScene s;
    s.radius = radius;
    s.bevel = bevel;
    s.centre = rim + Inward(cpos) * radius;
    s.seed = 11 + uint64_t(cpos);
    return s;
}

// How far `p` lies from the circle of `radius` about the scene's centre.
inline double RimDistance(const WaferScene& s, cv::Point2d p, double radius) {
    return std::fabs(std::hypot(p.x - s.centre.x, p.y - s.centre.y) - radius);
}

}  // namespace pixmill::test
