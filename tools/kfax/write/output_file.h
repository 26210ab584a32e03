// An output file that appears under its name whole or not at all.
#pragma once

#include "tools/kfax/base/file_handle.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace kfax {

// Tells the files that are read: no output is written over one of them. Once, before the first output.
void KeepInputs(const std::vector<std::string>& names);

// Calls write with a new file in the output's directory and gives it the output's name when write
// returns and every byte has reached the file. On an exception from write, on a failure and when a
// signal ends the program the new file is removed, and what stood under the name stays. Throws
// std::runtime_error with the reason. Any number of threads may write outputs. An output that exists and is
// no regular file (a device, a pipe) is written in place, when all of it is there.
void WriteWhole(const std::string& output, const std::function<void(std::FILE* file)>& write);

// The same for a writer that opens the file by its name.
void WriteWholeByName(const std::string& output, const std::function<void(const std::string& name)>& write);

// An empty file among the system's temporary ones that goes when it does, or when a signal ends the program.
struct ScratchFile {
    ScratchFile(); // throws FileError, which names the directory
    ~ScratchFile();
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    // For a writer that opens a file by name.
    std::string OpenName() const;

    std::string Name;
    FileHandle File; // open for both reading and writing
};

// Once, before the first output and the first thread: signals that end the program remove unfinished files,
// and a write beyond the file size limit or to a closed pipe fails instead of ending the program.
void CleanUpOnSignals();

} // namespace kfax
