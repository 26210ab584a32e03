// Progress bars on standard error, when that is a terminal: one for a single file, by its lines, or one for
// a run over many, by the files.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace kfax {

struct ProgressBar {
    std::string Label;
    bool Terminal = false; // draw at all
    std::chrono::steady_clock::time_point Start, LastDrawn;
};

ProgressBar StartProgress(const std::string& label);
// Draws when the work takes long enough for a person to notice.
void ShowProgress(ProgressBar& bar, int done, int total);
void EndProgress(ProgressBar& bar); // wipes it

ProgressBar StartRun();
// The same with the rate, and the time left at this rate. skipped of the done files took no work.
void ShowRun(ProgressBar& bar, size_t done, size_t skipped, size_t total);

// Wipes what is drawn, so that a line can be written.
void WipeProgress();

} // namespace kfax
