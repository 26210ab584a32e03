// The commands of kfax and their options.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/batch.h"
#include "tools/kfax/read/input_options.h"
#include "tools/kfax/write/output_names.h"
#include "tools/kfax/write/output_options.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kfax {

struct InfoOptions {
    BatchOptions Run;
    std::optional<int64_t> Page;
    std::string Password; // of PDF files
};

struct VerifyOptions {
    BatchOptions Run;
    InputOptions In;
};

// Each input becomes an output of its own in a directory.
struct BatchOutputs {
    OutputNaming Naming;
    bool SkipExisting = false;
};

struct LoadCommandOptions {
    BatchOptions Run; // without a directory for the outputs, the last file is the output
    BatchOutputs Outputs;
    InputOptions In;
    OutputOptions Out;
    bool AllPages = false;
    std::optional<int> Thumbnail;

    bool IsBatch() const { return !Outputs.Naming.Directory.empty(); }
};

struct SaveCommandOptions {
    BatchOptions Run; // as above
    BatchOutputs Outputs;
    InputOptions In;
    OutputOptions Out;

    bool IsBatch() const { return !Outputs.Naming.Directory.empty(); }
};

// Each returns an exit code; reasons go to standard error, one line each. What LoadCommand and SaveCommand
// throw, UsageError or std::exception, says that nothing was written.
int InfoCommand(const standin::Filter& filter, const InfoOptions& options);
int VerifyCommand(const standin::Filter& filter, const VerifyOptions& options);
int LoadCommand(const standin::Filter& filter, const LoadCommandOptions& options);
int SaveCommand(const standin::Filter& filter, const SaveCommandOptions& options);

// Takes the last of the files, the output, from the others. Throws UsageError where there are fewer than two.
std::string TakeOutput(BatchOptions& run);

} // namespace kfax
