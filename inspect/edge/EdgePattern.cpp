#include "inspect/edge/EdgePattern.h"

#include <mutex>
#include <opencv2/highgui.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "inspect/Inspection.h"
#include "inspect/edge/EdgeFind.h"
#include "logging/Trace.h"
#include "platform/Display.h"

namespace pixmill::inspect::edge {

namespace {

const char* const kWindowName = "PatternImage";
constexpr int kMarkerSide = 19;
const cv::Vec3b kEdgeRed(0, 0, 255);
const cv::Vec3b kMarker(72, 255, 255);

// The window's images and the view flag, shared with the click handler,
// which runs on the window toolkit's thread.
struct PatternState {
    std::recursive_mutex mutex;  // the click handler may run inside pollKey below
    cv::Mat display, overlay;
    bool view = false;         // the click shows `display` when set
    bool windowMade = false;   // the toolkit is up and the window was made
};

PatternState& State() {
    static PatternState state;
    return state;
}

void OnMouse(int event, int, int, int, void*) {
    if (event != cv::EVENT_LBUTTONDOWN) return;
    try {
        PatternState& s = State();
        std::lock_guard<std::recursive_mutex> lock(s.mutex);
        const cv::Mat& shown = s.view ? s.display : s.overlay;
        if (!shown.empty()) cv::imshow(kWindowName, shown);
        s.view = !s.view;
    } catch (...) {
        // A click on a window being closed: nothing to show.
    }
}

void PaintRed(cv::Mat& image, const cv::Mat& edges) {
    for (int r = 0; r < image.rows; ++r)
        for (int c = 0; c < image.cols; ++c)
            if (edges.at<cv::Vec3b>(r, c) == cv::Vec3b(255, 255, 255)) image.at<cv::Vec3b>(r, c) = kEdgeRed;
}

}  // namespace

PatternImages MakePatternImages(const cv::Mat& colour) {
    const cv::Mat kernel = (cv::Mat_<double>(3, 3) << 1, -2, 1, -2, 5, -2, 1, -2, 1);
    cv::Mat lab, gray;
    cv::cvtColor(colour, lab, cv::COLOR_BGR2Lab);
    std::vector<cv::Mat> planes;
    cv::split(lab, planes);
    gray = planes[0];
    PatternImages out;
    out.overlay = colour.clone();
    cv::blur(gray, gray, cv::Size(5, 5));
    cv::dilate(gray, gray, cv::Mat(), cv::Point(-1, -1), 3);
    cv::erode(gray, gray, cv::Mat(), cv::Point(-1, -1), 3);
    cv::filter2D(gray, gray, -1, kernel, cv::Point(-1, -1));
    cv::Mat edges, edges3;
    cv::Canny(gray, edges, 25.0, 25.0, 3);
    cv::cvtColor(edges, edges3, cv::COLOR_GRAY2BGR);
    cv::threshold(edges3, edges3, 1.0, 255.0, cv::THRESH_BINARY);
    PaintRed(out.overlay, edges3);
    out.display = edges3.clone();
    PaintRed(out.display, edges3);
    // The marker: a rhombus in the bottom-right 19 x 19 pixels, one pixel
    // wide in its first row, 17 at its widest, the last two rows black.
    if (out.display.cols >= kMarkerSide && out.display.rows >= kMarkerSide) {
        cv::Mat corner = out.display(cv::Rect(out.display.cols - kMarkerSide, out.display.rows - kMarkerSide,
                                              kMarkerSide, kMarkerSide));
        corner.setTo(cv::Scalar::all(0));
        const int middle = kMarkerSide / 2;
        for (int r = 0; r < kMarkerSide - 2; ++r) {
            const int half = r <= 8 ? r : 16 - r;
            for (int c = middle - half; c <= middle + half; ++c) corner.at<cv::Vec3b>(r, c) = kMarker;
        }
    }
    return out;
}

bool PatternHeld() {
    PatternState& s = State();
    std::lock_guard<std::recursive_mutex> lock(s.mutex);
    return !s.display.empty();
}

int EdgePattern(const char* path, int x, int y) noexcept {
    return RunGuarded(
        3,
        [&]() -> int {
            TraceVersion();
            VBcvTrace("[VBcvEdgePattern] Start\n");
            const std::wstring file = CallerPath(path);
            const cv::Mat colour = file.empty() ? cv::Mat() : Files().Read(file, cv::IMREAD_COLOR);
            if (colour.empty()) {
                VBcvTrace("[VBcvEdgePattern] Fail : File Error\n");
                return 2;
            }
            PatternImages images = MakePatternImages(colour);
            if (!platform::DisplayReachable()) {
                VBcvTrace("[VBcvEdgePattern] Fail : No display\n");
                return 3;
            }
            PatternState& s = State();
            std::lock_guard<std::recursive_mutex> lock(s.mutex);
            try {
                s.display = images.display;
                s.overlay = images.overlay;
                s.windowMade = true;
                cv::namedWindow(kWindowName, cv::WINDOW_AUTOSIZE);
                cv::moveWindow(kWindowName, x, y);
                cv::imshow(kWindowName, s.display);
                s.view = false;
                cv::setMouseCallback(kWindowName, OnMouse);
                cv::pollKey();
            } catch (const cv::Exception& e) {
                s.display.release();
                s.overlay.release();
                VBcvTrace("[VBcvEdgePattern] Fail : Window Error (%s)\n", e.err.c_str());
                return 3;
            }
            VBcvTrace("[VBcvEdgePattern] End\n");
            return 0;
        },
        [] {
            VBcvTrace("[VBcvEdgePattern] Fail : Unexpected Error\n");
            return 3;
        });
}

int DestroyPatternWindow(const char* name) noexcept {
    try {
        PatternState& s = State();
        std::lock_guard<std::recursive_mutex> lock(s.mutex);
        if (s.windowMade && name) {
            try {
                cv::destroyWindow(name);
                cv::pollKey();
            } catch (const cv::Exception&) {
                // No such window, or the toolkit is gone: nothing to close.
            }
        }
        s.display.release();
        s.overlay.release();
        s.view = false;
    } catch (...) {
    }
    return 1;
}

}  // namespace pixmill::inspect::edge
