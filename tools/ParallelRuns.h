// Running the images of `pixmill run --each` on several threads.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>
#include <string>

namespace pixmill::tool {

// What one run gave: the number of images written, or the error text.
struct RunOutcome {
    bool ok = false;
    size_t outputs = 0;
    std::string error;
};

// How many runs go at once: `requested` when above 0, else the number of
// cores; never more than `items`, at least 1. While the library writes its
// debug images (PIXMILL_DEBUG_IMAGES is not "0") every call writes the same
// fixed files, so runs go one at a time.
int JobsFor(int requested, size_t items);

// Calls `run(i)` for every i below `count` on `jobs` threads and returns the
// outcomes in index order, so that what is printed from them does not
// depend on the number of jobs. `progress(done)` is called (serialised)
// after each run. An exception from `run` becomes that run's error.
std::vector<RunOutcome> RunAll(size_t count, int jobs, const std::function<size_t(size_t)>& run,
                               const std::function<void(size_t)>& progress);

}  // namespace pixmill::tool
