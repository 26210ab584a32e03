// Strips and tiles beside libtiff: every block of a page through the buffer entries, as a container filter
// calls them. Small blocks show what a call costs by itself.
#include "API/Filters/Fax/Fax.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"

#include <stdexcept>

namespace bench {
namespace {

constexpr PageSize kSize{4960, 7016};
constexpr Layout kLayouts[] = {{0, 8},     {0, 64},    {0, kSize.height},
                               {256, 256}, {512, 512}, {0, kSize.height, true}};
constexpr PageKind kKinds[] = {PageKind::Text, PageKind::ErrorDiffusion, PageKind::NearlyBlank};

struct Case {
    Page page;
    Coding coding{};
    Layout layout{};
    std::vector<Page> blocks;
    std::vector<std::vector<uint8_t>> compressed;
    std::vector<Page> decoded;
    std::vector<uint8_t> stream;
    TiffPeer peer;
};

// libtiff 4.5 complains of one-dimensional rows with a run for every pixel in tiles.
bool OverrunsPeer(PageKind kind, Coding coding, Layout layout) {
    return layout.blockWidth != 0 && coding != Coding::G4 && kind == PageKind::ErrorDiffusion;
}

// Blocks are measured in one coding of either group; how EOLs lie, in those that have them.
bool IsMeasured(Coding coding, Layout layout) {
    return layout.alignedEols ? coding != Coding::G4 : coding != Coding::G3TwoDimensional;
}

std::string LayoutName(Layout layout) {
    if (layout.alignedEols)
        return "one-strip-aligned-eols";
    if (layout.blockWidth != 0)
        return "tiles-" + std::to_string(layout.blockWidth) + "x" + std::to_string(layout.blockHeight);
    return layout.blockHeight == kSize.height ? "one-strip"
                                              : "strips-of-" + std::to_string(layout.blockHeight);
}

void Require(int status) {
    if (status != SUCCESS)
        throw std::runtime_error("the filter failed");
}

void DecodeBlocks(Case& c) {
    for (size_t i = 0; i < c.compressed.size(); ++i) {
        Page& block = c.decoded[i];
        Require(fltLoadBuffer(c.compressed[i].data(), c.compressed[i].size(), block.rows.data(),
                              FormatOf(c.coding), static_cast<int>(block.width),
                              static_cast<int>(block.height), 0, 0, 0));
    }
}

void EncodeBlocks(Case& c) {
    for (Page& block : c.blocks) {
        _BITMAPINFOHEADER header{};
        header.Width = static_cast<int>(block.width);
        header.Height = static_cast<int>(block.height);
        header.BitsPerPixel = 1;
        unsigned long long size = c.stream.size();
        Require(fltSaveBuffer(block.rows.data(), &header, c.stream.data(), &size, 0, FAX_BYTE_TRAILER,
                              FormatOf(c.coding), 0, 0));
    }
}

void RegisterCase(PageKind kind, Coding coding, Layout layout) {
    const auto c = std::make_shared<Case>();
    c->page = MakePage(kind, kSize);
    c->coding = coding;
    c->layout = layout;
    c->blocks = c->decoded = CutIntoBlocks(c->page, layout);
    c->stream.resize(c->page.rows.size() * 4);
    c->peer.Encode(c->page, c->blocks, coding, layout);
    c->peer.OpenForDecoding();
    for (unsigned i = 0; i < c->blocks.size(); ++i) {
        c->compressed.push_back(c->peer.Compressed(i));
        std::fill(c->decoded[i].rows.begin(), c->decoded[i].rows.end(), uint8_t{0xAA});
    }
    DecodeBlocks(*c);
    for (size_t i = 0; i < c->blocks.size(); ++i)
        if (c->decoded[i].rows != c->blocks[i].rows)
            throw std::runtime_error("a decoded block differs from the original");

    const std::string name =
        std::string(CodingName(coding)) + "/" + LayoutName(layout) + "/" + PageName(kind);
    RegisterPair(
        "decode/" + name, [c] { DecodeBlocks(*c); },
        [c] {
            for (unsigned i = 0; i < c->blocks.size(); ++i)
                c->peer.Decode(i, c->decoded[i]);
        });
    // A peer of its own: coding replaces the file that the other one reads.
    const auto writer = std::make_shared<TiffPeer>();
    RegisterPair(
        "encode/" + name, [c] { EncodeBlocks(*c); },
        [c, writer] { writer->Encode(c->page, c->blocks, c->coding, c->layout); });
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    return RunPairs(argc, argv, [] {
        for (const Coding coding : kAllCodings)
            for (const Layout layout : kLayouts)
                for (const PageKind kind : kKinds)
                    if (IsMeasured(coding, layout) && !OverrunsPeer(kind, coding, layout))
                        RegisterCase(kind, coding, layout);
    });
}
