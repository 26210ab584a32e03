// kfax load: fax files become pictures, or fax files of another kind.
#include "tools/kfax/base/errors.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/contact_sheet.h"
#include "tools/kfax/convert.h"

namespace kfax {

int LoadCommand(const standin::Filter& filter, const LoadCommandOptions& options) {
    if (options.AllPages && options.In.Page)
        throw UsageError("--page and --all-pages exclude each other");
    CheckFormatName(options.In);
    Conversion conversion;
    conversion.In = options.In;
    conversion.Wanted = options.AllPages ? WantedPages::All : WantedPages::First;
    conversion.RawFormats = true;
    if (options.IsBatch()) {
        OutputOptions out = options.Out;
        if (out.Kind.empty())
            out.Kind = "png";
        conversion.Out = ChooseOutput("", out, false);
        return ConvertEach(filter, conversion, options.Run, options.Outputs);
    }
    BatchOptions run = options.Run;
    const std::string output = TakeOutput(run);
    if (options.Thumbnail)
        return MakeContactSheet(filter, run, options.In, *options.Thumbnail,
                                ChooseOutput(output, options.Out, false));
    if (run.Files.size() != 1 || run.NullList)
        throw UsageError("one file becomes one file; --out-dir DIR converts several");
    conversion.Inputs = run.Files;
    conversion.Out = ChooseOutput(output, options.Out, false);
    if (TakesManyPages(conversion.Out.Kind))
        conversion.Wanted = WantedPages::All;
    return ConvertStreams(filter, conversion);
}

} // namespace kfax
