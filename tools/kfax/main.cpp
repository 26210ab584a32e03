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
    } catch (const std::bad_alloc&) {
        Complain(file, "not enough memory");
    } catch (const std::exception& error) {
        Complain(file, error.what());
    }
    return EXIT_ERROR;
}

int Main(int argc, char** argv) {
    CLI::App app("Describes fax files, turns them into pictures, and pictures into fax files.", "kfax");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 good, 1 error, 2 wrong command line, 3 damaged data (what could be decoded is "
               "written).");
    std::string library = standin::FILTER_LIBRARY;
    app.add_option("--filter", library, "The filter library to use")->capture_default_str();

    InfoOptions info;
    CLI::App* const infoCommand = app.add_subcommand("info", "Describe fax files");
    infoCommand->add_option("FILE", info.Files, "Files to describe")->required();
    infoCommand->add_flag("--json", info.Json, "Print a JSON array with an object per file");

    LoadCommandOptions load;
    CLI::App* const loadCommand = app.add_subcommand("load", "Turn a fax file into a picture");
    loadCommand->add_option("FILE", load.Input, "Fax file")->required();
    loadCommand->add_option("OUT", load.Output, "Picture to write, .png or .pbm")->required();
    loadCommand->add_option("--format", load.Format, "Format of a raw stream: " + KnownFormats());
    loadCommand->add_option("--width", load.Width, "Pixels per line of a raw stream");
    loadCommand->add_option("--height", load.Height, "Lines of a raw stream");
    loadCommand->add_option("--offset", load.Offset, "Where the raw stream starts in the file, in bytes");
    loadCommand->add_flag("--reverse-bits", load.ReverseBits,
                          "The raw stream's first bit is a byte's least significant");
    loadCommand->add_flag("--mirror", load.Mirror, "Mirror the picture left to right");
    loadCommand->add_flag("--invert", load.Invert, "Exchange black and white");
    loadCommand->add_flag("--batch", load.Batch, "Decode in batches of 100 lines through a small buffer");

    SaveCommandOptions save;
    CLI::App* const saveCommand = app.add_subcommand("save", "Turn a picture into a fax file");
    saveCommand->add_option("IN", save.Input, "Black-and-white picture, PNG or PBM")->required();
    saveCommand->add_option("OUT", save.Output, "Fax file to write")->required();
    saveCommand->add_option("--format", save.Format, "Format to write: " + KnownFormats())
        ->capture_default_str();
    saveCommand->add_flag("--reverse-bits", save.ReverseBits,
                          "Begin each byte with its least significant bit");
    saveCommand->add_flag("--align-eol", save.AlignEol,
                          "End each line end of the trailer on a byte boundary");
    saveCommand->add_option("--dpi", save.Dpi, "Dots per inch, instead of what the picture says");
    saveCommand->add_flag("--no-invert", save.NoInvert, "Code white as black and black as white");
    saveCommand->add_option("--threshold", save.Threshold, "Take grey values below N (1 to 255) as black");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) { // --help
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "kfax: %s (kfax --help tells more)\n", error.what());
        return EXIT_USAGE;
    }
    CleanUpOnSignals();
    standin::Filter filter;
    try {
        filter = standin::LoadFilter(library);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kfax: %s\n", error.what());
        return EXIT_ERROR;
    }
    if (infoCommand->parsed())
        return Run("info", [&] { return InfoCommand(filter, info); });
    if (saveCommand->parsed())
        return Run(save.Input, [&] { return SaveCommand(filter, save); });
    return Run(load.Input, [&] { return LoadCommand(filter, load); });
}

} // namespace

} // namespace kfax

int main(int argc, char** argv) {
    return kfax::Main(argc, argv);
}
