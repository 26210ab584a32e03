// Choosing and writing outputs.
#include "tools/kfax/output.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/formats.h"
#include "tools/kfax/messages.h"
#include "tools/kfax/output_file.h"
#include "tools/kfax/picture.h"
#include "tools/kfax/progress.h"

#include <algorithm>
#include <cerrno>

namespace kfax {

namespace {

constexpr int kMaxDpi = 1000000;

struct KindEntry {
    const char* Text; // an extension, and without its dot a name
    OutputKind Kind;
};
constexpr KindEntry kKinds[] = {
    {".raw", OutputKind::Raw}, {".fax", OutputKind::Raw},  {".g3", OutputKind::Raw},
    {".g4", OutputKind::Raw},  {".tif", OutputKind::Tiff}, {".tiff", OutputKind::Tiff},
    {".png", OutputKind::Png}, {".pbm", OutputKind::Pbm},
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
    return text;
}

OutputKind KindOfOutput(const std::string& file, const std::string& name, bool rawByDefault) {
    const std::string wanted = LowerCase(name.empty() ? file : "." + name);
    for (const KindEntry& entry : kKinds)
        if (name.empty() ? wanted.ends_with(entry.Text) : wanted == entry.Text)
            return entry.Kind;
    if (!name.empty())
        throw UsageError("unknown --to " + name + "; known are raw, tif, png and pbm");
    if (!rawByDefault)
        throw UsageError(file + ": an output must end in .png, .pbm, .tif, .g3, .g4 or .fax, or --to must "
                                "say what it is");
    return OutputKind::Raw;
}

int WritableFormat(const std::string& name) {
    const auto format = FormatNumber(name);
    if (!format)
        throw UsageError("unknown fax format " + name + "; known are " + KnownFormats());
    if (*format == FORMAT_FAX_G4_HEADER)
        throw UsageError("the format with a header is read only; write g4");
    return *format;
}

// The page as the savers want it: upright, its set bits white.
standin::BitmapPtr FinishedBitmap(Page& page, std::optional<int> dpi) {
    const _BITMAPHANDLE& bitmap = *page.Bitmap;
    if (page.Mirror || page.Invert || bitmap.Orientation != 1 || !standin::IsInverted(bitmap))
        page.Bitmap = BitmapOfPicture(FinishedPicture(page, std::nullopt));
    if (dpi)
        page.Bitmap->XResolution = page.Bitmap->YResolution = *dpi;
    return std::move(page.Bitmap);
}

void SaveRaw(const standin::Filter& filter, const Output& output, _BITMAPHANDLE& bitmap) {
    standin::SaveOptions how = output.How.How;
    ProgressBar bar = StartProgress(output.File);
    how.Progress = [&](int done, int total) {
        ShowProgress(bar, done, total);
        return true;
    };
    WriteWholeByName(output.File, [&](const std::string& name) {
        errno = 0;
        const int status = standin::SaveFile(filter, name, bitmap, how);
        std::string reason = standin::StatusText(status);
        if ((status == ERROR_FILE_WRITE || status == ERROR_FILE_CREATE) && errno != 0)
            reason += ": " + SystemReason(errno);
        EndProgress(bar);
        if (status != SUCCESS)
            throw std::runtime_error(reason);
    });
}

void WriteOne(const standin::Filter& filter, const Output& output, Page& page) {
    switch (output.Kind) {
    case OutputKind::Raw:
        return SaveRaw(filter, output, *FinishedBitmap(page, output.Dpi));
    case OutputKind::Tiff:
        return WritePages(filter, output, false, [&](const AppendPage& append) { append(page); });
    case OutputKind::Png:
    case OutputKind::Pbm:
        break;
    }
    const Picture picture = FinishedPicture(page, output.Dpi);
    WriteWhole(output.File, [&](std::FILE* file) {
        if (output.Kind == OutputKind::Png)
            WritePng(picture, file);
        else
            WritePbm(picture, file);
    });
}

} // namespace

Picture FinishedPicture(Page& page, std::optional<int> dpi) {
    Picture picture = UprightPicture(*page.Bitmap);
    page.Bitmap.reset();
    if (page.Mirror)
        MirrorRows(picture);
    if (page.Invert)
        Invert(picture);
    if (dpi)
        picture.XResolution = picture.YResolution = *dpi;
    return picture;
}

std::string ExtensionOf(const Output& output) {
    switch (output.Kind) {
    case OutputKind::Tiff:
        return ".tif";
    case OutputKind::Png:
        return ".png";
    case OutputKind::Pbm:
        return ".pbm";
    case OutputKind::Raw:
        break;
    }
    switch (output.How.How.Format) {
    case FORMAT_FAX_G3_1D:
    case FORMAT_FAX_G3_2D:
        return ".g3";
    case FORMAT_FAX_G4:
        return ".g4";
    default:
        return ".fax";
    }
}

Output ChooseOutput(const std::string& file, const OutputOptions& options, bool rawByDefault) {
    Output output;
    output.File = file;
    output.Kind = KindOfOutput(file, options.Kind, rawByDefault);
    if (options.Dpi && (*options.Dpi < 1 || *options.Dpi > kMaxDpi))
        throw UsageError("--dpi must be 1 to " + std::to_string(kMaxDpi));
    output.Dpi = options.Dpi;
    const int format = WritableFormat(options.Format);
    if (output.Kind == OutputKind::Tiff) {
        output.How = ChooseTiffOutput(options, format);
        return output;
    }
    if (options.RowsPerStrip || !options.Tile.empty())
        throw UsageError("--rows-per-strip and --tile are for TIFF files");
    output.How.How.Format = format;
    output.How.How.ReverseBits = options.ReverseBits;
    output.How.How.AlignEol = options.AlignEol;
    output.How.How.NoInvert = options.NoInvert;
    return output;
}

void WritePage(const standin::Filter& filter, const Output& output, Page& page) {
    OnBehalfOf(output.File, [&] { WriteOne(filter, output, page); });
}

void WritePages(const standin::Filter& filter, const Output& output, bool several,
                const std::function<void(const AppendPage& append)>& produce) {
    const auto write = [&](const std::string& name) {
        TiffFile file(name, "w");
        file.Shown = output.File;
        unsigned number = 0;
        produce([&](Page& page) {
            const standin::BitmapPtr bitmap = FinishedBitmap(page, output.Dpi);
            TiffOutput how = output.How;
            ProgressBar bar = StartProgress(output.File);
            how.How.Progress = [&](int done, int total) {
                ShowProgress(bar, done, total);
                return true;
            };
            ++number;
            WriteTiffPage(filter, file, *bitmap, how, several ? number : 0);
            EndProgress(bar);
        });
    };
    OnBehalfOf(output.File, [&] { WriteWholeByName(output.File, write); });
}

} // namespace kfax
