// kfax: fax files on the command line.
#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/output_file.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>

namespace kfax {

void Complain(const std::string& file, const std::string& reason) {
    std::fprintf(stderr, "kfax: %s: %s\n", file.c_str(), reason.c_str());
}

namespace {

// Runs a command on a file, turning what it throws into a line and an exit code.
template <class Command>
int Run(const std::string& file, Command command) {
    try {
        return command();
    } catch (const UsageError& error) {
        Complain(file, error.what());
        return EXIT_USAGE;
    } catch (const FileError& error) {
        Complain(error.File, error.what());
    } catch (const std::bad_alloc&) {
        Complain(file, "not enough memory");
    } catch (const std::exception& error) {
        Complain(file, error.what());
    }
    return EXIT_ERROR;
}

void AddOutputOptions(CLI::App& command, OutputOptions& options, const char* formatOption) {
    command.add_option("--to", options.Kind, "What to write, whatever OUT ends in: raw, tif, png or pbm");
    command.add_option(formatOption, options.Format, "Format of the fax data to write: " + KnownFormats())
        ->capture_default_str();
    command.add_option("--dpi", options.Dpi, "Dots per inch, instead of what the input says");
    command.add_option("--rows-per-strip", options.RowsPerStrip, "Rows in each strip of a TIFF file");
    command.add_option("--tile", options.Tile, "WIDTHxHEIGHT of the tiles of a TIFF file, instead of strips");
}

int Main(int argc, char** argv) {
    CLI::App app("Describes fax files, turns them into pictures, and pictures into fax files.", "kfax");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 good, 1 error, 2 wrong command line, 3 damaged data (what could be decoded is "
               "written).");
    std::string library = standin::FILTER_LIBRARY;
    app.add_option("--filter", library, "The filter library to use")->capture_default_str();

    InfoOptions info;
    CLI::App* const infoCommand = app.add_subcommand("info", "Describe fax and TIFF files");
    infoCommand->add_option("FILE", info.Files, "Files to describe")->required();
    infoCommand->add_option("--page", info.Page, "One page of TIFF files, from 1, instead of all");
    infoCommand->add_flag("--json", info.Json, "Print a JSON array with an object per page");

    LoadCommandOptions load;
    CLI::App* const loadCommand = app.add_subcommand("load", "Turn a fax or TIFF file into a picture");
    loadCommand->add_option("FILE", load.Input, "Fax or TIFF file")->required();
    loadCommand->add_option("OUT", load.Output, "File to write: .png, .pbm, .tif, .g3, .g4 or .fax")
        ->required();
    loadCommand->add_option("--format", load.In.Format, "Format of a raw stream: " + KnownFormats());
    loadCommand->add_option("--width", load.In.Width, "Pixels per line of a raw stream");
    loadCommand->add_option("--height", load.In.Height, "Lines of a raw stream");
    loadCommand->add_option("--offset", load.In.Offset, "Where the raw stream starts in the file, in bytes");
    loadCommand->add_flag("--reverse-bits", load.In.ReverseBits,
                          "The raw stream's first bit is a byte's least significant");
    loadCommand->add_option("--page", load.In.Page, "Page of a TIFF file, from 1");
    loadCommand->add_flag("--all-pages", load.AllPages,
                          "All pages: into one TIFF file, else into OUT-001.png and so on");
    loadCommand->add_flag("--mirror", load.In.Mirror, "Mirror the picture left to right");
    loadCommand->add_flag("--invert", load.In.Invert, "Exchange black and white");
    loadCommand->add_flag("--batch", load.In.Batch, "Decode in batches of 100 lines through a small buffer");
    AddOutputOptions(*loadCommand, load.Out, "--code");

    SaveCommandOptions save;
    CLI::App* const saveCommand = app.add_subcommand("save", "Turn pictures into a fax or TIFF file");
    saveCommand
        ->add_option("FILES", save.Files,
                     "IN... OUT: black-and-white pictures (PNG, PBM, TIFF or fax), and the file to write; "
                     "several need a TIFF file")
        ->required()
        ->expected(2, 1 << 20);
    AddOutputOptions(*saveCommand, save.Out, "--format");
    saveCommand->add_option("--page", save.In.Page, "Page of a TIFF file, from 1");
    saveCommand->add_flag("--reverse-bits", save.Out.ReverseBits,
                          "Begin each byte with its least significant bit");
    saveCommand->add_flag("--align-eol", save.Out.AlignEol,
                          "End each line end of the trailer on a byte boundary");
    saveCommand->add_flag("--no-invert", save.Out.NoInvert,
                          "Code white as black and black as white; a TIFF file says so and looks the same");
    saveCommand->add_option("--threshold", save.In.Threshold, "Take grey values below N (1 to 255) as black");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) { // --help
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "kfax: %s (kfax --help tells more)\n", error.what());
        return EXIT_USAGE;
    }
    CleanUpOnSignals();
    const standin::Filter filter = standin::LoadFilter(library);
    if (infoCommand->parsed())
        return Run("info", [&] { return InfoCommand(filter, info); });
    if (saveCommand->parsed())
        return Run(save.Files.front(), [&] { return SaveCommand(filter, save); });
    return Run(load.Input, [&] { return LoadCommand(filter, load); });
}

} // namespace

} // namespace kfax

int main(int argc, char** argv) {
    try {
        return kfax::Main(argc, argv);
    } catch (const std::exception& error) { // no filter, or no memory for the options
        std::fprintf(stderr, "kfax: %s\n", error.what());
        return kfax::EXIT_ERROR;
    }
}
