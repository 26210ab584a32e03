// The command line.
#pragma once

#include "tools/kfax/commands.h"

#include <CLI/CLI.hpp>
#include <string>

namespace kfax {

struct Options {
    std::string Library; // the filter
    InfoOptions Info;
    VerifyOptions Verify;
    LoadCommandOptions Load;
    SaveCommandOptions Save;

    CLI::App* InfoParsed = nullptr;
    CLI::App* VerifyParsed = nullptr;
    CLI::App* LoadParsed = nullptr;
    CLI::App* SaveParsed = nullptr;
};

// Declares all commands and their options, which go to options when the command line is parsed.
void DeclareOptions(CLI::App& app, Options& options);

} // namespace kfax
