// libtiff's messages: errors are kept for the exception that follows, warnings are told once each.
#include "tools/kfax/base/tiff_file.h"

#include "tools/kfax/base/messages.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace kfax {

namespace {

__attribute__((format(printf, 1, 0))) std::string OneLine(const char* format, va_list arguments) {
    char text[300];
    std::vsnprintf(text, sizeof text, format, arguments);
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    while (!line.empty() && (line.back() == '.' || line.back() == ' '))
        line.pop_back();
    return line;
}

constexpr int kHandled = 1;

__attribute__((format(printf, 4, 0))) int KeepError(TIFF* /*tiff*/, void* userData, const char* /*module*/,
                                                    const char* format, va_list arguments) {
    auto& file = *static_cast<TiffFile*>(userData);
    if (file.Error.empty())
        file.Error = OneLine(format, arguments);
    return kHandled;
}

__attribute__((format(printf, 4, 0))) int TellWarning(TIFF* /*tiff*/, void* userData, const char* /*module*/,
                                                      const char* format, va_list arguments) {
    auto& file = *static_cast<TiffFile*>(userData);
    const std::string line = OneLine(format, arguments);
    if (file.Warnings.insert(line).second)
        Note(file.Shown, "warning: " + line);
    return kHandled;
}

} // namespace

TiffFile::TiffFile(const std::string& name, const char* mode) : Name(name), Shown(name) {
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                   TIFFOpenOptionsFree);
    if (!options)
        throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), KeepError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), TellWarning, this);
    errno = 0;
    Tiff.reset(TIFFOpenExt(name.c_str(), mode, options.get()));
    if (!Tiff)
        throw std::runtime_error(TakeError(*this, "not a TIFF file", kDamagedTiff));
    struct stat about {};
    if (fstat(TIFFFileno(Tiff.get()), &about) == 0)
        Size = static_cast<uint64_t>(about.st_size);
}

size_t ReadAt(const TiffFile& file, uint64_t offset, unsigned char* bytes, size_t count, int& error) {
    error = 0;
    size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(TIFFFileno(file.Tiff.get()), bytes + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            error = errno;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

std::string TakeError(TiffFile& file, const char* otherwise, const char* remedy) {
    std::string error = std::move(file.Error);
    file.Error.clear();
    if (error.empty())
        error = otherwise;
    const std::string name = file.Name + ": "; // which every message names already
    if (error.starts_with(name))
        error.erase(0, name.size());
    if (errno == 0)
        return error + remedy;
    // The library says which call failed, and not always why the system refused it.
    const std::string known = std::string(": ") + std::strerror(errno);
    if (error.ends_with(known))
        error.resize(error.size() - known.size());
    return error + ": " + SystemReason(errno);
}

} // namespace kfax
