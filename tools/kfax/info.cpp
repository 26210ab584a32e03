// kfax info: what the filter says of each file, and whether a trial load finds its data damaged.
#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/input.h"
#include "tools/kfax/picture_input.h"
#include "tools/kfax/progress.h"
#include "tools/kfax/tiff_input.h"

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
    long long Offset;     // of a raw stream
    unsigned Page, Pages; // of a TIFF file; 0: none
    std::string Layout;   // of a TIFF file: how it is cut
    bool Inverted;
    std::string Damage; // empty: none
};

// Calls examine with options for a trial load; a bar shows its progress.
template <class Examine>
auto WithProgress(const std::string& file, Examine examine) {
    standin::LoadOptions options;
    options.DiscardRows = true;
    ProgressBar bar = StartProgress(file);
    options.Progress = [&](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    auto result = examine(options);
    EndProgress(bar);
    return result;
}

FileReport ReportOf(const _FILEINFOA& info, const standin::LoadResult& trial) {
    if (trial.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(trial.Status));
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

FileReport Examine(const standin::Filter& filter, const std::string& file) {
    const standin::Description description = DescribeInput(filter, file);
    const standin::LoadResult trial = WithProgress(file, [&](const standin::LoadOptions& options) {
        return standin::Load(filter, file, description, options);
    });
    return ReportOf(description.FileInfo.Declared, trial);
}

FileReport ExaminePage(const standin::Filter& filter, TiffFile& file, int64_t number, unsigned pages) {
    const TiffPage page = OpenTiffPage(file, number);
    std::string damage;
    const standin::LoadResult trial = WithProgress(file.Name, [&](const standin::LoadOptions& options) {
        return LoadTiffPage(filter, file, page, options, damage);
    });
    FileReport report = ReportOf(page.Image.FileInfo.Declared, trial);
    report.Name = "TIFF";
    report.Orientation = trial.Bitmap->Orientation;
    report.Page = static_cast<unsigned>(number);
    report.Pages = pages;
    report.Layout =
        page.Tiled ? "tiles of " + std::to_string(page.BlockWidth) + " x " + std::to_string(page.BlockHeight)
                   : "strips of " + std::to_string(page.BlockHeight) + " rows";
    report.Inverted = (trial.LoadInfo.Flags & LOADINFO_INVERTED) != 0;
    report.Damage = damage;
    return report;
}

nlohmann::ordered_json AsJson(const std::string& file, const FileReport& report) {
    nlohmann::ordered_json json{
        {"file", file},
        {"format", report.Format},
        {"name", report.Name},
        {"coding", report.Format != 0 ? FormatName(report.Coding) : "none"},
        {"width", report.Width},
        {"height", report.Height},
        {"x_resolution", report.XResolution},
        {"y_resolution", report.YResolution},
        {"orientation", report.Orientation},
        {"bit_order", report.ReversedBits ? "reversed" : "normal"},
        {"damaged", !report.Damage.empty()},
        {"damage", report.Damage.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(report.Damage)}};
    if (report.Pages == 0) {
        json["offset"] = report.Offset;
    } else {
        json["page"] = report.Page;
        json["pages"] = report.Pages;
        json["layout"] = report.Layout;
        json["white_is_zero"] = !report.Inverted;
    }
    return json;
}

void Print(const std::string& file, const FileReport& report) {
    std::printf("%s\n", file.c_str());
    if (report.Pages != 0)
        std::printf("  page         %u of %u\n", report.Page, report.Pages);
    std::printf("  format       %d, %s (%s)\n", report.Format, report.Name.c_str(),
                report.Format != 0 ? FormatDescription(report.Coding) : "not compressed");
    std::printf("  size         %u x %d pixels\n", report.Width, report.Height);
    if (report.XResolution != 0 && report.YResolution != 0)
        std::printf("  resolution   %d x %d dots per inch\n", report.XResolution, report.YResolution);
    else
        std::printf("  resolution   not given\n");
    std::printf("  orientation  %d\n", report.Orientation);
    std::printf("  bit order    %s\n", report.ReversedBits ? "reversed" : "normal");
    if (report.Pages == 0)
        std::printf("  data offset  %lld\n", report.Offset);
    else
        std::printf("  layout       %s, %s is zero\n", report.Layout.c_str(),
                    report.Inverted ? "black" : "white");
    std::printf("  data         %s\n",
                report.Damage.empty() ? "good" : ("damaged: " + report.Damage).c_str());
}

} // namespace

int InfoCommand(const standin::Filter& filter, const InfoOptions& options) {
    int result = EXIT_GOOD;
    auto json = nlohmann::ordered_json::array();
    const auto tell = [&](const std::string& file, const FileReport& report) {
        if (options.Json)
            json.push_back(AsJson(file, report));
        else
            Print(file, report);
        if (!report.Damage.empty() && result == EXIT_GOOD)
            result = EXIT_DAMAGED;
    };
    const auto tellError = [&](const std::string& file, const std::string& reason) {
        Complain(file, reason);
        if (options.Json)
            json.push_back({{"file", file}, {"error", reason}});
        result = EXIT_ERROR;
    };
    const auto tellPages = [&](const std::string& file) {
        TiffFile tiff(file, "rm");
        const unsigned pages = CountTiffPages(tiff);
        const int64_t first = options.Page.value_or(1);
        const int64_t last = options.Page.value_or(pages);
        for (int64_t number = first; number <= last; ++number) {
            try {
                tell(file, ExaminePage(filter, tiff, number, pages));
            } catch (const std::exception& error) {
                tellError(file, "page " + std::to_string(number) + ": " + error.what());
            }
        }
    };
    for (const std::string& file : options.Files) {
        try {
            CheckInput(file);
            if (IsPicture(file))
                throw std::runtime_error("a picture, not a fax file");
            if (IsTiff(file))
                tellPages(file);
            else
                tell(file, Examine(filter, file));
        } catch (const std::exception& error) {
            tellError(file, error.what());
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
