// Messages on standard error, and those collected for later.
#include "tools/kfax/base/messages.h"

#include "tools/kfax/base/progress.h"
#include "tools/kfax/base/utf8.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string_view>
#include <unistd.h>

namespace kfax {

namespace {

thread_local std::vector<std::string>* collected = nullptr;

bool quiet = false;
bool severalJobs = false;
std::map<std::string, std::string> shownNames;

// What a terminal obeys instead of showing it: C0, DEL and C1, and the signs that turn the direction of text.
bool IsControl(uint32_t point) {
    return point < 0x20 || (point >= 0x7F && point <= 0x9F) || (point >= 0x200E && point <= 0x200F) ||
           (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

} // namespace

void Complain(const std::string& file, const std::string& reason) {
    const std::string line = Printable("kfax: " + ShownName(file) + ": " + reason) + "\n";
    if (collected) {
        collected->push_back(line);
        return;
    }
    WipeProgress();
    std::fputs(line.c_str(), stderr);
}

std::string Printable(const std::string& text) {
    std::string printable;
    for (std::string_view rest = text; !rest.empty();) {
        uint32_t point = 0;
        const size_t length = Utf8Character(rest, point);
        const std::string_view bytes = rest.substr(0, std::max<size_t>(length, 1));
        rest.remove_prefix(bytes.size());
        if (length != 0 && !IsControl(point)) {
            printable += bytes;
            continue;
        }
        for (const char byte : bytes) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(byte));
            printable += code;
        }
    }
    return printable;
}

void Note(const std::string& file, const std::string& text) {
    if (!quiet)
        Complain(file, text);
}

std::string SystemReason(int error) {
    std::string reason = std::strerror(error);
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return reason + "; check the name and its directory";
    case EACCES:
    case EPERM:
        return reason + "; see who may use it (ls -l)";
    case EISDIR:
        return reason + "; name the files in it, or list them (find DIR -type f | kfax ... -)";
    case ELOOP:
        return reason + "; see where the link leads (ls -l)";
    case ENOSPC:
    case EDQUOT:
        return reason + "; make room and start again (--skip-existing goes on with a directory)";
    case EFBIG:
        return reason + "; raise the limit (ulimit -f)";
    case EMFILE:
    case ENFILE:
        return reason + (severalJobs ? "; work with fewer --jobs, or raise the limit (ulimit -n)"
                                     : "; raise the limit (ulimit -n)");
    case ENOMEM:
        return reason + (severalJobs ? "; work with fewer --jobs"
                                     : "; end other programs, or raise the limit (ulimit -v)");
    case EIO:
        return reason + "; see whether the disk is in order, or fetch the file again";
    case EROFS:
        return reason + "; write to another directory";
    case EPIPE:
        return reason + "; nobody reads it any more";
    default:
        return reason;
    }
}

CollectMessages::CollectMessages(std::vector<std::string>& lines) {
    collected = &lines;
}

CollectMessages::~CollectMessages() {
    collected = nullptr;
}

void BeQuiet() {
    quiet = true;
}

void SetSeveralJobs(bool several) {
    severalJobs = several;
}

void ShowAs(const std::string& file, const std::string& shown) {
    shownNames[file] = shown;
}

std::string ShownName(const std::string& file) {
    const auto known = shownNames.find(file);
    return known == shownNames.end() ? file : known->second;
}

bool MayDraw() {
    return !collected && MayDrawAtAll();
}

bool MayDrawAtAll() {
    return !quiet && isatty(STDERR_FILENO) == 1;
}

} // namespace kfax
