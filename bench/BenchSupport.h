// Shared pieces of the benchmark programs.
#pragma once

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

namespace pixmill::bench {

// A temporary root for the files the library writes while it is measured,
// removed at exit. Logging stays at its start-up defaults (errors only).
class BenchRoot {
public:
    BenchRoot();
    ~BenchRoot();
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// Mean real time per iteration of a finished benchmark run, in nanoseconds,
// kept by name so that a later benchmark can report a ratio against it.
void RecordBaseline(const std::string& name, double nanosPerIteration);
double Baseline(const std::string& name);  // 0 when not recorded

// Reports `ratio` = this run's time per iteration over the named baseline as
// a counter, when the baseline has been measured earlier in the same run.
void ReportRatio(benchmark::State& state, const std::string& baselineName, double nanosPerIteration);

// Runs the registered benchmarks with the command line's options; returns
// the program's exit code.
int RunRegistered(int argc, char** argv);

}  // namespace pixmill::bench
