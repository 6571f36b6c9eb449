// The pattern window: the edges of a rim frame shown to the operator, red
// on black (black see-through where the window system supports it), in
// the window "PatternImage"; a left click toggles to the frame with the
// edges drawn over it. The one window of the library.
#pragma once

#include <opencv2/core.hpp>

namespace pixmill::inspect::edge {

int EdgePattern(const char* path, int x, int y) noexcept;
int DestroyPatternWindow(const char* name) noexcept;

// The two images the window shows, built from a colour frame: the edges in
// red on black with the marker in the bottom-right corner, and the frame
// with its edges in red.
struct PatternImages {
    cv::Mat display, overlay;
};
PatternImages MakePatternImages(const cv::Mat& colour);

// Whether the window's images are held (from a shown pattern until
// VBcvDestroyWindow).
bool PatternHeld();

}  // namespace pixmill::inspect::edge
