// The outputs of many inputs in a directory of their own.
#pragma once

#include <string>
#include <vector>

namespace kfax {

struct OutputNaming {
    std::string Directory;
    bool KeepTree = false;      // as the inputs lie in theirs
    bool KeepExtension = false; // page.g4 → page.g4.png
};

// An output for each input, with the extension. Throws FileError where two inputs would have one
// output, an output is an input, or an input lies outside of any tree.
std::vector<std::string> NameOutputs(const std::vector<std::string>& inputs, const OutputNaming& naming,
                                     const std::string& extension);

// OUT.png → OUT-001.png
std::string Numbered(const std::string& file, unsigned number);

} // namespace kfax
