#include "ParallelRuns.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <thread>

namespace pixmill::tool {

int JobsFor(int requested, size_t items) {
    const char* debug = std::getenv("PIXMILL_DEBUG_IMAGES");
    if (!debug || std::strcmp(debug, "0") != 0) return 1;
    size_t jobs = requested > 0 ? static_cast<size_t>(requested)
                                : std::max(1u, std::thread::hardware_concurrency());
    jobs = std::min(jobs, std::max<size_t>(items, 1));
    return static_cast<int>(jobs);
}

std::vector<RunOutcome> RunAll(size_t count, int jobs, const std::function<size_t(size_t)>& run,
                               const std::function<void(size_t)>& progress) {
    std::vector<RunOutcome> outcomes(count);
    std::atomic<size_t> next{0};
    std::mutex progressMutex;
    size_t done = 0;
    auto worker = [&] {
        for (size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
            RunOutcome& o = outcomes[i];
            try {
                o.outputs = run(i);
                o.ok = true;
            } catch (const std::exception& e) {
                o.error = e.what();
            } catch (...) {
                o.error = "unknown error";
            }
            std::lock_guard<std::mutex> lock(progressMutex);
            if (progress) progress(++done);
        }
    };
    const int threads = std::max(1, jobs);
    if (threads == 1) {
        worker();
        return outcomes;
    }
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) pool.emplace_back(worker);
    for (std::thread& t : pool) t.join();
    return outcomes;
}

}  // namespace pixmill::tool
