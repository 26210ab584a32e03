// The pages of an input file of any kind: raw fax, TIFF, PDF, PNG or PBM, told apart by their first bytes.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/page.h"
#include "tools/kfax/read/input_options.h"
#include "tools/kfax/read/tiff_input.h"

#include <functional>
#include <string>

namespace kfax {

enum class WantedPages { First, All }; // unless the options name one

// How a raw file, or one that describes itself, is to be decoded. Throws UsageError or std::runtime_error.
standin::Description DescribeRaw(const standin::Filter& filter, const std::string& file,
                                 const InputOptions& options);
// Throws UsageError where the options describe a raw stream: the file says itself what it is.
void RefuseRawOptions(const InputOptions& options);
// Throws UsageError for a --format that is none.
void CheckFormatName(const InputOptions& options);

// What is wrong with the lines of a raw stream, which is described as its load has it.
BlockFaults InspectRaw(const standin::Filter& filter, const std::string& file, const _LOADINFO& stream);

// How many pages the file has; 1 unless it is a TIFF or PDF file. Throws FileError with the reason.
unsigned CountPages(const std::string& name, const std::string& password);

struct PageRequest {
    WantedPages Wanted = WantedPages::First;
    bool RawFormats = false; // the options can describe a raw stream
    CodedData Coded = CodedData::None;
};

// Loads the wanted pages one after another and gives each to visit with its number. Where only the first of
// several is wanted, a line on standard error says so. Throws FileError with the reason.
void VisitPages(const standin::Filter& filter, const std::string& name, const InputOptions& options,
                const PageRequest& request, const std::function<void(Page& page, unsigned number)>& visit);

} // namespace kfax
