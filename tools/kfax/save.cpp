// kfax save: pictures become a fax file; a TIFF file takes all pages of all of them.
#include "tools/kfax/base/errors.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/convert.h"

namespace kfax {

int SaveCommand(const standin::Filter& filter, const SaveCommandOptions& options) {
    if (!filter.Save)
        throw std::runtime_error("the filter cannot save; --filter takes one that can");
    if (options.In.Threshold && (*options.In.Threshold < 1 || *options.In.Threshold > 255))
        throw UsageError("--threshold must be 1 to 255");
    Conversion conversion;
    conversion.In = options.In;
    if (options.IsBatch()) {
        OutputOptions out = options.Out;
        if (out.Kind.empty())
            out.Kind = "tif";
        conversion.Out = ChooseOutput("", out, true);
        return ConvertEach(filter, conversion, options.Run, options.Outputs);
    }
    BatchOptions run = options.Run;
    const std::string output = TakeOutput(run);
    if (run.NullList)
        throw UsageError("-0 needs --out-dir DIR");
    conversion.Inputs = run.Files;
    conversion.Out = ChooseOutput(output, options.Out, true);
    if (TakesManyPages(conversion.Out.Kind))
        conversion.Wanted = WantedPages::All;
    else if (conversion.Inputs.size() > 1)
        throw UsageError("several pictures need a TIFF or PDF file to be saved in, or --out-dir DIR");
    return ConvertStreams(filter, conversion);
}

} // namespace kfax
