// The two forms of the row scan against each other and against a scan pixel by pixel.
#include "API/Filters/Fax/Common/Tif_faxx/change_list.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

std::vector<uint32_t> changesOf(const std::vector<uint8_t>& row, uint32_t width) {
    std::vector<uint32_t> changes;
    unsigned before = 0;
    for (uint32_t x = 0; x < width; ++x) {
        const unsigned pixel = unsigned{row[x / 8]} >> (7 - x % 8) & 1u;
        if (pixel != before)
            changes.push_back(width - x);
        before = pixel;
    }
    changes.insert(changes.end(), 3, 0);
    return changes;
}

TEST(ChangeList, BothFormsFindEveryChange) {
    std::mt19937 random(7);
    for (const uint32_t width : {1u, 7u, 8u, 63u, 64u, 65u, 127u, 319u, 320u, 1728u, 2563u}) {
        for (unsigned density : {0u, 1u, 8u, 128u, 255u}) {
            std::vector<uint8_t> row((width + 7) / 8);
            for (uint8_t& byte : row)
                byte = random() % 256 < density ? static_cast<uint8_t>(random()) : uint8_t{0};
            const std::vector<uint32_t> expected = changesOf(row, width);
            for (const auto list : {faxx::ListChangesAnywhere, faxx::ListChangesWithInstruction}) {
                if (list == faxx::ListChangesWithInstruction && !faxx::HasBitCounting())
                    continue;
                std::vector<uint32_t> found(width + 3, 0xAAAAAAAA);
                CCITTG34 record{};
                record.Width = width;
                record.CodingLine = found.data();
                list(&record, row.data());
                found.resize(expected.size());
                EXPECT_EQ(found, expected) << "width " << width << ", density " << density;
            }
        }
    }
}

} // namespace
