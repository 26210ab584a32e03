// kfax verify: every page decoded line by line, nothing written.
//
// A page is damaged when its load reports it or when one of its lines is faulty: a load accepts any codes for
// a one-dimensional line, so damage often shows only in where the line ends.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/standin/standin.h"
#include "tools/kfax/base/batch.h"
#include "tools/kfax/base/json_line.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/line_faults.h"
#include "tools/kfax/read/page_file.h"
#include "tools/kfax/read/pages.h"
#include "tools/kfax/read/picture_input.h"

namespace kfax {

namespace {

struct PageVerdict {
    std::string File;
    unsigned Page = 0; // of a TIFF or PDF file; 0: none
    uint32_t Width = 0;
    int Height = 0;
    std::string Damage; // of the whole page, as the load says it; empty: none
    std::vector<BlockFaults> Blocks;

    bool IsDamaged() const { return !Damage.empty() || !Blocks.empty(); }
};

PageVerdict VerdictOf(const std::string& file, const standin::LoadResult& trial, const std::string& damage) {
    if (trial.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(trial.Status));
    PageVerdict verdict;
    verdict.File = file;
    verdict.Width = static_cast<uint32_t>(trial.LoadInfo.Width);
    verdict.Height = trial.LoadInfo.Height;
    verdict.Damage = damage;
    return verdict;
}

// A two-dimensional stream of no given format is described as a one-dimensional one, whose lines then hardly
// ever end where they should.
bool MayBeTwoDimensional(const PageVerdict& verdict) {
    int64_t faulty = 0;
    for (const BlockFaults& block : verdict.Blocks)
        for (const FaultyLines& lines : block.Lines)
            faulty += int64_t{lines.Last} - lines.First + 1;
    return faulty > verdict.Height / 2;
}

PageVerdict VerifyRaw(const standin::Filter& filter, const std::string& file, const InputOptions& options) {
    const standin::Description description = DescribeRaw(filter, file, options);
    standin::LoadOptions how;
    how.DiscardRows = true;
    const standin::LoadResult trial = standin::Load(filter, file, description, how);
    PageVerdict verdict =
        VerdictOf(file, trial, trial.DataStatus != 0 ? standin::StatusText(trial.DataStatus) : "");
    const _LOADINFO& info = trial.LoadInfo;
    BlockFaults lines = InspectRaw(filter, file, info);
    if (!lines.Lines.empty())
        verdict.Blocks.push_back(std::move(lines));
    if (options.Format.empty() && info.Format == FORMAT_FAX_G3_1D && MayBeTwoDimensional(verdict))
        Note(file, "most lines are damaged; see whether it is two-dimensional (--format g3-2d --width N "
                   "--height N)");
    return verdict;
}

PageVerdict VerifyPage(const standin::Filter& filter, PageFile& file, const std::string& name,
                       unsigned number) {
    standin::LoadOptions how;
    how.DiscardRows = true;
    StoredPage page = LoadStoredPage(filter, file, number, how, {true});
    PageVerdict verdict = VerdictOf(name, page.Loaded, page.Damage);
    verdict.Page = number;
    verdict.Blocks = std::move(page.Faults);
    return verdict;
}

std::string LineRange(uint32_t first, uint32_t last) {
    const std::string from = std::to_string(first + 1);
    return first == last ? "line " + from : "lines " + from + " to " + std::to_string(last + 1);
}

std::string AsText(const PageVerdict& verdict) {
    std::string text;
    const std::string page = Printable(verdict.File) + ": " +
                             (verdict.Page != 0 ? "page " + std::to_string(verdict.Page) + ": " : "");
    for (const BlockFaults& block : verdict.Blocks)
        for (const FaultyLines& lines : block.Lines) {
            text += page + LineRange(block.FirstRow + lines.First, block.FirstRow + lines.Last);
            text += block.Name.empty() ? ": " : " (" + block.Name + "): ";
            text += std::string(FaultText(lines.Fault)) + "\n";
        }
    if (text.empty())
        text = page + (verdict.Damage.empty() ? "good" : "damaged: " + verdict.Damage) + "\n";
    return text;
}

std::string AsJson(const PageVerdict& verdict) {
    nlohmann::ordered_json json{{"file", verdict.File}};
    if (verdict.Page != 0)
        json["page"] = verdict.Page;
    json["status"] = verdict.IsDamaged() ? "damaged" : "good";
    json["width"] = verdict.Width;
    json["height"] = verdict.Height;
    if (!verdict.Damage.empty())
        json["damage"] = verdict.Damage;
    auto lines = nlohmann::ordered_json::array();
    for (const BlockFaults& block : verdict.Blocks)
        for (const FaultyLines& faulty : block.Lines) {
            nlohmann::ordered_json entry{{"first", block.FirstRow + faulty.First + 1},
                                         {"last", block.FirstRow + faulty.Last + 1},
                                         {"fault", FaultText(faulty.Fault)}};
            if (!block.Name.empty())
                entry["block"] = block.Name;
            lines.push_back(std::move(entry));
        }
    json["lines"] = std::move(lines);
    return JsonLine(json);
}

void VerifyFile(const standin::Filter& filter, const std::string& file, const VerifyOptions& options,
                Report& report) {
    const auto tell = [&](const PageVerdict& verdict) {
        if (verdict.IsDamaged() && report.Result == Outcome::Good)
            report.Result = Outcome::Damaged;
        if (options.Run.Json)
            report.Text += AsJson(verdict);
        else if (!options.Run.Quiet || verdict.IsDamaged())
            report.Text += AsText(verdict);
    };
    CheckInput(file);
    if (IsPicture(file))
        throw std::runtime_error("a picture, not a fax file: there are no lines to verify");
    if (!IsPageFile(file)) {
        tell(VerifyRaw(filter, file, options.In));
        return;
    }
    RefuseRawOptions(options.In);
    ForEachPage(
        file, options.In.Password, options.In.Page,
        [&](PageFile& pageFile, unsigned number, unsigned /*pages*/) {
            tell(VerifyPage(filter, pageFile, file, number));
        },
        [&](unsigned number, const std::string& error) {
            Complain(file, "page " + std::to_string(number) + ": " + error);
            report.Result = Outcome::Failed;
            if (options.Run.Json)
                report.Text +=
                    JsonLine({{"file", file}, {"page", number}, {"status", "failed"}, {"error", error}});
        });
}

} // namespace

int VerifyCommand(const standin::Filter& filter, const VerifyOptions& options) {
    CheckFormatName(options.In);
    const std::vector<std::string> files = ListInputs(options.Run);
    return RunBatch(files, options.Run, "good", [&](size_t index, Report& report) {
        const std::string error =
            Attempt(files[index], report, [&] { VerifyFile(filter, files[index], options, report); });
        if (!error.empty() && options.Run.Json)
            report.Text += JsonLine({{"file", files[index]}, {"status", "failed"}, {"error", error}});
    });
}

} // namespace kfax
