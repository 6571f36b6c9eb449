#include "Filters/EnhancePadFindFilter.h"

#include <algorithm>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <vector>

#include "Filters/EnhanceInput.h"
#include "Filters/ImageLoop.h"
#include "enhance/Enhance.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

namespace {

struct PadFindSettings {
    int width;
    int height;
    float acceptance;
    float sigma;
    int edgeThresh;
    bool darkPad;
};

// What the detectors leave for the refinement: the level of the detector
// that succeeded (0: none) and the box of its detection.
struct Detection {
    int level = 0;
    cv::Rect box;
};

cv::Mat RectElement(int w, int h) {
    return cv::getStructuringElement(cv::MORPH_RECT, cv::Size(w, h), cv::Point(-1, -1));
}

cv::Mat Opened(const cv::Mat& image, const cv::Mat& element) {
    cv::Mat out;
    cv::morphologyEx(image, out, cv::MORPH_OPEN, element);
    return out;
}

// The top-level outlines of a binary image in the order the two-level
// retrieval lists them, with their hierarchy.
struct Outlines {
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;

    explicit Outlines(const cv::Mat& binary) {
        cv::findContours(binary.clone(), contours, hierarchy, cv::RETR_CCOMP,
                         cv::CHAIN_APPROX_SIMPLE);
    }
    // Calls visit(index) for each top-level outline until it returns true.
    template <class Visit>
    void WalkTop(Visit&& visit) const {
        for (int i = contours.empty() ? -1 : 0; i >= 0; i = hierarchy[i][0])
            if (visit(i)) return;
    }
};

// Draws the convex hull of `points` filled into `into`.
void DrawHull(cv::Mat& into, const std::vector<cv::Point>& points) {
    std::vector<std::vector<cv::Point>> hull(1);
    cv::convexHull(points, hull[0]);
    cv::drawContours(into, hull, 0, cv::Scalar(255), cv::FILLED, cv::LINE_8);
}

// The first top-level outline of `binary` whose box lies within 10% of the
// pad size and whose area exceeds `fraction` of the pad area: its hull goes
// into `result` and its box into `found`.
bool PadSizedOutline(const cv::Mat& binary, double fraction, const PadFindSettings& s, int level,
                     cv::Mat& result, Detection& found) {
    const Outlines outlines(binary);
    const double padArea = static_cast<double>(s.width) * s.height;
    bool hit = false;
    outlines.WalkTop([&](int i) {
        const cv::Rect box = cv::boundingRect(outlines.contours[i]);
        if (!(box.height > 0.9 * s.height && box.height < 1.1 * s.height &&
              box.width > 0.9 * s.width && box.width < 1.1 * s.width))
            return false;
        if (!(std::abs(cv::contourArea(outlines.contours[i])) > fraction * padArea)) return false;
        DrawHull(result, outlines.contours[i]);
        found.level = level;
        found.box = box;
        return hit = true;
    });
    return hit;
}

// `binary` with the first hole of each blob filled.
cv::Mat FillFirstHoles(const cv::Mat& binary) {
    cv::Mat filled = binary.clone();
    const Outlines outlines(binary);
    outlines.WalkTop([&](int i) {
        const int child = outlines.hierarchy[i][2];
        if (child >= 0)
            cv::drawContours(filled, outlines.contours, child, cv::Scalar(255), cv::FILLED,
                             cv::LINE_8, cv::noArray(), 0);
        return false;
    });
    return filled;
}

// Closes the bar blobs of pad height (width) across their gaps: in each
// column (row) of the blob's box, the run between the blob's first and last
// pixel is set.
void CloseBarGaps(cv::Mat& bars, const PadFindSettings& s) {
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(bars, labels, stats, centroids, 8, CV_32S);
    for (int label = 1; label < n; ++label) {
        const int left = stats.at<int>(label, cv::CC_STAT_LEFT);
        const int top = stats.at<int>(label, cv::CC_STAT_TOP);
        const int w = stats.at<int>(label, cv::CC_STAT_WIDTH);
        const int h = stats.at<int>(label, cv::CC_STAT_HEIGHT);
        if (h > 0.9 * s.height && h < 1.1 * s.height && w > 0.5 * s.width) {
            for (int x = left; x < left + w; ++x) {
                int first = -1, last = -1;
                for (int y = top; y < top + h; ++y)
                    if (labels.at<int>(y, x) == label) {
                        if (first < 0) first = y;
                        last = y;
                    }
                for (int y = first; first >= 0 && y <= last; ++y) bars.at<uint8_t>(y, x) = 255;
            }
        }
        if (w > 0.9 * s.width && w < 1.1 * s.width && h > 0.5 * s.height) {
            for (int y = top; y < top + h; ++y) {
                const int* row = labels.ptr<int>(y);
                int first = -1, last = -1;
                for (int x = left; x < left + w; ++x)
                    if (row[x] == label) {
                        if (first < 0) first = x;
                        last = x;
                    }
                uint8_t* out = bars.ptr<uint8_t>(y);
                for (int x = first; first >= 0 && x <= last; ++x) out[x] = 255;
            }
        }
    }
}

// Detector 4: the best place for a pad-sized frame (+1 inside, -1 on a one
// pixel border) on the closed bars. Above 0.75 the one large outline in the
// window, if there is exactly one, is the pad.
void FrameMatch(cv::Mat& bars, const PadFindSettings& s, cv::Mat& result, Detection& found) {
    CloseBarGaps(bars, s);
    cv::Mat bars32;
    bars.convertTo(bars32, CV_32F);
    cv::Mat templ(s.height + 2, s.width + 2, CV_32F, cv::Scalar(-1.0));
    templ(cv::Rect(1, 1, s.width, s.height)).setTo(cv::Scalar(1.0));
    cv::Mat score;
    cv::matchTemplate(bars32, templ, score, cv::TM_CCORR_NORMED);
    double best = 0.0;
    cv::Point at;
    cv::minMaxLoc(score, nullptr, &best, nullptr, &at);
    if (!(best > 0.75)) return;
    found.level = 4;
    found.box = cv::Rect(at, templ.size());

    const Outlines outlines(bars(found.box));
    std::vector<cv::Point> points;
    int counted = 0;
    outlines.WalkTop([&](int i) {
        const cv::Rect box = cv::boundingRect(outlines.contours[i]);
        if ((box.width > 0.4 * s.width && box.height > 0.8 * s.height) ||
            (box.width > 0.8 * s.width && box.height > 0.4 * s.height)) {
            ++counted;
            points.insert(points.end(), outlines.contours[i].begin(), outlines.contours[i].end());
        }
        return false;
    });
    if (counted == 1 && !points.empty()) {
        cv::Mat window = result(found.box);
        DrawHull(window, points);
    }
}

// One side walk over strips i = from, from + step, ... while i is on the
// near side of `bound`. A strip is a column (vertical) or a row of the box.
struct SideWalk {
    int from;
    int step;
    int bound;
    bool vertical;
};

bool Within(int i, const SideWalk& walk) {
    return walk.step < 0 ? i > walk.bound : i < walk.bound;
}

cv::Rect Strip(const cv::Rect& box, int i, bool vertical) {
    return vertical ? cv::Rect(i, box.y, 1, box.height) : cv::Rect(box.x, i, box.width, 1);
}

// The side of one walk: the darkest strip of a descent beginning more than
// edgeThresh below padMean, followed for at most three improving steps;
// else, the first strip where `blob` covers less than 70% of it; else -1.
// Strips outside the image are passed over.
int MeasureSide(const SideWalk& walk, const cv::Rect& box, const cv::Mat& smooth,
                const cv::Mat& wide, const cv::Mat& blob, double padMean, int edgeThresh) {
    const cv::Rect image(0, 0, smooth.cols, smooth.rows);
    const double along = walk.vertical ? box.height : box.width;
    int side = -1;
    float best = 3.4028235e+38f;
    int hits = 0;
    for (int i = walk.from; Within(i, walk); i += walk.step) {
        const cv::Rect strip = Strip(box, i, walk.vertical);
        if ((strip & image) != strip) continue;
        const int n = cv::countNonZero(wide(strip));
        if (n < 0.3 * along) break;
        const double m = cv::mean(smooth(strip), wide(strip))[0];
        if (padMean - m > edgeThresh && m < best) {
            best = static_cast<float>(m);
            side = i;
            if (++hits > 2) break;
        } else if (hits != 0) {
            break;
        }
    }
    if (side != -1) return side;
    for (int i = walk.from; Within(i, walk); i += walk.step) {
        const cv::Rect strip = Strip(box, i, walk.vertical);
        if ((strip & image) != strip) continue;
        if (cv::countNonZero(blob(strip)) < 0.7 * along) return i;
    }
    return -1;
}

bool Implausible(int low, int high, int size) {
    if (low == -1 && high == -1) return true;
    if (low == -1 || high == -1) return false;
    const int span = high - low;
    return span < 0.85 * size || span > 1.2 * size;
}

// One pass on one image large enough for the pad.
cv::Mat FindPad(const cv::Mat& input, const PadFindSettings& s) {
    const int cols = input.cols, rows = input.rows;
    cv::Mat gray;
    if (s.darkPad)
        cv::bitwise_not(input, gray);
    else
        gray = input.clone();
    const cv::Mat S3 = RectElement(3, 3), S5 = RectElement(5, 5);

    cv::Mat enhanced(gray.size(), CV_8UC1);
    pixmill::EnhanceImage(gray.data, enhanced.data, cols, rows, 0, s.sigma, 5.0f);
    cv::Mat bright;
    cv::threshold(enhanced, bright, 128.0, 255.0, cv::THRESH_BINARY);
    cv::Mat smooth;
    cv::GaussianBlur(gray, smooth, cv::Size(3, 3), 0, 0, cv::BORDER_DEFAULT);
    cv::Mat otsu;
    cv::threshold(smooth, otsu, 0.0, 255.0, cv::THRESH_BINARY | cv::THRESH_OTSU);
    cv::morphologyEx(otsu, otsu, cv::MORPH_OPEN, S5, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT);
    cv::bitwise_or(bright, otsu, bright);
    const cv::Mat filled = Opened(FillFirstHoles(bright), S5);

    cv::Mat result = cv::Mat::zeros(gray.size(), CV_8UC1);
    cv::Mat bars;
    Detection found;
    if (!PadSizedOutline(filled, s.acceptance, s, 1, result, found)) {
        // Bars a fifth of the pad long keep the pad's straight sides and
        // drop thinner structures crossing them.
        const cv::Mat hBar = RectElement(std::max(1, static_cast<int>(s.width * 0.2)), 1);
        const cv::Mat vBar = RectElement(1, std::max(1, static_cast<int>(s.height * 0.2)));
        const cv::Mat barsH = Opened(Opened(filled, hBar), S3);
        const cv::Mat barsV = Opened(Opened(filled, vBar), S3);
        cv::bitwise_or(barsH, barsV, bars);
        if (!PadSizedOutline(barsH, 0.7, s, 2, result, found) &&
            !PadSizedOutline(barsV, 0.7, s, 3, result, found))
            FrameMatch(bars, s, result, found);
    }
    if (found.level == 0) return filled.clone();

    // Refinement of the four sides. The box is clipped on both axes first;
    // the walks themselves pass over strips outside the image.
    const cv::Rect box = found.box & cv::Rect(0, 0, cols, rows);
    if (box.empty()) return filled.clone();
    const double padMean = cv::mean(smooth(box), bright(box))[0];
    cv::Mat wide;
    cv::morphologyEx(bright, wide, cv::MORPH_DILATE, S3, cv::Point(-1, -1), 2, cv::BORDER_CONSTANT);
    const cv::Mat& blob = found.level < 4 ? result : bars;
    const int x = box.x, y = box.y, w = box.width, h = box.height;
    const auto measure = [&](const SideWalk& walk) {
        return MeasureSide(walk, box, smooth, wide, blob, padMean, s.edgeThresh);
    };
    int left = measure({x + 5, -1, std::max(x - 5, 0), true});
    int right = measure({x + w - 5, 1, std::min(x + w + 5, cols), true});
    int top = measure({y + 5, -1, std::max(y - 5, 0), false});
    int bottom = measure({y + h - 5, 1, std::min(y + h + 5, rows), false});
    if (Implausible(left, right, s.width) || Implausible(top, bottom, s.height))
        return filled.clone();
    if (left == -1) left = std::max(right - s.width, 0);
    if (right == -1) right = std::min(left + s.width, cols);
    if (top == -1) top = std::max(bottom - s.height, 0);
    if (bottom == -1) bottom = std::min(top + s.height, rows);

    cv::Mat mask = cv::Mat::zeros(gray.size(), CV_8UC1);
    mask(cv::Rect(left, top, right - left + 1, bottom - top + 1) & cv::Rect(0, 0, cols, rows))
        .setTo(cv::Scalar(255));
    cv::dilate(result, result, S5);
    cv::bitwise_and(result, mask, result);
    return result;
}

}  // namespace

CEnhancePadFindFilter::CEnhancePadFindFilter() {
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    AddParam(new sorvik::Param<int>(L"PadWidth", 60, 10, 480, 1));
    AddParam(new sorvik::Param<int>(L"PadHeight", 60, 10, 480, 1));
    AddParam(new sorvik::Param<float>(L"Acceptance"));
    AddParam(new sorvik::Param<float>(L"Sigma", 4.0f, 1.0f, 10.0f, 0.5f));
    AddParam(new sorvik::Param<int>(L"EdgeThresh", 40, 10, 100, 5));
    AddParam(new sorvik::Param<bool>(L"PadType"));
}

void CEnhancePadFindFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    Trace();
    LogW(1, L"OptionRead");
    PadFindSettings s{};
    s.width = pixmill::ParamValue<int>(params, L"PadWidth", 60);
    s.height = pixmill::ParamValue<int>(params, L"PadHeight", 60);
    s.acceptance = pixmill::ParamValue<float>(params, L"Acceptance", 0.7f);
    s.sigma = pixmill::ParamValue<float>(params, L"Sigma", 4.0f);
    s.edgeThresh = pixmill::ParamValue<int>(params, L"EdgeThresh", 30);
    s.darkPad = pixmill::ParamValue<bool>(params, L"PadType", false);
    if (s.width < 1 || s.height < 1)
        throw std::invalid_argument(
            "EnhancePadFindFilter needs PadWidth and PadHeight of 1 or more");

    LogW(1, L"Get Input Image");
    std::vector<cv::Mat> images;
    for (IPin* pin : pins) {
        if (pin->IsOutput() || pin->GetKey() != 1) continue;
        for (cv::Mat* image : pin->GetImage()) {
            LogW(1, L"Input Image");
            images.push_back(
                pixmill::filters::EnhanceInput(image ? *image : cv::Mat(), "EnhancePadFindFilter")
                    .clone());
        }
    }

    std::vector<cv::Mat> results;
    for (const cv::Mat& image : images) {
        LogW(1, L"Loop");
        if (image.cols < int64_t{s.width} + 2 || image.rows < int64_t{s.height} + 2) continue;
        LogW(1, L"Loop1");
        results.push_back(FindPad(image, s));
    }
    LogW(1, L"Out convert");
    pixmill::filters::SetOutputImages(pins, results);
}

void CEnhancePadFindFilter::Trace() {
    LogW(1, L"EnhancePadFindFilter");
}

PIXMILL_REGISTER_FILTER(L"EnhancePadFindFilter", CEnhancePadFindFilter);
