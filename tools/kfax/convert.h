// What load and save have in common: pages of inputs go to an output.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/output.h"
#include "tools/kfax/pages.h"

#include <string>
#include <vector>

namespace kfax {

struct Conversion {
    std::vector<std::string> Inputs; // several: the output is a TIFF file
    InputOptions In;
    WantedPages Wanted = WantedPages::First;
    bool RawFormats = false; // In describes raw streams
    Output Out;              // all pages, and not a TIFF file: one file for each, numbered
};

// Returns EXIT_GOOD or EXIT_DAMAGED, with a line for every damaged page; throws otherwise.
int Convert(const standin::Filter& filter, const Conversion& conversion);

} // namespace kfax
