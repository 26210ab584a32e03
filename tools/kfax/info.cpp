// kfax info: what the filter says of each file, and whether a trial load finds its data damaged.
#include "host/standin/standin.h"
#include "tools/kfax/base/formats.h"
#include "tools/kfax/base/json_line.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/progress.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/page_file.h"
#include "tools/kfax/read/pages.h"
#include "tools/kfax/read/picture_input.h"

#include <sstream>

namespace kfax {

namespace {

struct FileReport {
    int Format, Coding; // Coding: the format of the data itself
    std::string Name;
    unsigned Width;
    int Height, XResolution, YResolution, Orientation;
    bool ReversedBits;
    long long Offset;     // of a raw stream
    unsigned Page, Pages; // of a TIFF or PDF file; 0: none
    std::string Layout;   // of such a file: how or where the page is stored
    bool Inverted;
    std::string Damage; // empty: none
};

standin::LoadOptions Trial(FileProgress& progress) {
    standin::LoadOptions options;
    options.DiscardRows = true;
    options.Progress = progress.Callback();
    return options;
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
    FileProgress progress(file);
    return ReportOf(description.FileInfo.Declared, standin::Load(filter, file, description, Trial(progress)));
}

FileReport ExaminePage(const standin::Filter& filter, PageFile& file, const std::string& name,
                       unsigned number, unsigned pages) {
    FileProgress progress(name);
    const StoredPage page = LoadStoredPage(filter, file, number, Trial(progress), {});
    FileReport report = ReportOf(page.Image.FileInfo.Declared, page.Loaded);
    report.Name = page.Container;
    report.Orientation = page.Loaded.Bitmap->Orientation;
    report.Page = number;
    report.Pages = pages;
    report.Layout = page.Layout;
    report.Inverted = (page.Loaded.LoadInfo.Flags & LOADINFO_INVERTED) != 0;
    report.Damage = page.Damage;
    return report;
}

std::string AsJson(const std::string& file, const FileReport& report) {
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
    return JsonLine(json);
}

std::string AsText(const std::string& file, const FileReport& report) {
    std::ostringstream text;
    text << Printable(file) << '\n';
    if (report.Pages != 0)
        text << "  page         " << report.Page << " of " << report.Pages << '\n';
    text << "  format       " << report.Format << ", " << report.Name << " ("
         << (report.Format != 0 ? FormatDescription(report.Coding) : "not compressed") << ")\n";
    text << "  size         " << report.Width << " x " << report.Height << " pixels\n";
    if (report.XResolution != 0 && report.YResolution != 0)
        text << "  resolution   " << report.XResolution << " x " << report.YResolution << " dots per inch\n";
    else
        text << "  resolution   not given\n";
    text << "  orientation  " << report.Orientation << '\n';
    text << "  bit order    " << (report.ReversedBits ? "reversed" : "normal") << '\n';
    if (report.Pages == 0)
        text << "  data offset  " << report.Offset << '\n';
    else
        text << "  layout       " << report.Layout << ", " << (report.Inverted ? "black" : "white")
             << " is zero\n";
    text << "  data         " << (report.Damage.empty() ? "good" : "damaged: " + report.Damage) << '\n';
    return text.str();
}

} // namespace

int InfoCommand(const standin::Filter& filter, const InfoOptions& options) {
    const std::vector<std::string> files = ListInputs(options.Run);
    return RunBatch(files, options.Run, "described", [&](size_t index, Report& report) {
        const std::string& file = files[index];
        const auto tell = [&](const FileReport& about) {
            report.Text += options.Run.Json ? AsJson(file, about) : AsText(file, about);
            if (!about.Damage.empty() && report.Result == Outcome::Good)
                report.Result = Outcome::Damaged;
        };
        const auto tellError = [&](const std::string& reason) {
            if (options.Run.Json)
                report.Text += JsonLine({{"file", file}, {"error", reason}});
        };
        const std::string error = Attempt(file, report, [&] {
            CheckInput(file);
            if (IsPicture(file))
                throw std::runtime_error("a picture, not a fax file (kfax save makes one of it)");
            if (!IsPageFile(file))
                return tell(Examine(filter, file));
            ForEachPage(
                file, options.Password, options.Page,
                [&](PageFile& pageFile, unsigned number, unsigned pages) {
                    tell(ExaminePage(filter, pageFile, file, number, pages));
                },
                [&](unsigned number, const std::string& what) {
                    const std::string reason = "page " + std::to_string(number) + ": " + what;
                    Complain(file, reason);
                    tellError(reason);
                    report.Result = Outcome::Failed;
                });
        });
        if (!error.empty())
            tellError(error);
    });
}

} // namespace kfax
