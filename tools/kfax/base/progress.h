// Progress bars on standard error, when that is a terminal: one for a single file, by its lines, or one for
// a run over many, by the files.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace kfax {

struct ProgressBar {
    std::string Label;
    bool Terminal = false; // draw at all
    std::chrono::steady_clock::time_point Start, LastDrawn;
};

// A bar for the lines of one file, wiped at the end of its life.
struct FileProgress {
    explicit FileProgress(const std::string& label);
    ~FileProgress();
    FileProgress(const FileProgress&) = delete;
    FileProgress& operator=(const FileProgress&) = delete;

    // What a load or save calls with the lines done and in all: it draws when the work takes long enough for
    // a person to notice, and never stops it. Empty where nothing is drawn. The bar must outlive it.
    std::function<bool(int done, int total)> Callback();

    ProgressBar Bar;
};

ProgressBar StartRun();
// The same with the rate, and the time left at this rate. skipped of the done files took no work.
void ShowRun(ProgressBar& bar, size_t done, size_t skipped, size_t total);

// Wipes what is drawn, so that a line can be written.
void WipeProgress();

} // namespace kfax
