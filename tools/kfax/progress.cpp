// A progress bar on standard error, when that is a terminal.
#include "tools/kfax/progress.h"

#include <cstdio>
#include <unistd.h>

namespace kfax {

namespace {

constexpr auto PATIENCE = std::chrono::milliseconds(300);
constexpr auto REDRAW = std::chrono::milliseconds(50);
constexpr int CELLS = 40;

} // namespace

ProgressBar StartProgress(const std::string& label) {
    const auto now = std::chrono::steady_clock::now();
    return {label, isatty(STDERR_FILENO) == 1, false, now, now};
}

void ShowProgress(ProgressBar& bar, int done, int total) {
    const auto now = std::chrono::steady_clock::now();
    if (!bar.Terminal || total <= 0 || now - bar.Start < PATIENCE || now - bar.LastDrawn < REDRAW)
        return;
    const auto part = static_cast<double>(done) / total;
    const auto filled = static_cast<size_t>(part * CELLS);
    const std::string cells = std::string(filled, '#') + std::string(CELLS - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", bar.Label.c_str(), cells.c_str(), static_cast<int>(part * 100));
    std::fflush(stderr);
    bar.LastDrawn = now;
    bar.Drawn = true;
}

void EndProgress(ProgressBar& bar) {
    if (bar.Drawn)
        std::fputs("\r\x1b[K", stderr);
    bar.Drawn = false;
}

} // namespace kfax
