// kfax load: a fax file becomes a PNG or PBM picture.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/input.h"
#include "tools/kfax/output_file.h"
#include "tools/kfax/picture.h"
#include "tools/kfax/progress.h"

#include <algorithm>
#include <climits>
#include <string>
#include <unistd.h>

namespace kfax {

namespace {

using Writer = void (*)(const Picture&, std::FILE*);

bool EndsWith(std::string text, const std::string& ending) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
    return text.ends_with(ending);
}

Writer ChooseWriter(const std::string& output) {
    if (EndsWith(output, ".png"))
        return WritePng;
    if (EndsWith(output, ".pbm"))
        return WritePbm;
    throw UsageError("the output must end in .png or .pbm");
}

int64_t InRange(const char* option, std::optional<int64_t> value, int64_t least, int64_t most) {
    if (!value)
        throw UsageError(std::string("--format needs ") + option + ": the stream does not say it");
    if (*value < least || *value > most)
        throw UsageError(std::string(option) + " " + std::to_string(*value) + " is out of range (" +
                         std::to_string(least) + " to " + std::to_string(most) + ")");
    return *value;
}

// The stream that the command line describes.
_LOADINFO GivenStream(const LoadCommandOptions& options, int format, uint64_t fileSize) {
    _LOADINFO stream{};
    stream.Format = format;
    stream.Width = static_cast<int32_t>(InRange("--width", options.Width, 1, MAX_IMAGE_WIDTH));
    stream.Height = static_cast<int32_t>(InRange("--height", options.Height, 1, INT_MAX));
    stream.BitsPerPixel = 1;
    stream.Offset = InRange("--offset", options.Offset.value_or(0), 0, static_cast<int64_t>(fileSize) - 1);
    stream.Flags = LOADINFO_ORIENTATION_1;
    if (options.ReverseBits)
        stream.Flags |= LOADINFO_REVERSED_BITS;
    return stream;
}

standin::Description ChooseDescription(const standin::Filter& filter, const LoadCommandOptions& options) {
    int format = FORMAT_FAX_G4_HEADER;
    if (!options.Format.empty()) {
        const auto number = FormatNumber(options.Format);
        if (!number)
            throw UsageError("unknown --format " + options.Format + "; known are " + KnownFormats());
        format = *number;
    }
    if (format != FORMAT_FAX_G4_HEADER)
        return standin::DescribeStream(GivenStream(options, format, CheckInput(options.Input)));

    if (options.Width || options.Height || options.Offset || options.ReverseBits)
        throw UsageError("--width, --height, --offset and --reverse-bits describe a raw stream and need "
                         "its --format");
    standin::Description description = DescribeInput(filter, options.Input);
    if (!options.Format.empty() && description.FileInfo.Declared.Format != FORMAT_FAX_G4_HEADER)
        throw std::runtime_error("the file has no header");
    return description;
}

// Refuses what would fill the machine's memory, where an allocation alone would still succeed.
void CheckSize(const _FILEINFOA& info) {
    if (info.Width == 0 || info.Height <= 0)
        throw std::runtime_error("the picture has no pixels (" + std::to_string(info.Width) + " x " +
                                 std::to_string(info.Height) + ")");
    // Twice: the bitmap and the upright picture.
    const double needed = 2.0 * (info.Width / 8.0 + 4) * info.Height;
    const double memory =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    if (needed > memory / 2)
        throw std::runtime_error("a picture of " + std::to_string(info.Width) + " x " +
                                 std::to_string(info.Height) +
                                 " pixels is too large for this machine's memory");
}

} // namespace

int LoadCommand(const standin::Filter& filter, const LoadCommandOptions& options) {
    const Writer write = ChooseWriter(options.Output);
    const standin::Description description = ChooseDescription(filter, options);
    CheckSize(description.FileInfo.Declared);

    // A header sets the stream's flags itself: mirroring and inverting are then done on the picture.
    const bool hasHeader = description.FileInfo.Declared.Format == FORMAT_FAX_G4_HEADER;
    standin::LoadOptions how;
    how.Batches = options.Batch;
    if (!hasHeader)
        how.AddedFlags = (options.Mirror ? LOADINFO_MIRROR : 0) | (options.Invert ? LOADINFO_INVERTED : 0);
    ProgressBar bar = StartProgress(options.Input);
    how.Progress = [&](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    standin::LoadResult loaded = standin::Load(filter, options.Input, description, how);
    EndProgress(bar);
    if (loaded.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(loaded.Status));

    Picture picture = UprightPicture(*loaded.Bitmap);
    loaded.Bitmap.reset();
    if (hasHeader && options.Mirror)
        MirrorRows(picture);
    if (hasHeader && options.Invert)
        Invert(picture);
    try {
        WriteWhole(options.Output, [&](std::FILE* file) { write(picture, file); });
    } catch (const std::exception& error) {
        Complain(options.Output, error.what());
        return EXIT_ERROR;
    }
    if (loaded.DataStatus == 0)
        return EXIT_GOOD;
    Complain(options.Input, std::string("damaged: ") + standin::StatusText(loaded.DataStatus) +
                                "; lines that could not be decoded are white");
    return EXIT_DAMAGED;
}

} // namespace kfax
