#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace bench {
namespace {

constexpr const char* kOurs = "kffax";

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(bool json) : json_(json) {}

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
        if (!json_)
            std::printf("%-44s %12s %12s %8s  %s\n", "", "kffax ms", "peer ms", "ratio", "peer");
        double logs = 0;
        unsigned besideLibtiff = 0;
        for (const auto& [name, peer] : pairs_) {
            const double ours = fastest_[Joined(name, kOurs)];
            const double theirs = fastest_[Joined(name, peer)];
            Print(name, ours, theirs, theirs / ours, peer);
            if (peer == kLibtiff) {
                logs += std::log(theirs / ours);
                ++besideLibtiff;
            }
        }
        if (besideLibtiff != 0 && !json_)
            std::printf("%-44s %12s %12s %8.2f  %s\n", "geometric mean", "", "",
                        std::exp(logs / besideLibtiff), kLibtiff);
    }

    bool Failed() const { return failed_; }

private:
    static std::string Joined(std::string name, const std::string& side) {
        name += '/';
        return name += side;
    }

    void Add(const std::string& benchmark, double time) {
        const auto [entry, added] = fastest_.try_emplace(benchmark, std::numeric_limits<double>::max());
        entry->second = std::min(entry->second, time);
        const size_t slash = benchmark.rfind('/');
        if (added && benchmark.substr(slash + 1) != kOurs)
            pairs_.emplace_back(benchmark.substr(0, slash), benchmark.substr(slash + 1));
    }

    void Print(const std::string& name, double ours, double theirs, double ratio,
               const std::string& peer) const {
        if (json_)
            std::printf(
                "%s\n",
                nlohmann::json{
                    {"name", name}, {"kffax_ms", ours}, {"peer_ms", theirs}, {"ratio", ratio}, {"peer", peer}}
                    .dump()
                    .c_str());
        else
            std::printf("%-44s %12.3f %12.3f %8.2f  %s\n", name.c_str(), ours, theirs, ratio, peer.c_str());
    }

    const bool json_;
    std::map<std::string, double> fastest_;                  // milliseconds an iteration
    std::vector<std::pair<std::string, std::string>> pairs_; // name and peer
    bool failed_ = false;
};

class JsonReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            nlohmann::json line{{"name", run.run_name.function_name}, {"ms", run.GetAdjustedRealTime()}};
            for (const auto& [name, counter] : run.counters)
                line[name] = counter.value;
            std::printf("%s\n", line.dump().c_str());
        }
    }
};

// Takes --json off the command line, which the library would not know.
bool TakeJsonFlag(std::vector<char*>& arguments) {
    return std::erase_if(arguments, [](const char* text) { return std::strcmp(text, "--json") == 0; }) != 0;
}

bool RegisterAll(const char* program, const std::function<void()>& registerAll) {
    try {
        registerAll();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", program, error.what());
        return false;
    }
    return true;
}

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

void RegisterPair(const std::string& name, std::function<void()> ours, std::function<void()> theirs,
                  const std::string& peer) {
    Register(name + "/" + kOurs, std::move(ours));
    Register(name + "/" + peer, std::move(theirs));
}

int RunPairs(int argc, char** argv, const std::function<void()>& registerPairs) {
    if (!RegisterAll(argv[0], registerPairs))
        return 1;
    std::vector<char*> arguments(argv, argv + argc);
    const bool json = TakeJsonFlag(arguments);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=5";
    char minTime[] = "--benchmark_min_time=0.05";
    // Behind the program's name, so that the command line has the last word.
    arguments.insert(arguments.begin() + 1, {interleave, repetitions, minTime});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter(json);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.Failed() ? 1 : 0;
}

int RunAlone(int argc, char** argv, const std::function<void()>& registerAll) {
    std::vector<char*> arguments(argv, argv + argc);
    const bool json = TakeJsonFlag(arguments);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    if (!RegisterAll(argv[0], registerAll))
        return 1;
    JsonReporter jsonReporter;
    if (json)
        benchmark::RunSpecifiedBenchmarks(&jsonReporter);
    else
        benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace bench
