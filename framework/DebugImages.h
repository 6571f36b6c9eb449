// The switch for the debug and probe images that filters and inspections
// write to fixed paths for a person to look at (the crop, the pin search's
// stages, failure images...). On by default. A host turns it off through
// PixmillSetDebugImages, or without changing the host by starting it with
// the environment variable PIXMILL_DEBUG_IMAGES=0; a host's call wins over
// the variable. Images that a call is asked to produce (an output path, a
// mask file) are not debug images and are always written.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace pixmill {

// True while debug images are written. The first query without a host
// setting reads PIXMILL_DEBUG_IMAGES once: "0" turns them off, anything
// else (or no variable) leaves them on.
bool DebugImagesEnabled();

// The host's setting; it holds from then on, whatever the environment says.
void SetDebugImages(bool enabled);

// Writes a fixed-path debug image as WriteImageFile does, or nothing while
// debug images are off. Returns true when the file was written.
bool WriteDebugImageFile(const std::wstring& path, const cv::Mat& image);

// Forgets the host's setting and the variable read, so the next query reads
// the environment again (tests only).
void ResetDebugImagesForTesting();

}  // namespace pixmill
