// The pixel iterator on a 1920x1080 frame: 10-bit packed RGB to 8-bit ARGB (KV10_to_KV8) on the
// worker threads against the same line function run line by line on the calling thread, and
// the fixed cost of one iterate call on a region of two lines.
//
// The number of workers is fixed for the life of a process: the iterator is made once, from the
// processor count that OS()->systemInfo() reports. So each process measures one count. With
// KV_BENCH_PIXEL_WORKERS=n the program installs a system-info service that reports n
// processors before the iterator is first made; without it, the program runs itself once for
// each of 1, 2 and 4 workers, passing its arguments on. Times are wall-clock times: the caller
// of iterate sleeps while the workers run, so its own processor time says nothing.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/support/BenchRatio.h"
#include "ole/image/ImageConvert.h"
#include "ole/image/MTPixelIterator.h"
#include "ole/platform/os/OS.h"

extern char** environ;

using namespace Kv::Image;

namespace {

constexpr const char* kWorkersSwitch = "KV_BENCH_PIXEL_WORKERS";
constexpr unsigned int kWidth = 1920;
constexpr unsigned int kHeight = 1080;
constexpr std::int64_t kFrameBytes = std::int64_t(kWidth) * kHeight * 4;

struct FixedProcessors final : iSystemInfo {
    unsigned int processorCount() override { return count; }
    unsigned int count = 0;
};

Surface tenBitFrame()
{
    Surface s(kWidth, kHeight, RGB, true, 0, 0, kWidth * 4);
    s.setBitsPerPixel(32);
    std::mt19937 random(10);
    for (unsigned int i = 0; i < kWidth * kHeight; ++i) {
        const std::uint32_t w = random() & 0x3FFFFFFFu;
        std::memcpy(s.getDataPtr() + 4 * i, &w, 4);
    }
    return s;
}

void BM_KV10_to_KV8(benchmark::State& state)
{
    const Surface src = tenBitFrame();
    Surface dst;
    ImageConverter::KV10_to_KV8(src, dst);  // the frame's memory and the workers, made once
    for (auto _ : state) {
        ImageConverter::KV10_to_KV8(src, dst);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
    state.counters["workers"] = double(MTPixelIterator::instance()->workerCount());
}

// What a caller would write without the iterator: the same line function, every line in turn.
void BM_KV10_to_KV8_PlainLoop(benchmark::State& state)
{
    const Surface src = tenBitFrame();
    Surface dst;
    dst.init(kWidth, kHeight, ARGB, true, 0, 0, 0);
    for (auto _ : state) {
        dst.init(kWidth, kHeight, ARGB, true, 0, 0, 0);
        unsigned char* in = src.getDataPtr();
        unsigned char* out = dst.getDataPtr();
        for (unsigned int y = 0; y < kHeight; ++y, in += src.getStride(), out += dst.getStride())
            KV10_to_KV8_lp(0, 0, int(y), int(kWidth), in, out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}

int nothing(int, int, int, int, unsigned char*, unsigned char*)
{
    return 0;
}

// One iterate call on two lines: the event, a command a worker, the wake-ups and the wait.
void BM_IterateTwoLines(benchmark::State& state)
{
    Surface lines(kWidth, 2, ARGB, true, 0, 0, 0);
    MTPixelIterator::iterate(0, nothing, lines, nullptr);
    for (auto _ : state) benchmark::DoNotOptimize(MTPixelIterator::iterate(0, nothing, lines, nullptr));
}

void BM_DirectTwoLines(benchmark::State& state)
{
    Surface lines(kWidth, 2, ARGB, true, 0, 0, 0);
    auto* volatile line = &nothing;
    for (auto _ : state)
        for (int y = 0; y < 2; ++y) benchmark::DoNotOptimize(line(0, 0, y, int(kWidth), lines.getDataPtr(), lines.getDataPtr()));
}

// Like KvBench's reporter, but on wall-clock time, in seconds whatever the unit shown, and on
// the fastest of the repetitions: on a machine that other work shares, the fastest run is the
// one least disturbed.
class RealTimeReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "min" && !run.error_occurred)
                times[run.run_name.str()] = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

double fastest(const std::vector<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}

void measuredAsWallClock(benchmark::internal::Benchmark* b)
{
    b->UseRealTime()->Repetitions(5)->DisplayAggregatesOnly(true)->ComputeStatistics("min", fastest);
}

int measure(int argc, char** argv, unsigned int workers)
{
    static FixedProcessors processors;
    processors.count = workers;
    OS()->setSystemInfo(&processors);

    const std::string suffix = "/workers:" + std::to_string(workers);
    const std::string threaded = "BM_KV10_to_KV8" + suffix;
    const std::string plain = "BM_KV10_to_KV8_PlainLoop" + suffix;
    const std::string iterate = "BM_IterateTwoLines" + suffix;
    const std::string direct = "BM_DirectTwoLines" + suffix;
    benchmark::RegisterBenchmark(threaded.c_str(), BM_KV10_to_KV8)->Apply(measuredAsWallClock)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(plain.c_str(), BM_KV10_to_KV8_PlainLoop)->Apply(measuredAsWallClock)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(iterate.c_str(), BM_IterateTwoLines)->Apply(measuredAsWallClock)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(direct.c_str(), BM_DirectTwoLines)->Apply(measuredAsWallClock);
    const std::string measured = "/repeats:5/real_time";
    KvBench::ratioPairs().push_back({threaded + measured, plain + measured});
    KvBench::ratioPairs().push_back({iterate + measured, direct + measured});

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RealTimeReporter reporter(isatty(1) ? benchmark::ConsoleReporter::OO_ColorTabular : benchmark::ConsoleReporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nfastest of the repetitions, wall-clock\n%-48s %-48s %8s %8s\n", "ours", "peer", "ratio", "speed-up");
    for (const KvBench::RatioPair& pair : KvBench::ratioPairs()) {
        auto a = reporter.times.find(pair.ours);
        auto b = reporter.times.find(pair.peer);
        if (a == reporter.times.end() || b == reporter.times.end() || a->second <= 0) continue;
        std::printf("%-48s %-48s %8.2f %8.2f\n", pair.ours.c_str(), pair.peer.c_str(), a->second / b->second,
                    b->second / a->second);
    }
    benchmark::Shutdown();
    return 0;
}

// Runs this program again for each worker count, with the same arguments.
int measureEachWorkerCount(char** argv)
{
    int worst = 0;
    for (unsigned int workers : {1u, 2u, 4u}) {
        std::vector<std::string> env;
        for (char** e = environ; *e; ++e) env.emplace_back(*e);
        env.push_back(std::string(kWorkersSwitch) + "=" + std::to_string(workers));
        std::vector<char*> envp;
        for (std::string& e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        std::printf("-- %u worker%s\n", workers, workers == 1 ? "" : "s");
        std::fflush(stdout);
        pid_t pid;
        int status = 0;
        if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, envp.data()) != 0 ||
            waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            worst = 1;
        std::printf("\n");
    }
    return worst;
}

}  // namespace

int main(int argc, char** argv)
{
    const char* workers = std::getenv(kWorkersSwitch);
    if (!workers) return measureEachWorkerCount(argv);
    return measure(argc, argv, unsigned(std::atoi(workers)));
}
