// What load and save have in common: pages of inputs go to an output.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/batch.h"
#include "tools/kfax/output.h"
#include "tools/kfax/output_names.h"
#include "tools/kfax/pages.h"

#include <functional>
#include <string>
#include <vector>

namespace kfax {

struct Conversion {
    std::vector<std::string> Inputs; // several: the output is a TIFF file
    InputOptions In;
    WantedPages Wanted = WantedPages::First;
    bool RawFormats = false; // In describes raw streams
    Output Out;              // all pages, and not a TIFF file: one file for each, numbered
    // Whether a numbered file's name belongs to another output.
    std::function<bool(const std::string& output)> IsTaken;
};

struct Converted {
    std::vector<std::string> Outputs;
    std::vector<std::string> Damages; // as they were told
    unsigned Pages = 0;
};

// Says a line for every damaged page; throws where an input cannot be read or the output not be written.
Converted Convert(const standin::Filter& filter, const Conversion& conversion);

// The same for an input or output that may be "-", standard input or output. Returns an exit code.
int ConvertStreams(const standin::Filter& filter, Conversion conversion);

// Converts each of many inputs to an output of its own, with the output's extension. Returns an exit code.
int ConvertEach(const standin::Filter& filter, const Conversion& like, const BatchOptions& options,
                const BatchOutputs& outputs);

} // namespace kfax
