// The die corner inspections: framed die series drawn with known edges,
// lines and corners; dies on black of known size and rotation, some cut by
// the border; the canned corner measurement and its number reader.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "inspect/die/DieCornerBlack.h"
#include "inspect/die/DieCornerDetectF.h"
#include "inspect/die/DieCornerFramed.h"
#include "inspect/die/DieCornerImage.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::die {
namespace {

// ---------------------------------------------------------------------------
// Drawing
// ---------------------------------------------------------------------------

constexpr int kScale = 8;

// A polygon in pixel-centre coordinates drawn with exact area coverage:
// painted at 8 x on a supersampled canvas and reduced by area averaging.
void FillCovered(cv::Mat& image, const std::vector<cv::Point2d>& polygon, double level) {
    cv::Mat big(image.rows * kScale, image.cols * kScale, CV_8UC1, cv::Scalar(0));
    std::vector<cv::Point> pts;
    for (const cv::Point2d& p : polygon)
        pts.emplace_back(cvRound(((p.x + 0.5) * kScale - 0.5) * 16), cvRound(((p.y + 0.5) * kScale - 0.5) * 16));
    cv::fillPoly(big, std::vector<std::vector<cv::Point>>{pts}, cv::Scalar(255), cv::LINE_8, 4);
    cv::Mat cover;
    cv::resize(big, cover, image.size(), 0, 0, cv::INTER_AREA);
    cv::Mat f, c;
    image.convertTo(f, CV_32F);
    cover.convertTo(c, CV_32F, 1.0 / 255);
    f = f.mul(1 - c) + c * level;
    f.convertTo(image, CV_8U);
}

cv::Mat Noisy(cv::Mat image, double sigma, int seed) {
    cv::Mat noise(image.size(), CV_32F), f;
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::NORMAL, 0, sigma);
    image.convertTo(f, CV_32F);
    f += noise;
    f.convertTo(image, CV_8U);
    return image;
}

// A die: centre, size and rotation in degrees; its corners LT, RT, RB, LB.
struct Die {
    double cx, cy, w, h, angle;
    std::vector<cv::Point2d> Corners() const {
        const double a = angle * CV_PI / 180, c = std::cos(a), s = std::sin(a);
        const double hx[4] = {-w / 2, w / 2, w / 2, -w / 2}, hy[4] = {-h / 2, -h / 2, h / 2, h / 2};
        std::vector<cv::Point2d> out;
        for (int k = 0; k < 4; ++k) out.emplace_back(cx + hx[k] * c - hy[k] * s, cy + hx[k] * s + hy[k] * c);
        return out;
    }
};

cv::Mat DieImage(cv::Size size, const std::vector<Die>& dies, double background, double level, double noise,
                 int seed) {
    cv::Mat image(size, CV_8UC1, cv::Scalar(background));
    for (const Die& d : dies) FillCovered(image, d.Corners(), level);
    cv::GaussianBlur(image, image, {3, 3}, 0.7);
    return noise > 0 ? Noisy(image, noise, seed) : image;
}

double Distance(cv::Point2f a, cv::Point2d b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// ---------------------------------------------------------------------------
// Dies on black
// ---------------------------------------------------------------------------

struct BlackCase {
    const char* name;
    double level;
    double angle;
    int mode;
};

class BlackBackgroundAccuracy : public test::PixmillTest, public ::testing::WithParamInterface<BlackCase> {};

bool InFrame(cv::Point2d p, cv::Size size) {
    return p.x >= 0 && p.y >= 0 && p.x <= size.width - 1 && p.y <= size.height - 1;
}

// The drawn die a reported one stands for: the one with a computed corner
// nearest its own.
const Die* Match(const DieCorners& f, const std::vector<Die>& dies) {
    const Die* truth = nullptr;
    double best = 1e9;
    for (int k = 0; k < 4; ++k) {
        if (f.corner[k].x == -1.f) continue;
        for (const Die& d : dies)
            if (Distance(f.corner[k], d.Corners()[k]) < best) best = Distance(f.corner[k], d.Corners()[k]), truth = &d;
    }
    return truth;
}

TEST_P(BlackBackgroundAccuracy, CornersWithinOnePixel) {
    const BlackCase& c = GetParam();
    // A 5 x 5 grid of 110 x 90 dies on 640 x 480 with streets of 40 and 40;
    // the outer ring is cut by the border (25 to 75 pixels left in view).
    std::vector<Die> dies;
    for (int j = -2; j <= 2; ++j)
        for (int i = -2; i <= 2; ++i)
            dies.push_back({320.3 + i * 150 + j * 0.37, 240.6 + j * 130 - i * 0.23,
                            110, 90, c.angle});
    const cv::Size size(640, 480);
    const cv::Mat image = DieImage(size, dies, 6, c.level, 2.0, 11);
    const std::vector<DieCorners> found = DetectBlackBackgroundDies(image, {110, 90, 8, 8, c.mode});
    // Every die shows at least 25 x 25 pixels, so all 25 are reported.
    ASSERT_EQ(found.size(), 25u) << c.name;
    int complete = 0;
    double worst = 0;
    for (const DieCorners& f : found) {
        const Die* truth = Match(f, dies);
        ASSERT_NE(truth, nullptr);
        bool all = true;
        for (int k = 0; k < 4; ++k) {
            const cv::Point2d t = truth->Corners()[k];
            if (!InFrame(t, size)) {
                // A corner outside the image has no side to come from.
                EXPECT_EQ(f.corner[k].x, -1.f) << c.name << " corner " << k << " of die " << truth->cx << "," << truth->cy;
                all = false;
                continue;
            }
            ASSERT_NE(f.corner[k].x, -1.f) << c.name << " corner " << k << " of die " << truth->cx << "," << truth->cy;
            EXPECT_LT(Distance(f.corner[k], t), 1.0) << c.name << " corner " << k << " of die " << truth->cx << ","
                                                     << truth->cy;
            worst = std::max(worst, Distance(f.corner[k], t));
        }
        complete += all;
    }
    EXPECT_EQ(complete, 9) << c.name;  // the inner 3 x 3
    std::printf("%s: %zu dies, %d complete, worst corner error %.3f px\n", c.name, found.size(), complete, worst);
}

INSTANTIATE_TEST_SUITE_P(
    DieCorner, BlackBackgroundAccuracy,
    ::testing::Values(BlackCase{"level80", 80, 0.0, 0}, BlackCase{"level80_rot1_5", 80, 1.5, 0},
                      BlackCase{"level80_rotm2", 80, -2.0, 0}, BlackCase{"level80_mode1", 80, 1.0, 1},
                      BlackCase{"level80_mode2", 80, 0.5, 2}, BlackCase{"level200", 200, 0.8, 0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pixmill::inspect::die
