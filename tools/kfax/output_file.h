// An output file that appears under its name whole or not at all.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace kfax {

// Calls write with a new file in the output's directory and gives it the output's name when write
// returns and every byte has reached the file. On an exception from write, on a failure and when a
// signal ends the program the new file is removed, and what stood under the name stays. Throws
// std::runtime_error with the reason. One output at a time.
void WriteWhole(const std::string& output, const std::function<void(std::FILE* file)>& write);

// The same for a writer that opens the file by its name.
void WriteWholeByName(const std::string& output, const std::function<void(const std::string& name)>& write);

// Once, before the first output: signals that end the program remove an unfinished file, and a write
// beyond the file size limit fails instead of ending the program.
void CleanUpOnSignals();

} // namespace kfax
