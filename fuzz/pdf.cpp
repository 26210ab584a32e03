// What kfax makes of a PDF file, which is the whole input.
#include "fuzz/harness.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/read/pdf_input.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr size_t kMostPictures = 3;

void LoadPictures(kfax::PdfFile& file) {
    for (unsigned number = 1; number <= std::min(file.Pictures.size(), kMostPictures); ++number) {
        try {
            kfax::PdfImage image = kfax::ReadPdfImage(file, number);
            const _FILEINFOA& info = image.Image.FileInfo.Declared;
            const uint64_t rowPixels = std::max<uint64_t>(info.Width, image.Data.Width);
            if (rowPixels * static_cast<uint32_t>(info.Height) > fuzz::kMostPixels)
                continue;
            kfax::LoadPdfImage(fuzz::TheFilter(), std::move(image), standin::LoadOptions{}, true);
        } catch (const std::exception&) { // the reason, for a person
        }
    }
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    const NamedFile file(Bytes(data, data + size));
    kfax::BeQuiet();
    try {
        kfax::PdfFile pdf(file.Name(), "");
        LoadPictures(pdf);
        kfax::TellAboutPdf(pdf);
    } catch (const std::exception&) { // the reason, for a person
    }
}
