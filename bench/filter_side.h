// Our side of the whole-page benchmarks: the filter on the stand-in kernel, from compressed bytes in memory
// to packed rows in memory and back.
#pragma once

#include "bench/pages.h"
#include "host/records.h"

namespace bench {

// Decodes a strip of the page's size into its rows. Throws std::runtime_error when the filter fails.
void LoadWithFilter(const std::vector<uint8_t>& strip, int format, Page& page);

// A page to be coded, and where the stream goes.
struct Save {
    Save(Page source, int formatNumber);
    Save(const Save&) = delete;
    Save& operator=(const Save&) = delete;
    ~Save() = default;

    Page page;
    int format;
    _BITMAPHANDLE bitmap{};
    _SAVEFILESTRUCT saveFile{};
    std::vector<uint8_t> stream; // larger than any code of the page
    unsigned streamSize = 0;     // bytes of it that the last save wrote
};

void SaveWithFilter(Save& save);

} // namespace bench
