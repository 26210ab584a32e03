// libtiff's messages: errors are kept for the exception that follows, warnings are told once each.
#include "tools/kfax/tiff_file.h"

#include "tools/kfax/messages.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

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
