// Decoding beside libtiff: the same strip, from compressed bytes in memory to packed rows in memory.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"
#include "host/kernel.h"

#include <algorithm>
#include <stdexcept>

namespace bench {
namespace {

// The kernel's part of a load: each batch goes to its place in the bitmap.
extern "C" int ExpandBatch(_FILEINFOA*, _BITMAPHANDLE*, unsigned short* rows, unsigned, int firstLine,
                           int rowCount, void* userData) {
    Page& page = *static_cast<Page*>(userData);
    return K_ExpandRows(rows, page.Row(static_cast<unsigned>(firstLine)), page.width,
                        static_cast<unsigned>(rowCount));
}

// A page, coded by libtiff, and what each side decodes it into.
struct Case {
    TiffPeer peer;
    std::vector<uint8_t> strip;
    Page ours;
    Page theirs;
    int format = 0;
};

void LoadWithFilter(Case& c) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    if (K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, c.strip.data(), c.strip.size()) != SUCCESS)
        throw std::runtime_error("no memory redirection");
    _LOADDISPATCH dispatch{};
    _LOADINFO info{};
    info.Format = c.format;
    info.Width = static_cast<int>(c.ours.width);
    info.Height = static_cast<int>(c.ours.height);
    info.Flags = LOADINFO_ORIENTATION_1;
    const int status = K_LoadRawFax(&dispatch, handle, &info, nullptr, nullptr, ExpandBatch, 1, &c.ours);
    K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    if (status != SUCCESS || dispatch.Status != 0)
        throw std::runtime_error("the load failed");
}

void RegisterCase(PageKind kind, PageSize size, Coding coding) {
    Page page = MakePage(kind, size);
    const Layout whole{0, page.height};
    std::vector<Page> blocks{page};
    const auto c = std::make_shared<Case>();
    c->peer.Encode(page, blocks, coding, whole);
    c->peer.OpenForDecoding();
    c->strip = c->peer.Compressed(0);
    c->ours = c->theirs = page;
    std::fill(c->ours.rows.begin(), c->ours.rows.end(), uint8_t{0xAA});
    c->format = FormatOf(coding);

    LoadWithFilter(*c);
    c->peer.Decode(0, c->theirs);
    if (c->ours.rows != page.rows || c->theirs.rows != page.rows)
        throw std::runtime_error("a decoded page differs from the original");
    RegisterPair(
        std::string("decode/") + CodingName(coding) + "/" + PageTitle(kind, size),
        [c] { LoadWithFilter(*c); }, [c] { c->peer.Decode(0, c->theirs); });
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    return bench::RunPairs(argc, argv, [] { bench::ForEachPage(bench::RegisterCase); });
}
