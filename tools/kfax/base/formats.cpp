// The fax formats by name and number.
#include "tools/kfax/base/formats.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"

#include <array>

namespace kfax {

namespace {

struct FormatEntry {
    int Number;
    const char* Name;
    const char* Description;
};

constexpr std::array kFormats{
    FormatEntry{FORMAT_FAX_G3_1D, "g3", "Group 3, one-dimensional"},
    FormatEntry{FORMAT_FAX_G3_2D, "g3-2d", "Group 3, two-dimensional"},
    FormatEntry{FORMAT_FAX_G4, "g4", "Group 4"},
    FormatEntry{FORMAT_FAX_G3_2D_ALL2D, "g3-all2d", "Group 3, two-dimensional without line ends"},
    FormatEntry{FORMAT_FAX_G4_HEADER, "header", "Group 4 with a header"},
    FormatEntry{FORMAT_FAX_G3_1D_NOEOL, "g3-noeol", "Group 3, one-dimensional without line ends"},
};

const FormatEntry* Find(int number) {
    for (const FormatEntry& entry : kFormats)
        if (entry.Number == number)
            return &entry;
    return nullptr;
}

} // namespace

std::optional<int> FormatNumber(const std::string& nameOrNumber) {
    for (const FormatEntry& entry : kFormats)
        if (nameOrNumber == entry.Name || nameOrNumber == std::to_string(entry.Number))
            return entry.Number;
    return std::nullopt;
}

const char* FormatName(int format) {
    const FormatEntry* const entry = Find(format);
    return entry ? entry->Name : "unknown";
}

const char* FormatDescription(int format) {
    const FormatEntry* const entry = Find(format);
    return entry ? entry->Description : "unknown";
}

std::string KnownFormats() {
    std::string text;
    for (const FormatEntry& entry : kFormats) {
        text += text.empty() ? "" : ", ";
        text += entry.Name;
        text += " (" + std::to_string(entry.Number) + ")";
    }
    return text;
}

} // namespace kfax
