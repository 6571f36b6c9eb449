// A bound on the images that a filter sizes from its parameters or from a
// combination of its inputs.
//
// Parameter ranges are descriptive and nothing enforces them, so a recipe
// may ask for a crop of 100000 by 100000 pixels or a kernel of a billion;
// likewise a canvas for a very wide image beside a very tall one is far
// larger than either. Such a request would not fail inside the image
// library: the allocation succeeds on paper and the process is killed once
// the pixels are touched. Filters therefore refuse it up front with an
// exception, which ends the filter's work like any other failure.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace pixmill::filters {

// Largest image, in bytes, that a filter makes on a recipe's request.
inline constexpr int64_t kMaxImageBytes = int64_t{1} << 30;

// Throws std::length_error naming `what` when an image of `width` by
// `height` elements of `elementBytes` each would exceed the bound. Negative
// sizes are left to the image library, which refuses them.
inline void CheckImageSize(int64_t width, int64_t height, int64_t elementBytes, const char* what) {
    if (width <= 0 || height <= 0 || elementBytes <= 0) return;
    // Divisions instead of a product, which could overflow.
    if (width > kMaxImageBytes / elementBytes / height)
        throw std::length_error(std::string(what) + " exceeds the size a recipe may ask for");
}

}  // namespace pixmill::filters
