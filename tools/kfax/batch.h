// Work on many inputs: several at once, told in the order of the inputs.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kfax {

struct BatchOptions {
    std::vector<std::string> Files; // "-": the names on standard input, a line each
    bool NullList = false;          // and the names on standard input, each ended by a zero byte
    unsigned Jobs = 0;              // 0: one for each processor
    bool KeepGoing = false;         // what happens without FailFast
    bool FailFast = false;
    bool Quiet = false;
    bool Json = false;
};

enum class Outcome { Good, Damaged, Failed, Skipped };

// What became of one input.
struct Report {
    Outcome Result = Outcome::Good;
    std::vector<std::string> Messages; // for standard error
    std::string Text;                  // for standard output
};

// The names of all inputs; reads standard input. Throws UsageError or FileError.
std::vector<std::string> ListInputs(const BatchOptions& options);

// Calls work(index, report) for each index below count, in several threads. What work throws is a complaint
// about names[index] and makes it a failure. Messages and texts come out in order. With FailFast nothing
// after the first failure is told, and no more begun. Returns an exit code; a summary says how many were not
// good, where there are several. done: what became of a good one, e.g. "converted".
int RunBatch(const std::vector<std::string>& names, const BatchOptions& options, const char* done,
             const std::function<void(size_t index, Report& report)>& work);

// Runs action and turns what it throws into a complaint about file and a failure, whose reason it returns.
std::string Attempt(const std::string& file, Report& report, const std::function<void()>& action);

} // namespace kfax
