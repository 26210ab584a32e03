// What the command line says of the outputs.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

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

// "204x98" → 204 and 98; false for anything else.
inline bool ParsePair(const std::string& text, unsigned& first, unsigned& second) {
    const char* const end = text.data() + text.size();
    const auto [separator, error] = std::from_chars(text.data(), end, first);
    if (error != std::errc() || separator == end || (*separator != 'x' && *separator != 'X'))
        return false;
    const auto [stop, otherError] = std::from_chars(separator + 1, end, second);
    return otherError == std::errc() && stop == end;
}

} // namespace kfax
