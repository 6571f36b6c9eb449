// The rotated pin search: a rectangular tip of unknown orientation.
//
// Several frames of the same view are turned into edge images and merged by
// keeping each pixel's strongest edge. The merged image is then rotated in
// whole degrees over the search range, and for each angle a tx x ty box
// looks for the place that collects the most edge. Rotating the image for
// one angle and scoring the angle before it run side by side on two worker
// threads, handing each rotated image over through a counter guarded by a
// condition variable. A second pass repeats the search on the edge image
// masked to the strips of the first answer, so that edges beside the tip no
// longer pull the box.
//
// Everything a call uses lives in that call: two hosts' threads may search
// at the same time.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"

namespace pixmill::inspect::pin {

struct RotateArgs {
    std::string path;            // start of the frame file names, "<path><k>.bmp"
    int frameCount = 0;          // frames 0 .. frameCount - 1
    int maxFrames = 0;           // traced, not used
    int sx = 0, sy = 0;          // search area, multiples of 4, at most 480
    int tx = 0, ty = 0;          // tip size, at least 4, not above the area
    double searchAngle = 0;      // degrees, 0 to 180: angles -searchAngle ...
    double angleResolution = 1;  // ... in steps of this
};

// The most angles one search makes; a finer resolution is refused.
constexpr int kMaxRotateAngles = 3601;

// The best box of one angle: its top-left corner in the rotated image, the
// rotated image's size, and the box's edge sum (0 when no box has any edge).
struct AngleScore {
    int degrees = 0;  // the whole-degree rotation applied
    int x = 0, y = 0;
    int width = 0, height = 0;
    float score = 0;
};

// The merged edge image of the frames: for each frame read in gray and cut
// at the area's place, the multi-scale edge image with the frame and its
// weak pixels cleared; the maximum of each pixel over all frames. Empty
// when the path is empty, when there is no frame, or when a frame is
// missing or unreadable, of another size than the first, or too small for
// the area.
cv::Mat RotateEdgeSource(ImageStore& store, const std::string& path, int frameCount, int sx,
                         int sy);

// The whole-degree rotation of angle index i: int(i * resolution - searchAngle).
int RotationDegrees(int index, double searchAngle, double resolution);

// Rotates `source` by `degrees` about its centre onto a canvas that holds
// all of it, filling with 0.
cv::Mat RotateImage(const cv::Mat& source, int degrees);

// Scores every angle of one pass over `source`. With `twoWorkers` the
// rotation and the scoring run on two threads of their own, joined before
// the call returns; without, the same work runs on the calling thread. The
// result does not depend on which.
std::vector<AngleScore> ScoreRotations(const cv::Mat& source, int tx, int ty, double searchAngle,
                                       double resolution, int angleCount, bool twoWorkers);

// Index of the highest score, strictly above 0 and above every earlier one;
// -1 when no angle has a score above 0.
int BestAngle(const std::vector<AngleScore>& scores);

// A point of the rotated image of `a` turned back into `source` coordinates
// (a source of `width` x `height`).
cv::Point2d TurnBack(const AngleScore& a, int width, int height, cv::Point2d p);

// The tip's centre in the rotated image of angle `a` (`rotated`): the
// centroid of the edge around the best box, the box grown by 6 pixels on
// each side, taken twice. The box's own centre when there is no edge.
cv::Point2d RefineCentre(const cv::Mat& rotated, const AngleScore& a, int tx, int ty);

PinFindResult RotatePinFind(const RotateArgs& args, ImageStore& store = Files(),
                            bool twoWorkers = true) noexcept;

}  // namespace pixmill::inspect::pin
