#pragma once
// Every benchmark here runs beside the peer a user would otherwise pick, in the same run. This
// main runs them all, then prints for each declared pair the ratio of our time to the peer's
// (below 1.0: we are faster).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <thread>
#include <string>
#include <utility>
#include <vector>

namespace KvBench {

struct RatioPair {
    std::string ours;
    std::string peer;
};

inline std::vector<RatioPair>& ratioPairs()
{
    static std::vector<RatioPair> pairs;
    return pairs;
}

struct RegisterRatio {
    RegisterRatio(const char* ours, const char* peer) { ratioPairs().push_back({ours, peer}); }
};

class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times[run.benchmark_name()] = timeOf(run);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;

private:
    // Processor time of the calling thread, unless the benchmark asked for the wall clock (work
    // handed to other threads while the caller sleeps).
    static double timeOf(const Run& run)
    {
        const std::string name = run.benchmark_name();
        const std::string wall = "/real_time";
        const bool real = name.size() >= wall.size() && name.compare(name.size() - wall.size(), wall.size(), wall) == 0;
        return real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
    }
};

// Starts and joins one thread, once: from then on the C library and the standard library know
// the process is threaded, and both sides of a comparison pay for atomic counts.
inline void startASecondThread()
{
    static const bool started = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)started;
}

inline int runWithRatios(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%-48s %-48s %8s\n", "ours", "peer", "ratio");
    for (const RatioPair& pair : ratioPairs()) {
        auto a = reporter.times.find(pair.ours);
        auto b = reporter.times.find(pair.peer);
        if (a == reporter.times.end() || b == reporter.times.end() || b->second <= 0) continue;
        std::printf("%-48s %-48s %8.2f\n", pair.ours.c_str(), pair.peer.c_str(), a->second / b->second);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace KvBench

#define KV_BENCH_CAT2(a, b) a##b
#define KV_BENCH_CAT(a, b) KV_BENCH_CAT2(a, b)
// Declares that benchmark `ours` is to be compared with benchmark `peer` (full names, with
// their arguments, as Google Benchmark prints them).
#define KV_BENCH_RATIO(ours, peer) \
    static KvBench::RegisterRatio KV_BENCH_CAT(kvRatio_, __LINE__)(ours, peer)
#define KV_BENCH_MAIN() \
    int main(int argc, char** argv) { return KvBench::runWithRatios(argc, argv); }
