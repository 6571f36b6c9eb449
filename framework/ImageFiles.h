// Reading and writing image files named by prober paths.
//
// Recipes and callers name files the way the prober does ("C:\imgs\a.png",
// "C:/PROBERPARAM/ParaImg/x.png"). These helpers map such a path to the
// native file under the root and keep the image library's exceptions from
// leaving: a failure is logged at level 1 and shows as an empty image or a
// false return.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace pixmill {

// The image at `path`, read with the cv::imread flags given (1: three
// channels, 0: one channel). Empty if the file is missing, unreadable or not
// an image.
cv::Mat ReadImageFile(const std::wstring& path, int flags);

// Writes `image` to `path`, in the format named by the extension, after
// creating the folders above it. Returns false if nothing was written, for
// instance for an empty image or an unknown extension.
bool WriteImageFile(const std::wstring& path, const cv::Mat& image);

}  // namespace pixmill
