// What kfax makes of a file that is no raw fax: the pages of a TIFF file, a PNG or PBM picture. The file is
// the whole input.
#include "fuzz/harness.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/picture.h"
#include "tools/kfax/read/picture_input.h"
#include "tools/kfax/read/repair.h"
#include "tools/kfax/read/tiff_input.h"

#include <algorithm>
#include <exception>

namespace {

constexpr unsigned kMostPages = 3;
constexpr size_t kPngWidthAt = 16; // in the header chunk, with the height behind it

uint64_t BigEndian32(const uint8_t* bytes) {
    return uint64_t{bytes[0]} << 24 | uint64_t{bytes[1]} << 16 | uint64_t{bytes[2]} << 8 | bytes[3];
}

// A few bytes of PNG can stand for a picture of any size.
bool IsLargePng(const uint8_t* data, size_t size) {
    return size >= kPngWidthAt + 8 && data[0] == 0x89 &&
           BigEndian32(data + kPngWidthAt) * BigEndian32(data + kPngWidthAt + 4) > 1 << 20;
}

void LoadPages(const std::string& name) {
    kfax::TiffFile file(name, "rm");
    const unsigned pages = std::min(kfax::CountTiffPages(file), kMostPages);
    for (unsigned number = 1; number <= pages; ++number) {
        try {
            const kfax::TiffPage page = kfax::OpenTiffPage(file, number);
            const _FILEINFOA& info = page.Image.FileInfo.Declared;
            const uint64_t rowPixels = std::max<uint64_t>(info.Width, page.BlockWidth);
            if (rowPixels * static_cast<uint32_t>(info.Height) > fuzz::kMostPixels)
                continue;
            const kfax::LoadedBlocks blocks =
                kfax::LoadTiffPage(fuzz::TheFilter(), file, page, standin::LoadOptions{}, true);
            if (blocks.Loaded.Status != SUCCESS)
                continue;
            kfax::RepairLines(*blocks.Loaded.Bitmap, blocks.Faults);
            kfax::Picture picture = kfax::UprightPicture(*blocks.Loaded.Bitmap);
            kfax::MirrorRows(picture);
        } catch (const std::exception&) { // the reason, for a person
        }
    }
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    if (IsLargePng(data, size))
        return;
    const NamedFile file(Bytes(data, data + size));
    kfax::BeQuiet();
    try {
        if (kfax::IsTiff(file.Name()))
            LoadPages(file.Name());
        else if (kfax::MemoryShare memory; kfax::IsPicture(file.Name()))
            kfax::UprightPicture(*kfax::ReadPicture(file.Name(), 128, memory));
    } catch (const std::exception&) { // the reason, for a person
    }
}
