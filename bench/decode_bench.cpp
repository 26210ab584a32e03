// Decoding beside libtiff: the same strip, from compressed bytes in memory to packed rows in memory.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"
#include "host/kernel.h"

#include <cstdio>
#include <exception>
#include <stdexcept>

namespace bench {
namespace {

int FormatOf(Coding coding) {
    switch (coding) {
    case Coding::G4:
        return FORMAT_FAX_G4;
    case Coding::G3OneDimensional:
        return FORMAT_FAX_G3_1D;
    case Coding::G3TwoDimensional:
        break;
    }
    return FORMAT_FAX_G3_2D;
}

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
    int format;
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

void RegisterCase(PageKind kind, unsigned width, unsigned height, Coding coding) {
    Page page = MakePage(kind, width, height);
    const auto c = std::make_shared<Case>();
    c->peer.Encode(page, coding);
    c->strip = c->peer.Strip();
    c->ours = c->theirs = Page{width, height, std::vector<uint8_t>(page.rows.size(), 0xAA)};
    c->format = FormatOf(coding);
    c->peer.OpenForDecoding();

    const auto loadTheirs = [c] {
        if (!c->peer.DecodeInto(c->theirs.rows))
            throw std::runtime_error("libtiff cannot decode its strip");
    };
    LoadWithFilter(*c);
    loadTheirs();
    if (c->ours.rows != page.rows || c->theirs.rows != page.rows)
        throw std::runtime_error("a decoded page differs from the original");
    const std::string name = std::string("decode/") + CodingName(coding) + "/" + PageName(kind) + "/" +
                             std::to_string(width) + "x" + std::to_string(height);
    RegisterPair(
        name, [c] { LoadWithFilter(*c); }, loadTheirs);
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    try {
        for (const auto coding : {Coding::G4, Coding::G3OneDimensional, Coding::G3TwoDimensional})
            for (const auto& [width, height] : {std::pair{1728u, 2200u}, std::pair{4960u, 7016u}})
                for (const PageKind kind : kAllPageKinds)
                    RegisterCase(kind, width, height, coding);
        return RunPairs(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "decode_bench: %s\n", error.what());
        return 1;
    }
}
