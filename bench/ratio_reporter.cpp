#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <vector>

namespace bench {
namespace {

constexpr const char* kOurs = "kffax";
constexpr const char* kTheirs = "libtiff";

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
                failed_ = true;
            } else if (run.run_type == Run::RT_Iteration) {
                Add(run.run_name.function_name, run.GetAdjustedCPUTime());
            }
        }
    }

    void Finalize() override {
        std::printf("%-44s %12s %12s %8s\n", "", "kffax ms", "libtiff ms", "ratio");
        double logs = 0;
        for (const std::string& name : order_) {
            const double ours = fastest_[name + "/" + kOurs];
            const double theirs = fastest_[name + "/" + kTheirs];
            std::printf("%-44s %12.3f %12.3f %8.2f\n", name.c_str(), ours, theirs, theirs / ours);
            logs += std::log(theirs / ours);
        }
        if (!order_.empty())
            std::printf("%-44s %12s %12s %8.2f\n", "geometric mean", "", "",
                        std::exp(logs / static_cast<double>(order_.size())));
    }

    bool Failed() const { return failed_; }

private:
    void Add(const std::string& benchmark, double time) {
        const auto [entry, added] = fastest_.try_emplace(benchmark, std::numeric_limits<double>::max());
        entry->second = std::min(entry->second, time);
        const std::string name = benchmark.substr(0, benchmark.rfind('/'));
        if (added && std::find(order_.begin(), order_.end(), name) == order_.end())
            order_.push_back(name);
    }

    std::map<std::string, double> fastest_; // milliseconds an iteration
    std::vector<std::string> order_;
    bool failed_ = false;
};

void Register(const std::string& name, std::function<void()> step) {
    benchmark::RegisterBenchmark(name.c_str(), [step = std::move(step)](benchmark::State& state) {
        try {
            for (auto _ : state)
                step();
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    })->Unit(benchmark::kMillisecond);
}

} // namespace

void RegisterPair(const std::string& name, std::function<void()> ours, std::function<void()> theirs) {
    Register(name + "/" + kOurs, std::move(ours));
    Register(name + "/" + kTheirs, std::move(theirs));
}

int RunPairs(int argc, char** argv, const std::function<void()>& registerPairs) {
    try {
        registerPairs();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
    std::vector<char*> arguments(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=5";
    char minTime[] = "--benchmark_min_time=0.05";
    // Behind the program's name, so that the command line has the last word.
    arguments.insert(arguments.begin() + 1, {interleave, repetitions, minTime});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.Failed() ? 1 : 0;
}

} // namespace bench
