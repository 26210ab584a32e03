// Encoding beside libtiff: the same page, from packed rows in memory to compressed bytes in memory.
#include "bench/filter_side.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"

namespace bench {
namespace {

struct Case {
    Case(const Page& page, int format) : ours(page, format), blocks{page} {}

    Save ours;
    std::vector<Page> blocks; // the page, as libtiff takes it
    TiffPeer peer;
};

void RegisterCase(PageKind kind, PageSize size, Coding coding) {
    const auto c = std::make_shared<Case>(MakePage(kind, size), FormatOf(coding));
    const Layout whole{0, size.height};
    RegisterPair(
        std::string("encode/") + CodingName(coding) + "/" + PageTitle(kind, size),
        [c] { SaveWithFilter(c->ours); },
        [c, coding, whole] { c->peer.Encode(c->ours.page, c->blocks, coding, whole); });
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    return bench::RunPairs(argc, argv, [] { bench::ForEachPage(bench::RegisterCase); });
}
