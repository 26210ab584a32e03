// A progress bar on standard error, when that is a terminal.
#pragma once

#include <chrono>
#include <string>

namespace kfax {

struct ProgressBar {
    std::string Label;
    bool Terminal = false; // draw at all
    bool Drawn = false;
    std::chrono::steady_clock::time_point Start, LastDrawn;
};

ProgressBar StartProgress(const std::string& label);
// Draws when the work takes long enough for a person to notice.
void ShowProgress(ProgressBar& bar, int done, int total);
void EndProgress(ProgressBar& bar); // wipes it

} // namespace kfax
