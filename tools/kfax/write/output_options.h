// What the command line says of the outputs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kfax {

// What an output is to be.
struct OutputOptions {
    std::string Kind;          // raw, tif, pdf, png or pbm; empty: by the file's extension
    std::string Format = "g4"; // of the fax data
    bool ReverseBits = false;
    bool AlignEol = false;
    bool NoInvert = false;
    std::string Dpi;                     // N or XxY; empty: what the input says
    bool Square = false;                 // pixels
    std::optional<int64_t> RowsPerStrip; // of a TIFF
    std::string Tile;                    // of a TIFF, WxH
};

} // namespace kfax
