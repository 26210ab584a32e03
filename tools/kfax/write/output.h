// Output files of any kind: raw fax, TIFF, PDF, PNG or PBM.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/page.h"
#include "tools/kfax/base/picture.h"
#include "tools/kfax/write/output_options.h"
#include "tools/kfax/write/tiff_output.h"

#include <functional>
#include <optional>
#include <string>

namespace kfax {

enum class OutputKind { Raw, Tiff, Pdf, Png, Pbm };

// Dots per inch.
struct Resolution {
    int X, Y;
};

struct Output {
    std::string File;
    OutputKind Kind = OutputKind::Raw;
    TiffOutput How;                  // of other kinds as well, which have neither strips nor tiles
    std::optional<Resolution> Given; // instead of the page's
    bool Square = false;             // rows are repeated or joined until pixels are square
};

// Chooses by options.Kind, else by the file's extension; throws UsageError where they do not fit. An
// extension that says nothing means raw fax where rawByDefault is set.
Output ChooseOutput(const std::string& file, const OutputOptions& options, bool rawByDefault);

// Of a file that is written, with the dot.
std::string ExtensionOf(const Output& output);

// Whether such a file takes all pages; the others take one.
bool TakesManyPages(OutputKind kind);

// Which pages the output can take as they are coded.
CodedData TakesCoded(const Output& output);

// The page's picture, upright, with everything done that the page and the output ask for. The page has no
// bitmap afterwards.
Picture FinishedPicture(Page& page, const Output& output);

// Writes the output's only page. Throws FileError with the reason; nothing is left of the output then.
void WritePage(const standin::Filter& filter, const Output& output, Page& page);

// Writes a file of many pages: calls produce with a function that appends one. several: there will be more
// than one. What produce throws is passed on, and nothing is left of the output then, nor where writing
// fails.
using AppendPage = std::function<void(Page& page)>;
void WritePages(const standin::Filter& filter, const Output& output, bool several,
                const std::function<void(const AppendPage& append)>& produce);

} // namespace kfax
