// kfax save: a PNG or PBM picture becomes a fax file.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/output_file.h"
#include "tools/kfax/picture_input.h"
#include "tools/kfax/progress.h"

#include <cerrno>
#include <cstring>

namespace kfax {

namespace {

constexpr int MAX_DPI = 1000000;

int WritableFormat(const std::string& name) {
    const auto format = FormatNumber(name);
    if (!format)
        throw UsageError("unknown --format " + name + "; known are " + KnownFormats());
    if (*format == FORMAT_FAX_G4_HEADER)
        throw UsageError("the format with a header is read only");
    return *format;
}

std::string SaveFailure(int status) {
    std::string reason = standin::StatusText(status);
    if ((status == ERROR_FILE_WRITE || status == ERROR_FILE_CREATE) && errno != 0)
        reason += std::string(": ") + std::strerror(errno);
    return reason;
}

} // namespace

int SaveCommand(const standin::Filter& filter, const SaveCommandOptions& options) {
    if (filter.Save == nullptr)
        throw std::runtime_error("the filter cannot save");
    standin::SaveOptions how;
    how.Format = WritableFormat(options.Format);
    how.ReverseBits = options.ReverseBits;
    how.AlignEol = options.AlignEol;
    how.NoInvert = options.NoInvert;
    if (options.Threshold && (*options.Threshold < 1 || *options.Threshold > 255))
        throw UsageError("--threshold must be 1 to 255");
    if (options.Dpi && (*options.Dpi < 1 || *options.Dpi > MAX_DPI))
        throw UsageError("--dpi must be 1 to " + std::to_string(MAX_DPI));

    const standin::BitmapPtr bitmap = ReadPicture(options.Input, options.Threshold);
    if (options.Dpi)
        bitmap->XResolution = bitmap->YResolution = *options.Dpi;
    ProgressBar bar = StartProgress(options.Output);
    how.Progress = [&](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    try {
        WriteWholeByName(options.Output, [&](const std::string& name) {
            errno = 0;
            const int status = standin::SaveFile(filter, name, *bitmap, how);
            const std::string reason = SaveFailure(status);
            EndProgress(bar);
            if (status != SUCCESS)
                throw std::runtime_error(reason);
        });
    } catch (const std::exception& error) {
        Complain(options.Output, error.what());
        return EXIT_ERROR;
    }
    return EXIT_GOOD;
}

} // namespace kfax
