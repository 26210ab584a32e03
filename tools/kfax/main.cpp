// kfax: fax files on the command line.
#include "host/standin/standin.h"
#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/memory_budget.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/options.h"
#include "tools/kfax/write/output_file.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

namespace kfax {

namespace {

// Runs a command, turning what it throws about no file in particular into a line about one.
template <typename Command>
int Run(const BatchOptions& run, const char* name, Command command) {
    const std::string file = run.Files.empty() ? name : run.Files.front();
    if (run.Quiet)
        BeQuiet();
    if (run.MemoryMegabytes != 0)
        SetMemoryBudget(run.MemoryMegabytes << 20);
    try {
        return OnBehalfOf(file, command);
    } catch (const UsageError& error) {
        Complain(file, error.what());
        return EXIT_USAGE;
    } catch (const FileError& error) {
        Complain(error.File, error.what());
        return EXIT_ERROR;
    }
}

int Main(int argc, char** argv) {
    CLI::App app("Describes fax files, turns them into pictures, and pictures into fax files.", "kfax");
    Options options;
    DeclareOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) { // --help, --version
        app.exit(success);
        return std::cout.flush() ? EXIT_GOOD : EXIT_ERROR;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "kfax: %s (kfax --help tells more)\n", Printable(error.what()).c_str());
        return EXIT_USAGE;
    }
    CleanUpOnSignals();
    const standin::Filter filter = standin::LoadFilter(options.Library);
    if (options.InfoParsed->parsed())
        return Run(options.Info.Run, "info", [&] { return InfoCommand(filter, options.Info); });
    if (options.VerifyParsed->parsed())
        return Run(options.Verify.Run, "verify", [&] { return VerifyCommand(filter, options.Verify); });
    if (options.SaveParsed->parsed())
        return Run(options.Save.Run, "save", [&] { return SaveCommand(filter, options.Save); });
    return Run(options.Load.Run, "load", [&] { return LoadCommand(filter, options.Load); });
}

} // namespace

} // namespace kfax

int main(int argc, char** argv) {
    try {
        return kfax::Main(argc, argv);
    } catch (const std::exception& error) { // no filter, or no memory for the options
        std::fprintf(stderr, "kfax: %s\n", kfax::Printable(error.what()).c_str());
        return kfax::EXIT_ERROR;
    }
}
