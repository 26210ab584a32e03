// kfax info: what the filter says of each file, and whether a trial load finds its data damaged.
#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/input.h"
#include "tools/kfax/progress.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace kfax {

namespace {

struct FileReport {
    int Format, Coding; // Coding: the format of the data itself
    std::string Name;
    unsigned Width;
    int Height, XResolution, YResolution, Orientation;
    bool ReversedBits;
    long long Offset;
    std::string Damage; // empty: none
};

FileReport Examine(const standin::Filter& filter, const std::string& file) {
    const standin::Description description = DescribeInput(filter, file);
    standin::LoadOptions options;
    options.DiscardRows = true;
    ProgressBar bar = StartProgress(file);
    options.Progress = [&](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    const standin::LoadResult trial = standin::Load(filter, file, description, options);
    EndProgress(bar);
    if (trial.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(trial.Status));

    const _FILEINFOA& info = description.FileInfo.Declared;
    FileReport report{};
    report.Format = info.Format;
    report.Coding = trial.LoadInfo.Format;
    report.Name = info.Name;
    report.Width = info.Width;
    report.Height = info.Height;
    report.XResolution = info.XResolution;
    report.YResolution = info.YResolution;
    report.Orientation = info.Orientation;
    report.ReversedBits = (trial.LoadInfo.Flags & LOADINFO_REVERSED_BITS) != 0;
    report.Offset = trial.LoadInfo.Offset;
    if (trial.DataStatus != 0)
        report.Damage = standin::StatusText(trial.DataStatus);
    return report;
}

nlohmann::ordered_json AsJson(const std::string& file, const FileReport& report) {
    return {
        {"file", file},
        {"format", report.Format},
        {"name", report.Name},
        {"coding", FormatName(report.Coding)},
        {"width", report.Width},
        {"height", report.Height},
        {"x_resolution", report.XResolution},
        {"y_resolution", report.YResolution},
        {"orientation", report.Orientation},
        {"bit_order", report.ReversedBits ? "reversed" : "normal"},
        {"offset", report.Offset},
        {"damaged", !report.Damage.empty()},
        {"damage", report.Damage.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(report.Damage)}};
}

void Print(const std::string& file, const FileReport& report) {
    std::printf("%s\n", file.c_str());
    std::printf("  format       %d, %s (%s)\n", report.Format, report.Name.c_str(),
                FormatDescription(report.Coding));
    std::printf("  size         %u x %d pixels\n", report.Width, report.Height);
    if (report.XResolution != 0 && report.YResolution != 0)
        std::printf("  resolution   %d x %d dots per inch\n", report.XResolution, report.YResolution);
    else
        std::printf("  resolution   not given\n");
    std::printf("  orientation  %d\n", report.Orientation);
    std::printf("  bit order    %s\n", report.ReversedBits ? "reversed" : "normal");
    std::printf("  data offset  %lld\n", report.Offset);
    std::printf("  data         %s\n",
                report.Damage.empty() ? "good" : ("damaged: " + report.Damage).c_str());
}

} // namespace

int InfoCommand(const standin::Filter& filter, const InfoOptions& options) {
    int result = EXIT_GOOD;
    auto json = nlohmann::ordered_json::array();
    for (const std::string& file : options.Files) {
        try {
            const FileReport report = Examine(filter, file);
            if (options.Json)
                json.push_back(AsJson(file, report));
            else
                Print(file, report);
            if (!report.Damage.empty() && result == EXIT_GOOD)
                result = EXIT_DAMAGED;
        } catch (const std::exception& error) {
            Complain(file, error.what());
            if (options.Json)
                json.push_back({{"file", file}, {"error", error.what()}});
            result = EXIT_ERROR;
        }
    }
    if (options.Json)
        std::printf("%s\n",
                    json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    if (std::fflush(stdout) != 0) {
        Complain("standard output", "cannot be written");
        return EXIT_ERROR;
    }
    return result;
}

} // namespace kfax
