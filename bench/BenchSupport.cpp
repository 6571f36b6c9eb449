#include "BenchSupport.h"

#include <map>
#include <random>

#include "platform/Platform.h"

namespace pixmill::bench {

namespace {
std::map<std::string, double>& Baselines() {
    static std::map<std::string, double> baselines;
    return baselines;
}
}  // namespace

BenchRoot::BenchRoot() {
    std::random_device rd;
    m_path = std::filesystem::temp_directory_path() / ("pixmill-bench-" + std::to_string(rd()));
    std::filesystem::create_directories(m_path);
    platform::SetRoot(m_path.string());
}

BenchRoot::~BenchRoot() {
    platform::SetRoot("");
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

void RecordBaseline(const std::string& name, double nanosPerIteration) {
    Baselines()[name] = nanosPerIteration;
}

double Baseline(const std::string& name) {
    auto it = Baselines().find(name);
    return it == Baselines().end() ? 0.0 : it->second;
}

void ReportRatio(benchmark::State& state, const std::string& baselineName, double nanosPerIteration) {
    double base = Baseline(baselineName);
    if (base > 0) state.counters["ratio"] = nanosPerIteration / base;
}

int RunRegistered(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace pixmill::bench
