// What load and save have in common: pages of inputs go to an output.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/batch.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/read/pages.h"
#include "tools/kfax/write/output.h"
#include "tools/kfax/write/output_names.h"

#include <functional>
#include <string>
#include <vector>

namespace kfax {

struct Conversion {
    std::vector<std::string> Inputs; // several: the output takes many pages
    InputOptions In;
    WantedPages Wanted = WantedPages::First;
    bool RawFormats = false; // In describes raw streams
    Output Out;              // all pages, and one file takes one: one file for each, numbered
    // Whether a numbered file's name belongs to another output.
    std::function<bool(const std::string& output)> IsTaken;
};

struct Converted {
    std::vector<std::string> Outputs;
    std::vector<std::string> Damages; // of a page each
    unsigned Pages = 0;
    unsigned Repaired = 0; // lines
};

// Says a line for every damaged page; throws where an input cannot be read or the output not be written.
Converted Convert(const standin::Filter& filter, const Conversion& conversion);

// The same for an input or output that may be "-", standard input or output. Returns an exit code.
int ConvertStreams(const standin::Filter& filter, Conversion conversion);

// Converts each of many inputs to an output of its own, with the output's extension. Returns an exit code.
int ConvertEach(const standin::Filter& filter, const Conversion& like, const BatchOptions& options,
                const BatchOutputs& outputs);

} // namespace kfax
