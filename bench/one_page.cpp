// Decodes or codes one page once in each coding, for scripts/instructions to count what that takes.
#include "bench/filter_side.h"
#include "bench/libtiff_peer.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string_view>

namespace {

using namespace bench;

constexpr PageSize kSize{1728, 550}; // a quarter of a page says as much

PageKind KindNamed(std::string_view name) {
    for (const PageKind kind : kAllPageKinds)
        if (name == PageName(kind))
            return kind;
    throw std::runtime_error("no such page");
}

void Run(std::string_view operation, std::string_view name) {
    const Page page = MakePage(KindNamed(name), kSize);
    for (const Coding coding : kAllCodings) {
        Save save(page, FormatOf(coding));
        SaveWithFilter(save);
        if (operation == "encode")
            continue;
        save.stream.resize(save.streamSize);
        Page decoded{kSize.width, kSize.height, std::vector<uint8_t>(page.rows.size())};
        LoadWithFilter(save.stream, save.format, decoded);
        if (decoded.rows != page.rows)
            throw std::runtime_error("a page comes back different");
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: one_page decode|encode PAGE\n");
        return 2;
    }
    try {
        Run(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "one_page: %s: %s\n", argv[2], error.what());
        return 1;
    }
    return 0;
}
