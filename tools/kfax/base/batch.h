// Work on many inputs: several at once, reported in the order of the inputs.
#pragma once

#include <cstddef>
#include <cstdint>
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
    uint64_t MemoryMegabytes = 0; // for everything at once; 0: part of what there is
    bool Quiet = false;
    bool Json = false;
};

enum class Outcome { Good, Damaged, Failed, Skipped };

// What became of one input.
struct Report {
    bool Alone = false; // nothing else is worked on meanwhile: memory will not be less short later
    Outcome Result = Outcome::Good;
    bool NoMemoryToTell = false;       // not even for a message
    std::vector<std::string> Messages; // for standard error
    std::string Text;                  // for standard output
};

// The names of all inputs; reads standard input. Throws UsageError or FileError.
std::vector<std::string> ListInputs(const BatchOptions& options);

// Calls work(index, report) for each index below count, in several threads. What work throws is a complaint
// about names[index] and makes it a failure. Where memory is short, work is called once more, with an empty
// report, when no other call is under way. Messages and texts come out in the order of the names. With
// FailFast nothing behind the first failure is printed, and no more begun. Returns an exit code; a summary
// says how many were not good, where there are several. done: what became of a good one, e.g. "converted".
int RunBatch(const std::vector<std::string>& names, const BatchOptions& options, const char* done,
             const std::function<void(size_t index, Report& report)>& work);

// Runs action and turns what it throws into a complaint about file and a failure, whose reason it returns.
// Lets FileMemoryShortage through unless the work is done alone.
std::string Attempt(const std::string& file, Report& report, const std::function<void()>& action);

} // namespace kfax
