// The pages of an input file of any kind: raw fax, TIFF, PDF, PNG or PBM, told apart by their first bytes.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/commands.h"

#include <functional>
#include <string>

namespace kfax {

// A loaded page, and what is still to be done with its picture.
struct Page {
    standin::BitmapPtr Bitmap;
    bool Mirror = false;
    bool Invert = false;
    std::string Damage; // empty: none
};

enum class WantedPages { First, All }; // unless the options name one

// How a raw file, or one that describes itself, is to be decoded. Throws UsageError or std::runtime_error.
standin::Description DescribeRaw(const standin::Filter& filter, const std::string& file,
                                 const InputOptions& options);
// Throws UsageError where the options describe a raw stream: the file says itself what it is.
void RefuseRawOptions(const InputOptions& options);
// Throws UsageError for a --format that is none.
void CheckFormatName(const InputOptions& options);

// The first and the last page wanted, from 1, of so many; all unless one is asked for. Throws
// std::runtime_error where there is no such page.
struct PageNumbers {
    unsigned First, Last;
};
PageNumbers PageRange(std::optional<int64_t> asked, unsigned pages);

// How many pages the file has; 1 unless it is a TIFF or PDF file. Throws FileError with the reason.
unsigned CountPages(const std::string& name, const std::string& password);

// Loads the wanted pages one after another and gives each to visit with its number. Where only the first of
// several is wanted, a line on standard error says so. rawFormats: the command line can describe a raw
// stream. Throws FileError with the reason.
void VisitPages(const standin::Filter& filter, const std::string& name, const InputOptions& options,
                WantedPages wanted, bool rawFormats,
                const std::function<void(Page& page, unsigned number)>& visit);

} // namespace kfax
