// Carrying pages from inputs to the output, one in memory at a time.
#include "tools/kfax/convert.h"

#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/file_handle.h"
#include "tools/kfax/base/json_line.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/write/output_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <unordered_set>
#include <utility>

namespace kfax {

namespace {

unsigned WantedCount(const Conversion& conversion) {
    if (conversion.In.Page || conversion.Wanted == WantedPages::First)
        return static_cast<unsigned>(conversion.Inputs.size());
    unsigned count = 0;
    for (const std::string& input : conversion.Inputs)
        count += CountPages(input, conversion.In.Password);
    return count;
}

bool IsNumbered(const Conversion& conversion, unsigned count) {
    return conversion.Wanted == WantedPages::All && !conversion.In.Page &&
           !TakesManyPages(conversion.Out.Kind) && count > 1;
}

constexpr const char* kStream = "-";

void CopyStream(std::FILE* from, const char* fromName, std::FILE* to, const char* toName) {
    std::array<char, 1 << 16> block{};
    for (size_t got = 0; (got = std::fread(block.data(), 1, block.size(), from)) != 0;)
        if (std::fwrite(block.data(), 1, got, to) != got)
            throw FileError(toName, SystemReason(errno));
    if (std::ferror(from) != 0)
        throw FileError(fromName, SystemReason(errno));
    if (std::fflush(to) != 0)
        throw FileError(toName, SystemReason(errno));
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        throw FileError(directory, SystemReason(error.value()));
}

// Pages, tags and damaged lines that the output does not have would be lost with the input.
void RefuseOwnOutput(const std::string& input, const std::string& output) {
    std::error_code notThere;
    if (std::filesystem::equivalent(input, output, notThere))
        throw FileError(input, "is its own output; give that another name or --out-dir");
}

// An empty file is what a crash of the machine can leave of one that was just renamed.
bool IsThere(const std::string& output) {
    std::error_code error;
    const auto size = std::filesystem::file_size(output, error);
    return !error && size != 0;
}

// The last output of an input is written last, and each appears whole.
bool IsDone(const Conversion& conversion) {
    const std::string& output = conversion.Out.File;
    if (IsThere(output))
        return true;
    // A file of several pages has numbered outputs instead.
    if (TakesManyPages(conversion.Out.Kind) || !IsThere(Numbered(output, 1)))
        return false;
    const unsigned count = WantedCount(conversion);
    return IsNumbered(conversion, count) && IsThere(Numbered(output, count));
}

std::string AsJson(const std::string& input, const Report& report, const Converted& converted,
                   const std::string& error) {
    static constexpr std::array kStatuses{"good", "damaged", "failed", "skipped"};
    nlohmann::ordered_json json{{"file", input}, {"status", kStatuses[static_cast<size_t>(report.Result)]}};
    if (report.Result == Outcome::Good || report.Result == Outcome::Damaged) {
        json["pages"] = converted.Pages;
        json["outputs"] = converted.Outputs;
    }
    if (!converted.Damages.empty())
        json["damage"] = converted.Damages;
    if (converted.Repaired != 0)
        json["repaired"] = converted.Repaired;
    if (!error.empty())
        json["error"] = error;
    return JsonLine(json);
}

// What became of the lines of a damaged page.
std::string Outlook(const Page& page) {
    if (page.Repaired == 0)
        return "; lines that could not be decoded are blank (kfax verify lists them)";
    return "; " + std::to_string(page.Repaired) + (page.Repaired == 1 ? " line is" : " lines are") +
           " repeated from the line above (kfax verify lists them)";
}

} // namespace

Converted Convert(const standin::Filter& filter, const Conversion& conversion) {
    const unsigned count = WantedCount(conversion);
    const bool numbered = IsNumbered(conversion, count);
    Converted done;
    const PageRequest request{conversion.Wanted, conversion.RawFormats, TakesCoded(conversion.Out)};
    std::vector<std::pair<std::string, std::string>> damages; // of a file
    const auto forEachPage = [&](const std::function<void(Page&, unsigned)>& take) {
        for (const std::string& input : conversion.Inputs)
            VisitPages(filter, input, conversion.In, request, [&](Page& page, unsigned number) {
                take(page, number);
                ++done.Pages;
                if (page.Damage.empty())
                    return;
                done.Repaired += page.Repaired;
                done.Damages.push_back(page.Damage);
                damages.emplace_back(input, "damaged: " + page.Damage + Outlook(page));
            });
    };

    if (TakesManyPages(conversion.Out.Kind)) {
        WritePages(filter, conversion.Out, count > 1, [&](const AppendPage& append) {
            forEachPage([&](Page& page, unsigned /*number*/) { append(page); });
        });
        done.Outputs.push_back(conversion.Out.File);
    } else {
        forEachPage([&](Page& page, unsigned number) {
            Output output = conversion.Out;
            if (numbered)
                output.File = Numbered(output.File, number);
            if (numbered && conversion.IsTaken && conversion.IsTaken(output.File))
                throw FileError(output.File,
                                "is page " + std::to_string(number) + " of " + conversion.Inputs.front() +
                                    " and another file's output too; --keep-ext keeps them apart");
            WritePage(filter, output, page);
            done.Outputs.push_back(output.File);
        });
    }
    for (const auto& [file, message] : damages)
        Complain(file, message);
    return done;
}

int ConvertStreams(const standin::Filter& filter, Conversion conversion) {
    KeepInputs(conversion.Inputs);
    for (const std::string& name : conversion.Inputs)
        RefuseOwnOutput(name, conversion.Out.File);
    std::optional<ScratchFile> input;
    std::optional<ScratchFile> output;
    for (std::string& name : conversion.Inputs) {
        if (name != kStream)
            continue;
        if (input)
            throw UsageError("standard input can be read once");
        name = input.emplace().Name;
        ShowAs(name, "standard input");
        const std::string place = std::filesystem::path(name).parent_path();
        CopyStream(stdin, "standard input", input->File.get(), place.c_str());
    }
    if (conversion.Out.File == kStream) {
        if (IsNumbered(conversion, WantedCount(conversion)))
            throw UsageError("standard output takes several pages as a TIFF or PDF file only (--to tif)");
        conversion.Out.File = output.emplace().Name;
        const std::string place = std::filesystem::path(conversion.Out.File).parent_path();
        ShowAs(conversion.Out.File, "standard output, kept in " + place);
    }
    const Converted done = Convert(filter, conversion);
    if (output) {
        const FileHandle spool(std::fopen(conversion.Out.File.c_str(), "rbe"));
        if (!spool)
            throw FileError(conversion.Out.File, SystemReason(errno));
        CopyStream(spool.get(), conversion.Out.File.c_str(), stdout, "standard output");
    }
    return done.Damages.empty() ? EXIT_GOOD : EXIT_DAMAGED;
}

int ConvertEach(const standin::Filter& filter, const Conversion& like, const BatchOptions& options,
                const BatchOutputs& outputs) {
    const std::vector<std::string> inputs = ListInputs(options);
    const std::vector<std::string> names = NameOutputs(inputs, outputs.Naming, ExtensionOf(like.Out));
    const std::unordered_set<std::string> taken(names.begin(), names.end());
    MakeDirectory(outputs.Naming.Directory);
    KeepInputs(inputs);

    return RunBatch(inputs, options, "converted", [&](size_t index, Report& report) {
        Converted converted;
        const std::string error = Attempt(inputs[index], report, [&] {
            Conversion conversion = like;
            conversion.Inputs = {inputs[index]};
            conversion.Wanted = WantedPages::All;
            conversion.Out.File = names[index];
            conversion.IsTaken = [&](const std::string& output) { return taken.contains(output); };
            if (outputs.SkipExisting && IsDone(conversion)) {
                report.Result = Outcome::Skipped;
                return;
            }
            CheckInput(inputs[index]);
            if (outputs.Naming.KeepTree)
                MakeDirectory(std::filesystem::path(names[index]).parent_path());
            RefuseOwnOutput(inputs[index], names[index]);
            converted = Convert(filter, conversion);
            if (!converted.Damages.empty())
                report.Result = Outcome::Damaged;
        });
        if (options.Json)
            report.Text = AsJson(inputs[index], report, converted, error);
    });
}

} // namespace kfax
