// Choosing and writing outputs.
#include "tools/kfax/write/output.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/formats.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/progress.h"
#include "tools/kfax/write/output_file.h"
#include "tools/kfax/write/pdf_output.h"
#include "tools/kfax/write/picture_output.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace kfax {

namespace {

constexpr unsigned kMostDpi = 1000000;

// An extension, and without its dot a name. The first of a kind is what its files are called.
struct KindEntry {
    const char* Extension;
    OutputKind Kind;
};
constexpr KindEntry kKinds[] = {
    {".tif", OutputKind::Tiff}, {".tiff", OutputKind::Tiff}, {".pdf", OutputKind::Pdf},
    {".png", OutputKind::Png},  {".pbm", OutputKind::Pbm},   {".raw", OutputKind::Raw},
    {".fax", OutputKind::Raw},  {".g3", OutputKind::Raw},    {".g4", OutputKind::Raw},
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
    return text;
}

OutputKind KindOfOutput(const std::string& file, const std::string& name, bool rawByDefault) {
    const std::string wanted = LowerCase(name.empty() ? file : "." + name);
    for (const KindEntry& entry : kKinds)
        if (name.empty() ? wanted.ends_with(entry.Extension) : wanted == entry.Extension)
            return entry.Kind;
    if (!name.empty())
        throw UsageError("unknown --to " + name + "; known are raw, tif, pdf, png and pbm");
    if (!rawByDefault)
        throw UsageError(file +
                         ": an output must end in .png, .pbm, .tif, .pdf, .g3, .g4 or .fax, or --to must "
                         "say what it is");
    return OutputKind::Raw;
}

std::optional<Resolution> GivenResolution(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    unsigned across = 0;
    unsigned down = 0;
    const bool isPair = text.find_first_of("xX") != std::string::npos;
    if (!ParsePair(isPair ? text : text + "x" + text, across, down) || std::min(across, down) < 1 ||
        std::max(across, down) > kMostDpi)
        throw UsageError("--dpi wants a number or XxY, each 1 to " + std::to_string(kMostDpi) + ", not " +
                         text);
    return Resolution{static_cast<int>(across), static_cast<int>(down)};
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
standin::BitmapPtr FinishedBitmap(Page& page, const Output& output) {
    const _BITMAPHANDLE& bitmap = *page.Bitmap;
    if (page.Mirror || page.Invert || output.Square || bitmap.Orientation != 1 ||
        !standin::IsInverted(bitmap))
        page.Bitmap = BitmapOfPicture(FinishedPicture(page, output));
    else if (output.Given)
        std::tie(page.Bitmap->XResolution, page.Bitmap->YResolution) =
            std::tie(output.Given->X, output.Given->Y);
    return std::move(page.Bitmap);
}

void SaveRaw(const standin::Filter& filter, const Output& output, _BITMAPHANDLE& bitmap) {
    FileProgress progress(output.File);
    standin::SaveOptions how = output.How.How;
    how.Progress = progress.Callback();
    WriteWholeByName(output.File, [&](const std::string& name) {
        errno = 0;
        const int status = standin::SaveFile(filter, name, bitmap, how);
        std::string reason = standin::StatusText(status);
        if ((status == ERROR_FILE_WRITE || status == ERROR_FILE_CREATE) && errno != 0)
            reason += ": " + SystemReason(errno);
        if (status != SUCCESS)
            throw std::runtime_error(reason);
    });
}

void WriteOne(const standin::Filter& filter, const Output& output, Page& page) {
    switch (output.Kind) {
    case OutputKind::Raw:
        return SaveRaw(filter, output, *FinishedBitmap(page, output));
    case OutputKind::Tiff:
    case OutputKind::Pdf:
        return WritePages(filter, output, false, [&](const AppendPage& append) { append(page); });
    case OutputKind::Png:
    case OutputKind::Pbm:
        break;
    }
    const Picture picture = FinishedPicture(page, output);
    WriteWhole(output.File, [&](std::FILE* file) {
        if (output.Kind == OutputKind::Png)
            WritePng(picture, file);
        else
            WritePbm(picture, file);
    });
}

// Codes a page, unless it comes coded.
CodedPage CodedOf(const standin::Filter& filter, const Output& output, Page& page) {
    if (page.Coded.IsThere()) {
        CodedPage coded = std::move(page.Coded);
        if (output.Given)
            std::tie(coded.XResolution, coded.YResolution) = std::tie(output.Given->X, output.Given->Y);
        return coded;
    }
    const standin::BitmapPtr bitmap = FinishedBitmap(page, output);
    FileProgress progress(output.File);
    standin::SaveOptions how = output.How.How;
    how.Progress = progress.Callback();
    CodedPage coded;
    coded.Width = bitmap->Width;
    coded.Height = static_cast<unsigned>(bitmap->Height);
    coded.BlackIsZero = how.NoInvert && standin::IsInverted(*bitmap);
    coded.XResolution = bitmap->XResolution;
    coded.YResolution = bitmap->YResolution;
    coded.Strips = output.Kind == OutputKind::Tiff ? TiffBlocks(*bitmap, output.How) : PdfBlock(*bitmap);
    const int status = standin::SaveBlocks(filter, *bitmap, how, coded.Strips);
    if (status != SUCCESS)
        throw std::runtime_error(standin::StatusText(status));
    return coded;
}

} // namespace

Picture FinishedPicture(Page& page, const Output& output) {
    Picture picture = UprightPicture(*page.Bitmap);
    page.Bitmap.reset();
    if (page.Mirror)
        MirrorRows(picture);
    if (page.Invert)
        Invert(picture);
    if (output.Given)
        std::tie(picture.XResolution, picture.YResolution) = std::tie(output.Given->X, output.Given->Y);
    if (output.Square)
        MakeSquare(picture, page.Memory);
    return picture;
}

std::string ExtensionOf(const Output& output) {
    if (output.Kind != OutputKind::Raw) {
        for (const KindEntry& entry : kKinds)
            if (entry.Kind == output.Kind)
                return entry.Extension;
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

bool TakesManyPages(OutputKind kind) {
    return kind == OutputKind::Tiff || kind == OutputKind::Pdf;
}

CodedData TakesCoded(const Output& output) {
    const TiffOutput& how = output.How;
    if (output.Square || how.How.NoInvert)
        return CodedData::None;
    if (output.Kind == OutputKind::Pdf)
        return CodedData::OneStrip;
    const bool asItIs = how.How.Format == FORMAT_FAX_G4 && !how.How.ReverseBits && !how.How.AlignEol &&
                        how.RowsPerStrip == 0 && how.TileWidth == 0;
    return output.Kind == OutputKind::Tiff && asItIs ? CodedData::AnyStrips : CodedData::None;
}

Output ChooseOutput(const std::string& file, const OutputOptions& options, bool rawByDefault) {
    Output output;
    output.File = file;
    output.Kind = KindOfOutput(file, options.Kind, rawByDefault);
    output.Given = GivenResolution(options.Dpi);
    output.Square = options.Square;
    const int format = WritableFormat(options.Format);
    if (output.Kind == OutputKind::Tiff) {
        output.How = ChooseTiffOutput(options, format);
        return output;
    }
    if (options.RowsPerStrip || !options.Tile.empty())
        throw UsageError("--rows-per-strip and --tile are for TIFF files");
    if (output.Kind == OutputKind::Pdf && (format != FORMAT_FAX_G4 || options.ReverseBits))
        throw UsageError("a PDF file takes Group 4 with the most significant bit first");
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
        if (output.Kind == OutputKind::Pdf) {
            PdfOutput pdf;
            produce([&](Page& page) { pdf.Append(CodedOf(filter, output, page)); });
            pdf.Write(name);
            return;
        }
        TiffFile file(name, "w");
        file.Shown = output.File;
        unsigned number = 0;
        produce([&](Page& page) {
            const CodedPage coded = CodedOf(filter, output, page);
            ++number;
            WriteTiffPage(file, coded, output.How, several ? number : 0);
        });
    };
    OnBehalfOf(output.File, [&] { WriteWholeByName(output.File, write); });
}

} // namespace kfax
