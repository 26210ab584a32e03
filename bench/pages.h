// Pages like those that fax codecs meet, generated, so that benchmarks need no sample files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

enum class PageKind { Text, LineArt, OrderedDither, ErrorDiffusion, Noisy, NearlyBlank, AllWhite };

inline constexpr PageKind kAllPageKinds[] = {PageKind::Text,          PageKind::LineArt,
                                             PageKind::OrderedDither, PageKind::ErrorDiffusion,
                                             PageKind::Noisy,         PageKind::NearlyBlank};

struct PageSize {
    unsigned width;
    unsigned height;
};

inline constexpr PageSize kPageSizes[] = {
    {1728, 2200}, {2480, 3508}, {4960, 7016}}; // 200, 300, 600 dots per inch

const char* PageName(PageKind kind);

// "text/1728x2200"
std::string PageTitle(PageKind kind, PageSize size);

// A picture of packed rows, most significant bit first, 1 = black, (width + 7) / 8 bytes a row.
struct Page {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<uint8_t> rows;

    unsigned RowBytes() const { return (width + 7) / 8; }
    uint8_t* Row(unsigned y) { return rows.data() + size_t{y} * RowBytes(); }
};

// The same arguments always give the same page. Throws std::runtime_error where a font is missing.
Page MakePage(PageKind kind, PageSize size);

} // namespace bench
