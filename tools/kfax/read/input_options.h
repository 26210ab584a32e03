// What the command line says of the inputs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kfax {

// What an input is, and which part of it is wanted.
struct InputOptions {
    // Of a stream that does not describe itself.
    std::string Format;
    std::optional<int64_t> Width, Height, Offset;
    bool ReverseBits = false;

    bool Mirror = false;
    bool Invert = false;
    bool Batch = false;
    bool Repair = false;          // damaged lines become the line above
    std::optional<int> Threshold; // of pictures
    std::optional<int64_t> Page;  // from 1; nothing: the command decides
    std::string Password;         // of a PDF file
};

} // namespace kfax
