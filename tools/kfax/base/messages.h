// What kfax says to people: one line a message on standard error.
//
// The lines of a thread that works on one of many inputs are collected, to come out in the order of the
// inputs.
#pragma once

#include <string>
#include <vector>

namespace kfax {

// kfax: FILE: reason.
void Complain(const std::string& file, const std::string& reason);
// The same for what is good to know and no fault; nothing where kfax is to be quiet.
void Note(const std::string& file, const std::string& text);

// One line of it, whatever a file is called: control characters, and bytes that are not UTF-8, become \x0a
// and the like.
std::string Printable(const std::string& text);

// What an errno means, and what can be done about it.
std::string SystemReason(int error);

// What collects this thread's messages while it lives.
struct CollectMessages {
    explicit CollectMessages(std::vector<std::string>& lines);
    ~CollectMessages();
    CollectMessages(const CollectMessages&) = delete;
    CollectMessages& operator=(const CollectMessages&) = delete;
};

// These before any other thread starts.
void BeQuiet();
// Whether several files are worked on at once: then it helps some failures to work on fewer.
void SetSeveralJobs(bool several);
// Messages call the file by another name: a spooled stream is not known by where it lies.
void ShowAs(const std::string& file, const std::string& shown);
std::string ShownName(const std::string& file);

// Whether this thread may draw a progress bar: standard error is a terminal, and its messages go there.
bool MayDraw();
// The same of the whole run.
bool MayDrawAtAll();

} // namespace kfax
