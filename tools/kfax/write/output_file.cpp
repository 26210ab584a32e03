// An output file that appears under its name whole or not at all: written beside, then renamed.
#include "tools/kfax/write/output_file.h"
#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/file_handle.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/progress.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kfax {

namespace {

constexpr std::array kEndingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// The files that are not to outlive the program. A file is made, renamed and removed under the lock only, so
// that whoever holds it and ends the program leaves none behind.
std::mutex filesLock;
std::set<std::string> unfinished;

[[noreturn]] void ThrowErrno() {
    throw std::runtime_error(SystemReason(errno));
}

// What the file's permissions are to be: those of the file it replaces, or those of any new file.
mode_t FinalMode(const std::string& target) {
    struct stat about {};
    if (stat(target.c_str(), &about) == 0)
        return about.st_mode & 0777; // and no set-user-ID bits
    static const mode_t mask = [] {  // asking for it changes it
        const mode_t found = umask(0);
        umask(found);
        return found;
    }();
    return 0666 & ~mask;
}

// The file that a chain of links ends at, so that a link stays one. A loop of links has no end.
std::string ThroughLinks(const std::string& output) {
    std::error_code error;
    if (!std::filesystem::is_symlink(output, error))
        return output;
    const auto target = std::filesystem::weakly_canonical(output, error);
    if (error)
        throw std::runtime_error(SystemReason(error.value()));
    return target.string();
}

// What exists and is no regular file cannot be replaced by one: a device, a pipe, an open file of a process.
bool IsWrittenInPlace(const std::string& output) {
    struct stat about {};
    if (stat(output.c_str(), &about) != 0 || S_ISDIR(about.st_mode))
        return false;
    return !S_ISREG(about.st_mode) || output.starts_with("/dev/") || output.starts_with("/proc/");
}

// Copies a whole file to one that is written in place, behind what it has where it is a regular one.
void CopyInPlace(const std::string& from, const std::string& output) {
    const FileHandle whole(std::fopen(from.c_str(), "rbe"));
    const FileHandle target(whole ? std::fopen(output.c_str(), "abe") : nullptr);
    if (!target)
        ThrowErrno();
    std::array<char, 1 << 16> block{};
    for (size_t got = 0; (got = std::fread(block.data(), 1, block.size(), whole.get())) != 0;)
        if (std::fwrite(block.data(), 1, got, target.get()) != got)
            ThrowErrno();
    if (std::ferror(whole.get()) != 0 || std::fflush(target.get()) != 0)
        ThrowErrno();
}

using FileIdentity = std::pair<dev_t, ino_t>;
std::set<FileIdentity> inputs; // complete before the first output is written

void RefuseInput(const std::string& output) {
    struct stat about {};
    if (stat(output.c_str(), &about) == 0 && S_ISREG(about.st_mode) &&
        inputs.contains({about.st_dev, about.st_ino}))
        throw std::runtime_error("is one of the inputs; give the output another name or directory");
}

// A new file with a name of its own that begins as given.
int MakeUnfinished(const std::string& beginning, std::string& name) {
    name = beginning + std::string(6, 'X');
    if (name.size() >= PATH_MAX) {
        errno = ENAMETOOLONG;
        ThrowErrno();
    }
    const std::lock_guard lock(filesLock);
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0)
        ThrowErrno();
    unfinished.insert(name);
    return descriptor;
}

void RemoveUnfinished(const std::string& name) {
    const std::lock_guard lock(filesLock);
    if (unfinished.erase(name) != 0)
        unlink(name.c_str());
}

// A name that opens the file and never makes it anew: when a signal has come and the file is removed, it
// stays so.
std::string NameOfOpen(int descriptor, const std::string& name) {
    const std::string open = "/proc/self/fd/" + std::to_string(descriptor);
    return access(open.c_str(), W_OK) == 0 ? open : name; // where /proc is not mounted
}

// Removes the file unless it got its final name.
struct Unfinished {
    explicit Unfinished(const std::string& target) {
        const size_t slash = target.rfind('/') + 1; // 0 without one
        Descriptor = MakeUnfinished(target.substr(0, slash) + ".kfax-", Name);
    }
    ~Unfinished() {
        if (Descriptor >= 0)
            close(Descriptor);
        RemoveUnfinished(Name);
    }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    void Finish(const std::string& target) const {
        const std::lock_guard lock(filesLock);
        if (chmod(Name.c_str(), FinalMode(target)) != 0 || std::rename(Name.c_str(), target.c_str()) != 0)
            ThrowErrno();
        unfinished.erase(Name);
    }

    std::string OpenName() const { return NameOfOpen(Descriptor, Name); }

    std::string Name;
    int Descriptor = -1;
};

// Waits for a signal that ends the program, and lets it.
[[noreturn]] void EndOnSignal(sigset_t ending) {
    int signal = 0;
    while (sigwait(&ending, &signal) != 0) {
    }
    filesLock.lock(); // and nobody makes a file any more
    for (const std::string& name : unfinished)
        unlink(name.c_str());
    WipeProgress();
    std::signal(signal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
    std::raise(signal);
    std::_Exit(128 + signal);
}

} // namespace

void KeepInputs(const std::vector<std::string>& names) {
    struct stat about {};
    for (const std::string& name : names)
        if (stat(name.c_str(), &about) == 0)
            inputs.insert({about.st_dev, about.st_ino});
}

void WriteWhole(const std::string& output, const std::function<void(std::FILE* file)>& write) {
    RefuseInput(output);
    if (IsWrittenInPlace(output)) {
        const ScratchFile scratch;
        write(scratch.File.get());
        if (std::fflush(scratch.File.get()) != 0)
            ThrowErrno();
        return CopyInPlace(scratch.Name, output);
    }
    const std::string target = ThroughLinks(output);
    Unfinished beside(target);
    std::FILE* const file = fdopen(beside.Descriptor, "wb");
    if (!file)
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
    RefuseInput(output);
    if (IsWrittenInPlace(output)) {
        const ScratchFile scratch;
        write(scratch.OpenName());
        return CopyInPlace(scratch.Name, output);
    }
    const std::string target = ThroughLinks(output);
    Unfinished beside(target);
    write(beside.OpenName());
    beside.Finish(target);
}

ScratchFile::ScratchFile() {
    const char* const directory = std::getenv("TMPDIR");
    const std::string place = directory && *directory != '\0' ? directory : "/tmp";
    OnBehalfOf(place, [&] {
        const int descriptor = MakeUnfinished(place + "/kfax-", Name);
        File.reset(fdopen(descriptor, "w+b"));
        if (File)
            return;
        const int error = errno;
        close(descriptor);
        RemoveUnfinished(Name);
        throw std::runtime_error(SystemReason(error));
    });
}

std::string ScratchFile::OpenName() const {
    return NameOfOpen(fileno(File.get()), Name);
}

ScratchFile::~ScratchFile() {
    RemoveUnfinished(Name);
}

void CleanUpOnSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : kEndingSignals)
        if (std::signal(signal, SIG_DFL) == SIG_IGN)
            std::signal(signal, SIG_IGN); // as nohup wants it
        else
            sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::thread(EndOnSignal, ending).detach();
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace kfax
