// The commands of kfax, their options and their exit codes.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/batch.h"
#include "tools/kfax/output_names.h"

#include <cstdint>
#include <new>
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

// What went wrong with a file that the command is not named after.
struct FileError : std::runtime_error {
    FileError(std::string file, const std::string& reason)
        : std::runtime_error(reason), File(std::move(file)) {}
    std::string File;
};

// Runs action, whose failures are then those of file unless they name another.
template <typename Action>
auto OnBehalfOf(const std::string& file, Action action) {
    try {
        return action();
    } catch (const FileError&) {
        throw;
    } catch (const UsageError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw FileError(file, "not enough memory; work with fewer --jobs");
    } catch (const std::exception& error) {
        throw FileError(file, error.what());
    }
}

// What an input is, and which part of it is wanted.
struct InputOptions {
    // Of a stream that does not describe itself.
    std::string Format;
    std::optional<int64_t> Width, Height, Offset;
    bool ReverseBits = false;

    bool Mirror = false;
    bool Invert = false;
    bool Batch = false;
    std::optional<int> Threshold; // of pictures
    std::optional<int64_t> Page;  // from 1; nothing: the command decides
    std::string Password;         // of a PDF file
};

// What an output is to be.
struct OutputOptions {
    std::string Kind;          // raw, tif, png or pbm; empty: by the file's extension
    std::string Format = "g4"; // of the fax data
    bool ReverseBits = false;
    bool AlignEol = false;
    bool NoInvert = false;
    std::optional<int> Dpi;
    std::optional<int64_t> RowsPerStrip; // of a TIFF
    std::string Tile;                    // of a TIFF, WxH
};

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
