// Output files of any kind: raw fax, TIFF, PNG or PBM.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/pages.h"
#include "tools/kfax/picture.h"
#include "tools/kfax/tiff_output.h"

#include <string>

namespace kfax {

enum class OutputKind { Raw, Tiff, Png, Pbm };

struct Output {
    std::string File;
    OutputKind Kind = OutputKind::Raw;
    TiffOutput How; // of raw fax as well, which has neither strips nor tiles
    std::optional<int> Dpi;
};

// Chooses by options.Kind, else by the file's extension; throws UsageError where they do not fit. An
// extension that says nothing means raw fax where rawByDefault is set.
Output ChooseOutput(const std::string& file, const OutputOptions& options, bool rawByDefault);

std::string ExtensionOf(const Output& output); // ".png"

// The page's picture as it is to be written; takes the page's bitmap.
Picture FinishedPicture(Page& page, std::optional<int> dpi);

// Writes a page as a file of its own. Throws FileError with the reason; nothing is written then.
void WritePage(const standin::Filter& filter, const Output& output, Page& page);

// Writes pages to one TIFF file: produce gives each to append. Throws what produce throws, or FileError.
using AppendPage = std::function<void(Page& page)>;
void WritePages(const standin::Filter& filter, const Output& output, bool several,
                const std::function<void(const AppendPage& append)>& produce);

} // namespace kfax
