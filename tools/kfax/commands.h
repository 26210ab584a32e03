// The commands of kfax, their options and their exit codes.
#pragma once

#include "host/standin/standin.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kfax {

enum ExitCode {
    EXIT_GOOD = 0,
    EXIT_ERROR = 1,   // nothing was written
    EXIT_USAGE = 2,   // the command line is wrong
    EXIT_DAMAGED = 3, // the data is damaged; what could be decoded was written
};

// The command line asks for something that cannot be.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct InfoOptions {
    std::vector<std::string> Files;
    bool Json = false;
};

struct LoadCommandOptions {
    std::string Input;
    std::string Output;
    // Of a stream that does not describe itself.
    std::string Format;
    std::optional<int64_t> Width, Height, Offset;
    bool ReverseBits = false;

    bool Mirror = false;
    bool Invert = false;
    bool Batch = false;
};

struct SaveCommandOptions {
    std::string Input;
    std::string Output;
    std::string Format = "g4";
    bool ReverseBits = false;
    bool AlignEol = false;
    bool NoInvert = false;
    std::optional<int> Dpi;
    std::optional<int> Threshold;
};

// Each returns an exit code; reasons go to standard error, one line a file. LoadCommand and
// SaveCommand throw UsageError or std::exception with the reason, having written nothing.
int InfoCommand(const standin::Filter& filter, const InfoOptions& options);
int LoadCommand(const standin::Filter& filter, const LoadCommandOptions& options);
int SaveCommand(const standin::Filter& filter, const SaveCommandOptions& options);

// One line on standard error: kfax: FILE: reason.
void Complain(const std::string& file, const std::string& reason);

} // namespace kfax
