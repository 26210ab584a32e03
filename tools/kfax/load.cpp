// kfax load: a fax file becomes a picture, or a fax file of another kind.
#include "tools/kfax/commands.h"
#include "tools/kfax/convert.h"

namespace kfax {

int LoadCommand(const standin::Filter& filter, const LoadCommandOptions& options) {
    if (options.AllPages && options.In.Page)
        throw UsageError("--page and --all-pages exclude each other");
    Conversion conversion;
    conversion.Inputs = {options.Input};
    conversion.In = options.In;
    conversion.Wanted = options.AllPages ? WantedPages::All : WantedPages::First;
    conversion.RawFormats = true;
    conversion.Out = ChooseOutput(options.Output, options.Out, false);
    return Convert(filter, conversion);
}

} // namespace kfax
