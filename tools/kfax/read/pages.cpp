// Loading pages.
#include "tools/kfax/read/pages.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/formats.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/progress.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/page_file.h"
#include "tools/kfax/read/picture_input.h"
#include "tools/kfax/read/repair.h"

#include <algorithm>
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

standin::LoadOptions HowToLoad(const InputOptions& options, FileProgress& progress) {
    standin::LoadOptions how;
    how.Batches = options.Batch;
    how.Progress = progress.Callback();
    return how;
}

void Repair(Page& page, const std::vector<BlockFaults>& faults) {
    page.Repaired = RepairLines(*page.Bitmap, faults);
    if (page.Repaired != 0 && page.Damage.empty())
        page.Damage = "lines are coded wrong";
}

Page LoadRaw(const standin::Filter& filter, const std::string& file, const InputOptions& options) {
    const standin::Description description = DescribeRaw(filter, file, options);
    const _FILEINFOA& info = description.FileInfo.Declared;
    Page page;
    ReservePicture(page.Memory, info.Width, info.Height);
    FileProgress progress(file);
    standin::LoadOptions how = HowToLoad(options, progress);
    // A header sets the stream's flags itself: mirroring and inverting are then done on the picture.
    const bool hasHeader = info.Format == FORMAT_FAX_G4_HEADER;
    if (!hasHeader)
        how.AddedFlags = (options.Mirror ? LOADINFO_MIRROR : 0) | (options.Invert ? LOADINFO_INVERTED : 0);
    standin::LoadResult loaded = standin::Load(filter, file, description, how);
    if (loaded.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(loaded.Status));
    page.Bitmap = std::move(loaded.Bitmap);
    page.Mirror = hasHeader && options.Mirror;
    page.Invert = hasHeader && options.Invert;
    if (loaded.DataStatus != 0)
        page.Damage = standin::StatusText(loaded.DataStatus);
    if (options.Repair)
        Repair(page, {InspectRaw(filter, file, loaded.LoadInfo)});
    return page;
}

Page LoadPageOf(const standin::Filter& filter, PageFile& file, const std::string& name, unsigned number,
                const InputOptions& options, CodedData coded) {
    FileProgress progress(name);
    const bool unchanged = !options.Mirror && !options.Invert && !options.Batch;
    const PageExtras extras{options.Repair, unchanged ? coded : CodedData::None};
    StoredPage stored = LoadStoredPage(filter, file, number, HowToLoad(options, progress), extras);
    Page page;
    page.Memory = std::move(stored.Memory);
    page.Coded = std::move(stored.Coded);
    page.Damage = std::move(stored.Damage);
    page.Mirror = options.Mirror;
    page.Invert = options.Invert;
    if (page.Coded.IsThere())
        return page;
    page.Bitmap = std::move(stored.Loaded.Bitmap);
    if (options.Repair && !stored.Faults.empty() && !stored.LinesAreRows)
        throw std::runtime_error(
            "damaged lines that are coded with another width than the picture's cannot be "
            "repaired; load it without --repair");
    if (options.Repair)
        Repair(page, stored.Faults);
    return page;
}

Page LoadPicture(const std::string& name, const InputOptions& options) {
    Page page;
    page.Bitmap = ReadPicture(name, options.Threshold, page.Memory);
    page.Mirror = options.Mirror;
    page.Invert = options.Invert;
    return page;
}

} // namespace

BlockFaults InspectRaw(const standin::Filter& filter, const std::string& file, const _LOADINFO& stream) {
    CodedStream coded;
    const uint64_t size = CheckInput(file);
    coded.File = file;
    coded.Offset = static_cast<uint64_t>(stream.Offset);
    coded.Size = size - std::min(coded.Offset, size);
    coded.Format = stream.Format;
    coded.Width = static_cast<uint32_t>(stream.Width);
    coded.Lines = static_cast<uint32_t>(std::max(stream.Height, 0));
    coded.Reversed = (stream.Flags & LOADINFO_REVERSED_BITS) != 0;
    BlockFaults faults;
    if (InspectLines(filter, coded, faults.Lines) != SUCCESS)
        faults.Lines.clear();
    return faults;
}

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

unsigned CountPages(const std::string& name, const std::string& password) {
    if (!IsPageFile(name))
        return 1;
    return OnBehalfOf(name, [&] {
        PageFile file = OpenPageFile(name, password);
        return CountPages(file);
    });
}

void VisitPages(const standin::Filter& filter, const std::string& name, const InputOptions& options,
                const PageRequest& request, const std::function<void(Page& page, unsigned number)>& visit) {
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
        if (request.RawFormats && (file || isPicture))
            RefuseRawOptions(options);
        range = PageRange(options.Page, pages);
    });

    if (!options.Page && request.Wanted == WantedPages::First && pages > 1) {
        range.Last = 1;
        Note(name, "page 1 of " + std::to_string(pages) +
                       " is taken; --page N takes another, and --out-dir or a TIFF or PDF file all");
    }
    for (unsigned number = range.First; number <= range.Last; ++number) {
        Page page = OnBehalfOf(name, [&] {
            if (file)
                return LoadPageOf(filter, *file, name, number, options, request.Coded);
            if (isPicture)
                return LoadPicture(name, options);
            return LoadRaw(filter, name, request.RawFormats ? options : InputOptions{});
        });
        if (!page.Damage.empty() && pages > 1)
            page.Damage = "page " + std::to_string(number) + ": " + page.Damage;
        visit(page, number);
    }
}

} // namespace kfax
