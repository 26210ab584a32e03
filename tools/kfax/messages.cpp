// Messages on standard error, and those collected for later.
#include "tools/kfax/messages.h"

#include "tools/kfax/progress.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <unistd.h>

namespace kfax {

namespace {

thread_local std::vector<std::string>* collected = nullptr;

bool quiet = false;
std::map<std::string, std::string> shownNames;

} // namespace

void Complain(const std::string& file, const std::string& reason) {
    const std::string line = "kfax: " + ShownName(file) + ": " + reason + "\n";
    if (collected != nullptr) {
        collected->push_back(line);
        return;
    }
    WipeProgress();
    std::fputs(line.c_str(), stderr);
}

void Note(const std::string& file, const std::string& text) {
    if (!quiet)
        Complain(file, text);
}

std::string SystemReason(int error) {
    std::string reason = std::strerror(error);
    switch (error) {
    case ENOENT:
        return reason + "; check the name and its directory";
    case EACCES:
    case EPERM:
        return reason + "; see who may use it (ls -l)";
    case EISDIR:
        return reason + "; name the files in it, or list them (find DIR -type f | kfax ... -)";
    case ENOSPC:
    case EDQUOT:
        return reason + "; make room, then go on (--skip-existing)";
    case EFBIG:
        return reason + "; raise the limit (ulimit -f)";
    case EMFILE:
    case ENFILE:
        return reason + "; work with fewer --jobs, or raise the limit (ulimit -n)";
    case ENOMEM:
        return reason + "; work with fewer --jobs";
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

void ShowAs(const std::string& file, const std::string& shown) {
    shownNames[file] = shown;
}

std::string ShownName(const std::string& file) {
    const auto known = shownNames.find(file);
    return known == shownNames.end() ? file : known->second;
}

bool MayDraw() {
    return collected == nullptr && MayDrawAtAll();
}

bool MayDrawAtAll() {
    return !quiet && isatty(STDERR_FILENO) == 1;
}

} // namespace kfax
