// What can go wrong in a command, and its exit codes.
#pragma once

#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace kfax {

enum ExitCode {
    EXIT_GOOD = 0,
    EXIT_ERROR = 1,   // of one input at least; the others were worked on
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

// Work takes more memory than there is, or than kfax is to use. It may succeed when nothing else is at work.
struct MemoryShortage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The same, of a file.
struct FileMemoryShortage : FileError {
    using FileError::FileError;
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
        throw FileMemoryShortage(file, "not enough memory");
    } catch (const MemoryShortage& error) {
        throw FileMemoryShortage(file, error.what());
    } catch (const std::exception& error) {
        throw FileError(file, error.what());
    }
}

} // namespace kfax
