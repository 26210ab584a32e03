// Loading pages.
#include "tools/kfax/pages.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/input.h"
#include "tools/kfax/messages.h"
#include "tools/kfax/page_file.h"
#include "tools/kfax/picture_input.h"
#include "tools/kfax/progress.h"

#include <climits>

namespace kfax {

namespace {

int64_t InRange(const char* option, std::optional<int64_t> value, int64_t least, int64_t most) {
    if (!value)
        throw UsageError(std::string("--format needs ") + option + ", which the stream does not say");
    if (*value < least || *value > most)
        throw UsageError(std::string(option) + " " + std::to_string(*value) + " is out of range (" +
                         std::to_string(least) + " to " + std::to_string(most) + ")");
    return *value;
}

// The stream that the command line describes.
_LOADINFO GivenStream(const InputOptions& options, int format, uint64_t fileSize) {
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

standin::LoadOptions HowToLoad(const InputOptions& options, ProgressBar& bar) {
    standin::LoadOptions how;
    how.Batches = options.Batch;
    how.Progress = [&bar](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    return how;
}

Page LoadRaw(const standin::Filter& filter, const std::string& file, const InputOptions& options) {
    const standin::Description description = DescribeRaw(filter, file, options);
    const _FILEINFOA& info = description.FileInfo.Declared;
    CheckPictureSize(info.Width, info.Height);
    ProgressBar bar = StartProgress(file);
    standin::LoadOptions how = HowToLoad(options, bar);
    // A header sets the stream's flags itself: mirroring and inverting are then done on the picture.
    const bool hasHeader = info.Format == FORMAT_FAX_G4_HEADER;
    if (!hasHeader)
        how.AddedFlags = (options.Mirror ? LOADINFO_MIRROR : 0) | (options.Invert ? LOADINFO_INVERTED : 0);
    standin::LoadResult loaded = standin::Load(filter, file, description, how);
    EndProgress(bar);
    if (loaded.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(loaded.Status));
    Page page;
    page.Bitmap = std::move(loaded.Bitmap);
    page.Mirror = hasHeader && options.Mirror;
    page.Invert = hasHeader && options.Invert;
    if (loaded.DataStatus != 0)
        page.Damage = standin::StatusText(loaded.DataStatus);
    return page;
}

Page LoadPageOf(const standin::Filter& filter, PageFile& file, const std::string& name, unsigned number,
                const InputOptions& options) {
    ProgressBar bar = StartProgress(name);
    StoredPage stored = LoadStoredPage(filter, file, number, HowToLoad(options, bar), false);
    EndProgress(bar);
    Page page;
    page.Bitmap = std::move(stored.Loaded.Bitmap);
    page.Damage = std::move(stored.Damage);
    page.Mirror = options.Mirror;
    page.Invert = options.Invert;
    return page;
}

} // namespace

standin::Description DescribeRaw(const standin::Filter& filter, const std::string& file,
                                 const InputOptions& options) {
    int format = FORMAT_FAX_G4_HEADER;
    if (!options.Format.empty()) {
        CheckFormatName(options);
        format = *FormatNumber(options.Format);
    }
    if (format != FORMAT_FAX_G4_HEADER)
        return standin::DescribeStream(GivenStream(options, format, CheckInput(file)));

    if (options.Width || options.Height || options.Offset || options.ReverseBits)
        throw UsageError("--width, --height, --offset and --reverse-bits describe a raw stream and need "
                         "its --format");
    standin::Description description = DescribeInput(filter, file);
    if (!options.Format.empty() && description.FileInfo.Declared.Format != FORMAT_FAX_G4_HEADER)
        throw std::runtime_error("the file has no header; give its stream another --format");
    return description;
}

void RefuseRawOptions(const InputOptions& options) {
    if (!options.Format.empty() || options.Width || options.Height || options.Offset || options.ReverseBits)
        throw UsageError("--format, --width, --height, --offset and --reverse-bits describe a raw stream; "
                         "this file says itself what it is: leave them out");
}

void CheckFormatName(const InputOptions& options) {
    if (!options.Format.empty() && !FormatNumber(options.Format))
        throw UsageError("unknown --format " + options.Format + "; known are " + KnownFormats());
}

PageNumbers PageRange(std::optional<int64_t> asked, unsigned pages) {
    if (!asked)
        return {1, pages};
    if (*asked < 1 || *asked > pages)
        throw std::runtime_error("there is no page " + std::to_string(*asked) + "; the file has " +
                                 std::to_string(pages));
    return {static_cast<unsigned>(*asked), static_cast<unsigned>(*asked)};
}

unsigned CountPages(const std::string& name, const std::string& password) {
    if (!IsPageFile(name))
        return 1;
    return OnBehalfOf(name, [&] {
        PageFile file = OpenPageFile(name, password);
        return CountPages(file);
    });
}

void VisitPages(const standin::Filter& filter, const std::string& name, const InputOptions& options,
                WantedPages wanted, bool rawFormats,
                const std::function<void(Page& page, unsigned number)>& visit) {
    std::optional<PageFile> file;
    unsigned pages = 1;
    PageNumbers range{};
    const bool isPicture = IsPicture(name);
    OnBehalfOf(name, [&] {
        CheckInput(name);
        if (IsPageFile(name)) {
            file = OpenPageFile(name, options.Password);
            pages = CountPages(*file);
            TellAbout(*file);
        }
        if (rawFormats && (file || isPicture))
            RefuseRawOptions(options);
        range = PageRange(options.Page, pages);
    });

    if (!options.Page && wanted == WantedPages::First && pages > 1) {
        range.Last = 1;
        Note(name, "page 1 of " + std::to_string(pages) +
                       " is taken; --page N takes another, and --out-dir or a TIFF file all");
    }
    for (unsigned number = range.First; number <= range.Last; ++number) {
        Page page = OnBehalfOf(name, [&] {
            if (file)
                return LoadPageOf(filter, *file, name, number, options);
            if (!isPicture)
                return LoadRaw(filter, name, rawFormats ? options : InputOptions{});
            Page picture;
            picture.Bitmap = ReadPicture(name, options.Threshold);
            picture.Mirror = options.Mirror;
            picture.Invert = options.Invert;
            return picture;
        });
        if (!page.Damage.empty() && pages > 1)
            page.Damage = "page " + std::to_string(number) + ": " + page.Damage;
        visit(page, number);
    }
}

} // namespace kfax
