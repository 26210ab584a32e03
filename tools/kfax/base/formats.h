// The fax formats by name and number.
#pragma once

#include <optional>
#include <string>

namespace kfax {

// "g4" or "68" → 68; nothing for a format that the filter does not know.
std::optional<int> FormatNumber(const std::string& nameOrNumber);
const char* FormatName(int format);        // "g4"
const char* FormatDescription(int format); // "Group 4"
std::string KnownFormats();                // "g3 (66), g3-2d (67), ..."

} // namespace kfax
