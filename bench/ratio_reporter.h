// Runs benchmarks in pairs, ours beside the peer's, and prints the ratio of each pair.
#pragma once

#include <functional>
#include <string>

namespace bench {

inline constexpr const char* kLibtiff = "libtiff";

// Registers "name/kffax" and "name/PEER". A step throws to fail the run.
void RegisterPair(const std::string& name, std::function<void()> ours, std::function<void()> theirs,
                  const std::string& peer = kLibtiff);

// Registers the pairs, runs them interleaved, and prints a line for each: the fastest of both and how many
// times as fast as the peer we are; behind the pairs with libtiff their geometric mean. With --json on the
// command line each line is an object. Returns the process's exit code.
int RunPairs(int argc, char** argv, const std::function<void()>& registerPairs);

// Runs what is registered and prints it as Google Benchmark does; with --json a line for each, an object of
// its name, its time and its counters.
int RunAlone(int argc, char** argv, const std::function<void()>& registerAll);

} // namespace bench
