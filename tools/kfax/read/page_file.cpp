// Loading pages of TIFF and PDF files.
#include "tools/kfax/read/page_file.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/errors.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/pdf_input.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <stdexcept>

namespace kfax {

namespace {

// A page that is described and, if it lies in a TIFF file, ready to be read.
struct OpenPage {
    standin::Description Image;
    TiffPage Tiff;
    PdfImage Pdf;
    unsigned Strips = 0;      // that the data could be copied in; 0: it is not in strips
    bool LinesAreRows = true; // of the picture
    const char* Container = "";
    std::string Layout;
};

OpenPage OpenFrom(TiffFile& file, unsigned number) {
    OpenPage page;
    page.Tiff = OpenTiffPage(file, number);
    page.Image = page.Tiff.Image;
    page.Strips = page.Tiff.Tiled || page.Tiff.MayBeUncompressed ? 0 : page.Tiff.BlockCount;
    page.Container = "TIFF";
    page.Layout = page.Tiff.Tiled ? "tiles of " + std::to_string(page.Tiff.BlockWidth) + " x " +
                                        std::to_string(page.Tiff.CodedHeight)
                                  : "strips of " + std::to_string(page.Tiff.BlockHeight) + " rows";
    return page;
}

OpenPage OpenFrom(PdfFile& file, unsigned number) {
    OpenPage page;
    page.Pdf = ReadPdfImage(file, number);
    page.Image = page.Pdf.Image;
    page.LinesAreRows = !HasOtherColumns(page.Pdf);
    page.Strips = page.LinesAreRows ? 1 : 0;
    page.Container = "PDF";
    page.Layout = "a picture on page " + std::to_string(file.Pictures[number - 1].Page) + " of " +
                  std::to_string(file.DocumentPages);
    return page;
}

LoadedBlocks LoadFrom(const standin::Filter& filter, PageFile& file, OpenPage& page,
                      const standin::LoadOptions& options, bool findFaults) {
    LoadedBlocks blocks = file.Tiff ? LoadTiffPage(filter, *file.Tiff, page.Tiff, options, findFaults)
                                    : LoadPdfImage(filter, std::move(page.Pdf), options, findFaults);
    if (blocks.Loaded.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(blocks.Loaded.Status));
    return blocks;
}

bool MayCopy(const OpenPage& page, CodedData wanted) {
    if (page.Image.LoadInfo.Format != FORMAT_FAX_G4)
        return false;
    return wanted == CodedData::AnyStrips ? page.Strips != 0
                                          : wanted == CodedData::OneStrip && page.Strips == 1;
}

// Strips that share bytes would become much more than they are.
bool ShareBytes(const standin::Blocks& data) {
    return std::accumulate(data.ByteCounts.begin(), data.ByteCounts.end(), uint64_t{0}) > data.Bytes.size();
}

CodedPage CodedPageOf(const _LOADINFO& info, int orientation, LoadedBlocks blocks) {
    CodedPage coded;
    coded.Width = static_cast<unsigned>(info.Width);
    coded.Height = static_cast<unsigned>(info.Height);
    coded.BlackIsZero = (info.Flags & LOADINFO_INVERTED) != 0;
    coded.XResolution = info.XResolution;
    coded.YResolution = info.YResolution;
    coded.Orientation = orientation;
    coded.Strips = std::move(blocks.Data);
    coded.Memory = std::move(blocks.DataMemory);
    if ((info.Flags & LOADINFO_REVERSED_BITS) != 0)
        TIFFReverseBits(coded.Strips.Bytes.data(), static_cast<tmsize_t>(coded.Strips.Bytes.size()));
    return coded;
}

} // namespace

void ClosePdf::operator()(PdfFile* file) const {
    delete file;
}

bool IsPageFile(const std::string& name) {
    return IsTiff(name) || IsPdf(name);
}

PageFile OpenPageFile(const std::string& name, const std::string& password) {
    PageFile file;
    if (IsTiff(name))
        file.Tiff = std::make_unique<TiffFile>(name, "rm");
    else
        file.Pdf.reset(new PdfFile(name, password));
    return file;
}

unsigned CountPages(PageFile& file) {
    return file.Tiff ? CountTiffPages(*file.Tiff) : static_cast<unsigned>(file.Pdf->Pictures.size());
}

void TellAbout(PageFile& file) {
    if (file.Pdf)
        TellAboutPdf(*file.Pdf);
}

PageNumbers PageRange(std::optional<int64_t> asked, unsigned pages) {
    if (!asked)
        return {1, pages};
    if (*asked < 1 || *asked > pages)
        throw std::runtime_error("there is no page " + std::to_string(*asked) + "; the file has " +
                                 std::to_string(pages));
    return {static_cast<unsigned>(*asked), static_cast<unsigned>(*asked)};
}

void ForEachPage(const std::string& name, const std::string& password, std::optional<int64_t> asked,
                 const std::function<void(PageFile& file, unsigned number, unsigned pages)>& examine,
                 const std::function<void(unsigned number, const std::string& reason)>& failed) {
    PageFile file = OpenPageFile(name, password);
    const unsigned pages = CountPages(file);
    TellAbout(file);
    const auto [first, last] = PageRange(asked, pages);
    for (unsigned number = first; number <= last; ++number) {
        try {
            examine(file, number, pages);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const MemoryShortage&) {
            throw;
        } catch (const std::exception& error) { // the pages behind it may be good
            failed(number, error.what());
        }
    }
}

StoredPage LoadStoredPage(const standin::Filter& filter, PageFile& file, unsigned number,
                          const standin::LoadOptions& options, const PageExtras& extras) {
    OpenPage page = file.Tiff ? OpenFrom(*file.Tiff, number) : OpenFrom(*file.Pdf, number);
    StoredPage stored;
    stored.Image = page.Image;
    stored.Container = page.Container;
    stored.Layout = page.Layout;
    const _LOADINFO& info = page.Image.LoadInfo;
    if (MayCopy(page, extras.Coded)) {
        standin::LoadOptions trial = options;
        trial.DiscardRows = true;
        LoadedBlocks blocks = LoadFrom(filter, file, page, trial, false);
        if (blocks.Damage.empty() && !ShareBytes(blocks.Data)) {
            const int orientation = blocks.Loaded.Bitmap->Orientation;
            stored.Loaded = std::move(blocks.Loaded);
            stored.Coded = CodedPageOf(info, orientation, std::move(blocks));
            return stored;
        }
        if (file.Pdf) // the trial has taken the data
            page.Pdf = ReadPdfImage(*file.Pdf, number);
    }
    if (!options.DiscardRows)
        ReservePicture(stored.Memory, static_cast<unsigned>(info.Width), info.Height);
    LoadedBlocks blocks = LoadFrom(filter, file, page, options, extras.Faults);
    stored.Loaded = std::move(blocks.Loaded);
    stored.Damage = std::move(blocks.Damage);
    stored.Faults = std::move(blocks.Faults);
    stored.LinesAreRows = page.LinesAreRows;
    return stored;
}

} // namespace kfax
