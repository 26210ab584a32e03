// Runs benchmarks in pairs, ours beside the peer's, and prints the ratio of each pair.
#pragma once

#include <functional>
#include <string>

namespace bench {

// Registers "name/kffax" and "name/libtiff". A step throws to fail the run.
void RegisterPair(const std::string& name, std::function<void()> ours, std::function<void()> theirs);

// Registers the pairs, runs them interleaved, and prints a line for each: the fastest of both and how many
// times as fast as the peer we are; the geometric mean last. Returns the process's exit code.
int RunPairs(int argc, char** argv, const std::function<void()>& registerPairs);

} // namespace bench
