// Progress bars on standard error, when that is a terminal.
#include "tools/kfax/base/progress.h"

#include "tools/kfax/base/messages.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace kfax {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::milliseconds(300);
constexpr auto kRedraw = std::chrono::milliseconds(50);
constexpr double kCells = 40;

std::atomic<bool> drawn = false;

bool IsDue(const ProgressBar& bar, Clock::time_point now) {
    return bar.Terminal && now - bar.Start >= kPatience && now - bar.LastDrawn >= kRedraw;
}

void Draw(ProgressBar& bar, double part, const std::string& text) {
    const auto filled = static_cast<size_t>(part * kCells);
    const std::string cells =
        std::string(filled, '#') + std::string(static_cast<size_t>(kCells) - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %s\x1b[K", bar.Label.c_str(), cells.c_str(), text.c_str());
    std::fflush(stderr);
    bar.LastDrawn = Clock::now();
    drawn = true;
}

std::string HoursMinutesSeconds(double seconds) {
    const auto whole = static_cast<long long>(std::ceil(seconds));
    char text[40];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

} // namespace

FileProgress::FileProgress(const std::string& label) {
    if (!MayDraw())
        return;
    const auto now = Clock::now();
    Bar = {Printable(ShownName(label)), true, now, now};
}

FileProgress::~FileProgress() {
    if (Bar.Terminal)
        WipeProgress();
}

std::function<bool(int done, int total)> FileProgress::Callback() {
    if (!Bar.Terminal)
        return nullptr;
    return [this](int done, int total) {
        if (total > 0 && IsDue(Bar, Clock::now())) {
            const auto part = static_cast<double>(done) / total;
            Draw(Bar, part, std::to_string(static_cast<int>(part * 100)) + "%");
        }
        return true;
    };
}

ProgressBar StartRun() {
    const auto now = Clock::now();
    return {"kfax", MayDrawAtAll(), now, now};
}

void ShowRun(ProgressBar& bar, size_t done, size_t skipped, size_t total) {
    const auto now = Clock::now();
    if (total == 0 || !IsDue(bar, now))
        return;
    std::string text = std::to_string(done) + " of " + std::to_string(total);
    const double seconds = std::chrono::duration<double>(now - bar.Start).count();
    const double rate = static_cast<double>(done - skipped) / seconds;
    if (rate > 0) {
        char more[60];
        std::snprintf(more, sizeof more, ", %.*f files/s, %s left", rate < 10 ? 1 : 0, rate,
                      HoursMinutesSeconds(static_cast<double>(total - done) / rate).c_str());
        text += more;
    }
    Draw(bar, static_cast<double>(done) / static_cast<double>(total), text);
}

void WipeProgress() {
    static constexpr char kWipe[] = "\r\x1b[K";
    if (drawn.exchange(false))
        static_cast<void>(!write(STDERR_FILENO, kWipe, sizeof kWipe - 1));
}

} // namespace kfax
