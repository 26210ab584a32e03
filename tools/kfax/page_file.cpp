// Loading pages of TIFF and PDF files.
#include "tools/kfax/page_file.h"

#include "tools/kfax/pdf_input.h"

#include <stdexcept>

namespace kfax {

namespace {

StoredPage LoadFromTiff(const standin::Filter& filter, TiffFile& file, unsigned number,
                        const standin::LoadOptions& options, bool findFaults) {
    const TiffPage page = OpenTiffPage(file, number);
    StoredPage stored;
    stored.Image = page.Image;
    stored.Loaded =
        LoadTiffPage(filter, file, page, options, stored.Damage, findFaults ? &stored.Faults : nullptr);
    stored.Container = "TIFF";
    stored.Layout =
        page.Tiled ? "tiles of " + std::to_string(page.BlockWidth) + " x " + std::to_string(page.CodedHeight)
                   : "strips of " + std::to_string(page.BlockHeight) + " rows";
    return stored;
}

StoredPage LoadFromPdf(const standin::Filter& filter, PdfFile& file, unsigned number,
                       const standin::LoadOptions& options, bool findFaults) {
    PdfImage image = ReadPdfImage(file, number);
    StoredPage stored;
    stored.Image = image.Image;
    stored.Loaded =
        LoadPdfImage(filter, image, options, stored.Damage, findFaults ? &stored.Faults : nullptr);
    stored.Container = "PDF";
    stored.Layout = "a picture on page " + std::to_string(file.Pictures[number - 1].Page) + " of " +
                    std::to_string(file.DocumentPages);
    return stored;
}

} // namespace

bool IsPageFile(const std::string& name) {
    return IsTiff(name) || IsPdf(name);
}

PageFile OpenPageFile(const std::string& name, const std::string& password) {
    PageFile file;
    if (IsTiff(name))
        file.Tiff = std::make_unique<TiffFile>(name, "rm");
    else
        file.Pdf = std::make_unique<PdfFile>(name, password);
    return file;
}

unsigned CountPages(PageFile& file) {
    return file.Tiff ? CountTiffPages(*file.Tiff) : static_cast<unsigned>(file.Pdf->Pictures.size());
}

void TellAbout(PageFile& file) {
    if (file.Pdf)
        TellAboutPdf(*file.Pdf);
}

StoredPage LoadStoredPage(const standin::Filter& filter, PageFile& file, unsigned number,
                          const standin::LoadOptions& options, bool findFaults) {
    StoredPage stored = file.Tiff ? LoadFromTiff(filter, *file.Tiff, number, options, findFaults)
                                  : LoadFromPdf(filter, *file.Pdf, number, options, findFaults);
    if (stored.Loaded.Status != SUCCESS)
        throw std::runtime_error(standin::StatusText(stored.Loaded.Status));
    return stored;
}

} // namespace kfax
