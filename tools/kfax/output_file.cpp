// An output file that appears under its name whole or not at all: written beside, then renamed.
#include "tools/kfax/output_file.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace kfax {

namespace {

constexpr std::array ENDING_SIGNALS{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// The unfinished file, for the signal handler; empty: none. Changed only while the signals are blocked.
char unfinished[PATH_MAX];

extern "C" void RemoveUnfinished(int signal) {
    if (unfinished[0] != '\0')
        unlink(unfinished);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

struct SignalsBlocked {
    sigset_t Before{};
    SignalsBlocked() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : ENDING_SIGNALS)
            sigaddset(&ending, signal);
        sigprocmask(SIG_BLOCK, &ending, &Before);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &Before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
};

[[noreturn]] void ThrowErrno() {
    throw std::runtime_error(std::strerror(errno));
}

// What the file's permissions are to be: those of the file it replaces, or those of any new file.
mode_t FinalMode(const std::string& target) {
    struct stat about {};
    if (stat(target.c_str(), &about) == 0)
        return about.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// The file that a chain of links ends at, so that a link stays one.
std::string ThroughLinks(const std::string& output) {
    std::error_code error;
    if (!std::filesystem::is_symlink(output, error))
        return output;
    const auto target = std::filesystem::weakly_canonical(output, error);
    return error ? output : target.string();
}

// Removes the file unless it got its final name.
struct Unfinished {
    explicit Unfinished(const std::string& target) {
        const size_t slash = target.rfind('/') + 1; // 0 without one
        const std::string pattern = target.substr(0, slash) + ".kfax-" + std::string(6, 'X');
        if (pattern.size() >= sizeof unfinished) {
            errno = ENAMETOOLONG;
            ThrowErrno();
        }
        const SignalsBlocked blocked;
        std::memcpy(unfinished, pattern.c_str(), pattern.size() + 1);
        Descriptor = mkstemp(unfinished);
        if (Descriptor < 0) {
            unfinished[0] = '\0';
            ThrowErrno();
        }
    }
    ~Unfinished() {
        if (Descriptor >= 0)
            close(Descriptor);
        const SignalsBlocked blocked;
        if (unfinished[0] != '\0')
            unlink(unfinished);
        unfinished[0] = '\0';
    }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    void Finish(const std::string& target) {
        const SignalsBlocked blocked;
        if (chmod(unfinished, FinalMode(target)) != 0 || std::rename(unfinished, target.c_str()) != 0)
            ThrowErrno();
        unfinished[0] = '\0';
    }

    int Descriptor = -1;
};

} // namespace

void WriteWhole(const std::string& output, const std::function<void(std::FILE* file)>& write) {
    const std::string target = ThroughLinks(output);
    Unfinished beside(target);
    std::FILE* const file = fdopen(beside.Descriptor, "wb");
    if (file == nullptr)
        ThrowErrno();
    beside.Descriptor = -1; // the stream's now
    try {
        write(file);
    } catch (...) {
        std::fclose(file);
        throw;
    }
    if (std::fclose(file) != 0)
        ThrowErrno();
    beside.Finish(target);
}

void WriteWholeByName(const std::string& output, const std::function<void(const std::string& name)>& write) {
    const std::string target = ThroughLinks(output);
    Unfinished beside(target);
    write(unfinished);
    beside.Finish(target);
}

void CleanUpOnSignals() {
    for (const int signal : ENDING_SIGNALS)
        if (std::signal(signal, RemoveUnfinished) == SIG_IGN)
            std::signal(signal, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace kfax
