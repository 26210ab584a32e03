// Many inputs. The workers take the next index from a counter and leave their reports in a list; the main
// thread writes out each report once those before it are out, and draws the progress bar.
#include "tools/kfax/base/batch.h"

#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/progress.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <system_error>
#include <thread>

namespace kfax {

namespace {

constexpr auto kRedraw = std::chrono::milliseconds(200);

void ReadList(char end, std::vector<std::string>& names) {
    std::string name;
    for (int c = std::getc(stdin);; c = std::getc(stdin)) {
        if (c == 0 && end != 0)
            throw FileError("standard input",
                            "no list of names, one a line: it has zero bytes in it; -0 takes "
                            "names ended by these, and kfax load - OUT takes a fax stream");
        if (c != EOF && c != end) {
            name += static_cast<char>(c);
            continue;
        }
        if (!name.empty())
            names.push_back(std::move(name));
        name.clear();
        if (c == EOF)
            break;
    }
    if (std::ferror(stdin) != 0)
        throw FileError("standard input", SystemReason(errno));
}

struct Run {
    size_t Count = 0;
    std::atomic<size_t> Next = 0;
    std::atomic<size_t> Finished = 0;
    std::atomic<size_t> Skipped = 0;
    std::atomic<bool> Stop = false;

    std::mutex Lock;
    std::condition_variable Changed;
    // By input; allocated before the work begins, so that the end of a job needs no memory.
    std::vector<std::optional<Report>> Reports;

    // Held by each file that is worked on; alone by one that needs the memory of the others. Whoever waits
    // for it holds Gate, so that no other file is begun meanwhile.
    std::shared_mutex Memory;
    std::mutex Gate;
};

using Work = std::function<void(size_t index, Report& report)>;

void Try(const std::string& name, size_t index, const Work& work, Report& report) {
    const CollectMessages collect(report.Messages);
    Attempt(name, report, [&] { work(index, report); });
}

// A file that memory is short for is worked on again when nothing else is.
Report WorkOnOne(Run& run, const std::string& name, size_t index, const Work& work) {
    try {
        std::unique_lock gate(run.Gate);
        const std::shared_lock beside(run.Memory);
        gate.unlock();
        Report report;
        Try(name, index, work, report);
        return report;
    } catch (const FileMemoryShortage&) {
    } catch (const std::bad_alloc&) {
    }
    const std::lock_guard gate(run.Gate);
    const std::unique_lock alone(run.Memory);
    Report report;
    report.Alone = true;
    try {
        Try(name, index, work, report);
    } catch (const std::bad_alloc&) { // for the message, after what was worked on was given back
        report.Result = Outcome::Failed;
        report.Messages.clear();
        report.Text.clear();
        report.NoMemoryToTell = true;
    }
    return report;
}

void WorkOn(Run& run, const std::vector<std::string>& names, const Work& work) {
    while (!run.Stop) {
        const size_t index = run.Next++;
        if (index >= run.Count)
            return;
        Report report = WorkOnOne(run, names[index], index, work);
        ++run.Finished;
        if (report.Result == Outcome::Skipped)
            ++run.Skipped;
        const std::lock_guard lock(run.Lock);
        run.Reports[index] = std::move(report);
        run.Changed.notify_one();
    }
}

Report WaitFor(Run& run, size_t index, ProgressBar& bar) {
    std::unique_lock lock(run.Lock);
    for (;;) {
        if (std::optional<Report>& report = run.Reports[index]) {
            Report taken = std::move(*report);
            report.reset();
            return taken;
        }
        run.Changed.wait_for(lock, kRedraw);
        lock.unlock();
        ShowRun(bar, run.Finished, run.Skipped, run.Count);
        lock.lock();
    }
}

void Print(const std::string& name, const Report& report) {
    if (report.NoMemoryToTell)
        Complain(name, "not enough memory");
    if (!report.Messages.empty() || !report.Text.empty())
        WipeProgress();
    for (const std::string& line : report.Messages)
        std::fputs(line.c_str(), stderr);
    if (std::fwrite(report.Text.data(), 1, report.Text.size(), stdout) != report.Text.size() ||
        std::fflush(stdout) != 0)
        throw FileError("standard output", SystemReason(errno));
}

using Totals = std::array<size_t, 4>; // by Outcome

size_t& Of(Totals& totals, Outcome outcome) {
    return totals[static_cast<size_t>(outcome)];
}

void Summarize(Totals totals, size_t count, const char* done) {
    size_t reported = 0;
    for (const size_t number : totals)
        reported += number;
    std::string line = "kfax: " + std::to_string(count) + " files: ";
    line += std::to_string(Of(totals, Outcome::Good)) + " " + done;
    line += ", " + std::to_string(Of(totals, Outcome::Damaged)) + " damaged";
    line += ", " + std::to_string(Of(totals, Outcome::Failed)) + " failed";
    if (Of(totals, Outcome::Skipped) != 0)
        line += ", " + std::to_string(Of(totals, Outcome::Skipped)) + " skipped";
    if (reported < count)
        line += ", " + std::to_string(count - reported) + " not tried";
    std::fprintf(stderr, "%s\n", line.c_str());
}

struct Workers {
    explicit Workers(Run& run) : Owner(run) {}
    ~Workers() {
        Owner.Stop = true;
        for (std::thread& thread : Threads)
            thread.join();
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    Run& Owner;
    std::vector<std::thread> Threads;
};

} // namespace

std::vector<std::string> ListInputs(const BatchOptions& options) {
    std::vector<std::string> names;
    bool read = false;
    const auto readOnce = [&](char end) {
        if (read)
            throw UsageError("standard input holds one list: give - or -0 once");
        read = true;
        ReadList(end, names);
    };
    for (const std::string& file : options.Files)
        if (file == "-")
            readOnce('\n');
        else
            names.push_back(file);
    if (options.NullList)
        readOnce('\0');
    if (options.Files.empty() && !options.NullList)
        throw UsageError("name the files to work on, or - for a list of them on standard input");
    return names;
}

int RunBatch(const std::vector<std::string>& names, const BatchOptions& options, const char* done,
             const Work& work) {
    Run run;
    run.Count = names.size();
    run.Reports.resize(run.Count);
    Totals totals{};
    ProgressBar bar = StartRun();
    {
        Workers workers(run);
        const size_t wanted =
            options.Jobs != 0 ? options.Jobs : std::max(std::thread::hardware_concurrency(), 1u);
        SetSeveralJobs(std::min(wanted, run.Count) > 1);
        try {
            workers.Threads.reserve(std::min(wanted, run.Count));
            while (workers.Threads.size() < std::min(wanted, run.Count))
                workers.Threads.emplace_back([&] { WorkOn(run, names, work); });
        } catch (const std::system_error&) { // the system has no more threads to give
            if (workers.Threads.empty())
                throw;
        }
        for (size_t index = 0; index < run.Count; ++index) {
            const Report report = WaitFor(run, index, bar);
            Print(names[index], report);
            ++Of(totals, report.Result);
            if (options.FailFast && report.Result == Outcome::Failed)
                break;
            ShowRun(bar, run.Finished, run.Skipped, run.Count);
        }
    }
    WipeProgress();
    const bool allGood = Of(totals, Outcome::Failed) == 0 && Of(totals, Outcome::Damaged) == 0;
    if (names.size() > 1 && !options.Quiet && (!allGood || Of(totals, Outcome::Skipped) != 0))
        Summarize(totals, names.size(), done);
    if (Of(totals, Outcome::Failed) != 0)
        return EXIT_ERROR;
    return allGood ? EXIT_GOOD : EXIT_DAMAGED;
}

std::string Attempt(const std::string& file, Report& report, const std::function<void()>& action) {
    const auto fail = [&](const std::string& place, const std::string& reason) {
        Complain(place, reason);
        report.Result = Outcome::Failed;
        return place == file ? reason : place + ": " + reason;
    };
    try {
        OnBehalfOf(file, action);
        return {};
    } catch (const FileMemoryShortage& error) {
        if (!report.Alone)
            throw;
        return fail(error.File, error.what());
    } catch (const FileError& error) {
        return fail(error.File, error.what());
    } catch (const UsageError& error) {
        return fail(file, error.what());
    }
}

} // namespace kfax
