// Encoding beside libtiff: the same page, from packed rows in memory to compressed bytes in memory.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"
#include "host/kernel.h"

#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

// A page, and where each side puts its stream.
struct Case {
    Page page;
    std::vector<Page> blocks; // the page, as libtiff takes it
    Coding coding{};
    _BITMAPHANDLE bitmap{};
    std::vector<uint8_t> row;
    _SAVEFILESTRUCT saveFile{};
    std::vector<uint8_t> stream;
    unsigned streamSize = 0;
    TiffPeer peer;
};

// The kernel's part of a save: rows are handed out as they lie in the bitmap.
extern "C" int StartSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, int, unsigned*,
                         unsigned char** rowBuffer, int, void* userData, void*, _SAVEFILESTRUCT** saveFile) {
    Case& c = *static_cast<Case*>(userData);
    *saveBitmap = bitmap;
    *rowBuffer = c.row.data();
    *saveFile = &c.saveFile;
    return SUCCESS;
}

extern "C" int GetRow(_BITMAPHANDLE*, _BITMAPHANDLE*, unsigned char* rowBuffer, unsigned row, int, unsigned,
                      void* userData, void*, _SAVEFILESTRUCT*) {
    Case& c = *static_cast<Case*>(userData);
    std::memcpy(rowBuffer, c.page.Row(row), c.page.RowBytes());
    return SUCCESS;
}

extern "C" int EndSave(_BITMAPHANDLE*, _BITMAPHANDLE**, unsigned*, unsigned char**, _SAVEFILESTRUCT**) {
    return SUCCESS;
}

void SaveWithFilter(Case& c) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    if (K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_WRITE, c.stream.data(), c.stream.size()) !=
        SUCCESS)
        throw std::runtime_error("no memory redirection");
    _SAVEDISPATCH dispatch{};
    dispatch.Bitmap = &c.bitmap;
    dispatch.StartCallback = StartSave;
    dispatch.GetRowCallback = GetRow;
    dispatch.EndCallback = EndSave;
    const int status =
        K_SaveRawFax(&dispatch, handle, &c.bitmap, 1, static_cast<unsigned>(FormatOf(c.coding)), 0, &c,
                     nullptr, &c.streamSize, FAX_BYTE_TRAILER, nullptr, nullptr);
    K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    if (status != SUCCESS)
        throw std::runtime_error("the save failed");
}

void RegisterCase(PageKind kind, PageSize size, Coding coding) {
    const auto c = std::make_shared<Case>();
    c->page = MakePage(kind, size);
    c->blocks = {c->page};
    c->coding = coding;
    c->bitmap.Width = size.width;
    c->bitmap.Height = static_cast<int>(size.height);
    c->bitmap.BytesPerLine = c->page.RowBytes();
    c->bitmap.YResolution = 204;
    c->row.resize(c->page.RowBytes());
    c->saveFile.NoInvert = 1;
    c->stream.resize(c->page.rows.size() * 4);
    const Layout whole{0, size.height};
    RegisterPair(
        std::string("encode/") + CodingName(coding) + "/" + PageTitle(kind, size),
        [c] { SaveWithFilter(*c); }, [c, whole] { c->peer.Encode(c->page, c->blocks, c->coding, whole); });
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    return bench::RunPairs(argc, argv, [] { bench::ForEachPage(bench::RegisterCase); });
}
