// Decoding beside libtiff: the same strip, from compressed bytes in memory to packed rows in memory.
#include "bench/filter_side.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

// A page, coded by libtiff, and what each side decodes it into.
struct Case {
    TiffPeer peer;
    std::vector<uint8_t> strip;
    Page ours;
    Page theirs;
    int format = 0;
};

void LoadOurs(Case& c) {
    LoadWithFilter(c.strip, c.format, c.ours);
}

std::shared_ptr<Case> MakeCase(PageKind kind, PageSize size, Coding coding) {
    Page page = MakePage(kind, size);
    const Layout whole{0, page.height};
    std::vector<Page> blocks{page};
    auto c = std::make_shared<Case>();
    c->peer.Encode(page, blocks, coding, whole);
    c->peer.OpenForDecoding();
    c->strip = c->peer.Compressed(0);
    c->ours = c->theirs = page;
    std::fill(c->ours.rows.begin(), c->ours.rows.end(), uint8_t{0xAA});
    c->format = FormatOf(coding);

    LoadOurs(*c);
    c->peer.Decode(0, c->theirs);
    if (c->ours.rows != page.rows || c->theirs.rows != page.rows)
        throw std::runtime_error("a decoded page differs from the original");
    return c;
}

void RegisterCase(PageKind kind, PageSize size, Coding coding) {
    const auto c = MakeCase(kind, size, coding);
    RegisterPair(
        std::string("decode/") + CodingName(coding) + "/" + PageTitle(kind, size), [c] { LoadOurs(*c); },
        [c] { c->peer.Decode(0, c->theirs); });
}

// The floor under every decoder: a page of nothing beside what it takes to clear its rows.
void RegisterWhitePage(Coding coding) {
    const PageSize size = kPageSizes[0];
    const auto c = MakeCase(PageKind::AllWhite, size, coding);
    RegisterPair(
        std::string("decode/") + CodingName(coding) + "/" + PageTitle(PageKind::AllWhite, size),
        [c] { LoadOurs(*c); },
        [c] {
            std::memset(c->theirs.rows.data(), 0, c->theirs.rows.size());
            benchmark::ClobberMemory();
        },
        "memset");
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    return bench::RunPairs(argc, argv, [] {
        bench::ForEachPage(bench::RegisterCase);
        for (const bench::Coding coding : bench::kAllCodings)
            bench::RegisterWhitePage(coding);
    });
}
