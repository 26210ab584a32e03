// The commands and their options. kfax.1 and the completions beside it name the same ones.
#include "tools/kfax/options.h"

#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/formats.h"

namespace kfax {

namespace {

constexpr int kMostJobs = 1024;
constexpr uint64_t kMostMegabytes = uint64_t{1} << 40;

void AddRunOptions(CLI::App& command, BatchOptions& run) {
    command.add_flag("-0,--null", run.NullList,
                     "Read more FILEs from standard input, each ended by a zero byte (find -print0)");
    command.add_option("-j,--jobs", run.Jobs, "Work on N files at once; 0: as many as there are processors")
        ->capture_default_str()
        ->check(CLI::Range(0, kMostJobs));
    command
        .add_option("--memory", run.MemoryMegabytes,
                    "Use at most N MB for pictures and data; 0: half of what there is")
        ->capture_default_str()
        ->check(CLI::Range(uint64_t{0}, kMostMegabytes));
    command.add_flag("--json", run.Json, "Print one JSON object a line");
    command.add_flag("-q,--quiet", run.Quiet, "Say nothing but errors and damage");
    CLI::Option* const keepGoing =
        command.add_flag("-k,--keep-going", run.KeepGoing, "Go on after a file that fails (the default)");
    command.add_flag("--fail-fast", run.FailFast, "Stop at the first file that fails")->excludes(keepGoing);
}

void AddBatchOutputs(CLI::App& command, BatchOutputs& outputs) {
    CLI::Option* const directory =
        command.add_option("-d,--out-dir", outputs.Naming.Directory,
                           "Make a file of its own in DIR of every FILE; - lists FILEs");
    command
        .add_flag("--skip-existing", outputs.SkipExisting,
                  "Leave alone what has its output already: goes on with a run that was stopped")
        ->needs(directory);
    command.add_flag("--keep-tree", outputs.Naming.KeepTree, "Keep the directories of the FILEs below DIR")
        ->needs(directory);
    command
        .add_flag("--keep-ext", outputs.Naming.KeepExtension,
                  "Keep the extensions of the FILEs: page.g4 becomes page.g4.png")
        ->needs(directory);
}

void AddPassword(CLI::App& command, std::string& password) {
    command.add_option("--password", password, "Password of encrypted PDF files");
}

void AddRawInput(CLI::App& command, InputOptions& in) {
    command.add_option("--format", in.Format, "Format of a raw stream: " + KnownFormats());
    command.add_option("--width", in.Width, "Pixels per line of a raw stream");
    command.add_option("--height", in.Height, "Lines of a raw stream");
    command.add_option("--offset", in.Offset, "Where the raw stream starts in the file, in bytes");
    command.add_flag("--reverse-bits", in.ReverseBits,
                     "The raw stream's first bit is a byte's least significant");
}

void AddOutput(CLI::App& command, OutputOptions& options, const char* formatOption) {
    command.add_option("--to", options.Kind,
                       "What to write, whatever OUT ends in: raw, tif, pdf, png or pbm");
    command.add_option(formatOption, options.Format, "Format of the fax data to write: " + KnownFormats())
        ->capture_default_str();
    command.add_option("--dpi", options.Dpi, "N or XxY dots per inch, instead of what the input says");
    command.add_flag(
        "--square", options.Square,
        "Repeat or join lines until pixels are as high as wide, where the resolution says they are not");
    command.add_option("--rows-per-strip", options.RowsPerStrip, "Rows in each strip of a TIFF file");
    command.add_option("--tile", options.Tile, "WIDTHxHEIGHT of the tiles of a TIFF file, instead of strips");
}

void DeclareInfo(CLI::App& command, InfoOptions& info) {
    command.add_option("FILE", info.Run.Files, "Files to describe; - reads a list of them");
    command.add_option("--page", info.Page, "One page of TIFF and PDF files, from 1, instead of all");
    AddPassword(command, info.Password);
    AddRunOptions(command, info.Run);
}

void DeclareVerify(CLI::App& command, VerifyOptions& verify) {
    command.add_option("FILE", verify.Run.Files, "Files to look through; - reads a list of them");
    AddRawInput(command, verify.In);
    command.add_option("--page", verify.In.Page, "One page of TIFF and PDF files, from 1, instead of all");
    AddPassword(command, verify.In.Password);
    AddRunOptions(command, verify.Run);
}

void DeclareLoad(CLI::App& command, LoadCommandOptions& load) {
    command.add_option(
        "FILES", load.Run.Files,
        "IN OUT: a fax, TIFF or PDF file, and the .png, .pbm, .tif, .pdf, .g3, .g4 or .fax to write; - is "
        "standard input or output. With --out-dir any number of INs");
    AddRawInput(command, load.In);
    command.add_option("--page", load.In.Page, "Page of a TIFF or PDF file, from 1");
    AddPassword(command, load.In.Password);
    command.add_flag(
        "--all-pages", load.AllPages,
        "All pages, into OUT-001.png and so on; TIFF and PDF files and --out-dir take all anyway");
    command.add_flag("--mirror", load.In.Mirror, "Mirror the picture left to right");
    command.add_flag("--invert", load.In.Invert, "Exchange black and white");
    command.add_flag("--repair", load.In.Repair,
                     "Put the line above in the place of damaged lines (kfax verify lists them)");
    command.add_flag("--batch", load.In.Batch, "Decode in batches of 100 lines through a small buffer");
    command.add_option(
        "--thumbnail", load.Thumbnail,
        "Show all pages of any number of INs as small grey pictures, N pixels each, in one OUT.png");
    AddOutput(command, load.Out, "--code");
    AddBatchOutputs(command, load.Outputs);
    AddRunOptions(command, load.Run);
}

void DeclareSave(CLI::App& command, SaveCommandOptions& save) {
    command.add_option(
        "FILES", save.Run.Files,
        "IN... OUT: black-and-white pictures (PNG, PBM, TIFF, PDF or fax), and the file to write; "
        "several need a TIFF or PDF file; - is standard input or output. With --out-dir INs alone");
    AddOutput(command, save.Out, "--format");
    command.add_option("--page", save.In.Page, "Page of a TIFF or PDF file, from 1");
    AddPassword(command, save.In.Password);
    command.add_flag("--reverse-bits", save.Out.ReverseBits,
                     "Begin each byte with its least significant bit");
    command.add_flag("--align-eol", save.Out.AlignEol, "End each line end of the trailer on a byte boundary");
    command.add_flag("--no-invert", save.Out.NoInvert,
                     "Code white as black and black as white; a TIFF file says so and looks the same");
    command.add_option("--threshold", save.In.Threshold, "Take grey values below N (1 to 255) as black");
    AddBatchOutputs(command, save.Outputs);
    AddRunOptions(command, save.Run);
}

} // namespace

std::string TakeOutput(BatchOptions& run) {
    if (run.Json || run.FailFast)
        throw UsageError("--json and --fail-fast are for many files: see --out-dir");
    if (run.Files.size() < (run.NullList ? 1 : 2))
        throw UsageError("name a file to read and one to write, or --out-dir DIR");
    std::string output = run.Files.back();
    run.Files.pop_back();
    return output;
}

void DeclareOptions(CLI::App& app, Options& options) {
    app.require_subcommand(1);
    app.set_version_flag("-V,--version", "kfax " KFAX_VERSION, "Print the version and exit");
    app.footer(
        "Exit codes: 0 good; 1 an error, of at least one file; 2 wrong command line; 3 no error, but damaged "
        "data (what could be decoded is written).");
    options.Library = standin::kFilterLibrary;
    app.add_option("--filter", options.Library, "The filter library to use")->capture_default_str();
    options.InfoParsed = app.add_subcommand("info", "Describe fax, TIFF and PDF files");
    DeclareInfo(*options.InfoParsed, options.Info);
    options.VerifyParsed =
        app.add_subcommand("verify", "Tell which lines of fax, TIFF and PDF files are damaged");
    DeclareVerify(*options.VerifyParsed, options.Verify);
    options.LoadParsed = app.add_subcommand("load", "Turn fax, TIFF and PDF files into pictures");
    DeclareLoad(*options.LoadParsed, options.Load);
    options.SaveParsed = app.add_subcommand("save", "Turn pictures into fax, TIFF and PDF files");
    DeclareSave(*options.SaveParsed, options.Save);
}

} // namespace kfax
