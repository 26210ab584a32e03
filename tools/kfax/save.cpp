// kfax save: pictures become a fax file; a TIFF file takes all pages of all of them.
#include "tools/kfax/commands.h"
#include "tools/kfax/convert.h"

namespace kfax {

int SaveCommand(const standin::Filter& filter, const SaveCommandOptions& options) {
    if (filter.Save == nullptr)
        throw std::runtime_error("the filter cannot save");
    if (options.In.Threshold && (*options.In.Threshold < 1 || *options.In.Threshold > 255))
        throw UsageError("--threshold must be 1 to 255");
    Conversion conversion;
    conversion.Inputs.assign(options.Files.begin(), options.Files.end() - 1);
    conversion.In = options.In;
    conversion.Out = ChooseOutput(options.Files.back(), options.Out, true);
    if (conversion.Out.Kind == OutputKind::Tiff)
        conversion.Wanted = WantedPages::All;
    else if (conversion.Inputs.size() > 1)
        throw UsageError("several pictures need a TIFF file to be saved in");
    return Convert(filter, conversion);
}

} // namespace kfax
