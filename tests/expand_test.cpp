// Rows of every density, too long and too short ones among them, expanded as pixel by pixel; packed rows
// copied.
#include "host/kernel.h"
#include "host/standin/fast/copy_row.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<uint8_t> Expanded(const std::vector<unsigned short>& runs, unsigned width) {
    std::vector<uint8_t> packed((width + 7) / 8);
    size_t x = 0;
    for (size_t i = 0; i < runs.size(); ++i)
        for (unsigned n = 0; n < runs[i] && x < width; ++n, ++x)
            if (i % 2 != 0)
                packed[x / 8] |= static_cast<uint8_t>(0x80 >> x % 8);
    return packed;
}

TEST(ExpandRows, EveryDensityAndLength) {
    std::mt19937 random(11);
    for (const unsigned width : {1u, 8u, 63u, 64u, 65u, 200u, 1728u, 2563u}) {
        for (const unsigned longest : {1u, 3u, 9u, 40u, 800u}) {
            for (const unsigned rare : {0u, 70u, 65535u}) { // a run of that length now and then
                for (const unsigned pixels : {width / 2, width, width + 99}) {
                    std::vector<unsigned short> runs;
                    for (unsigned sum = 0; sum < pixels; sum += runs.back())
                        runs.push_back(static_cast<unsigned short>(
                            rare != 0 && random() % 50 == 0 ? rare : random() % (longest + 1)));
                    std::vector<unsigned short> row(2);
                    const auto count = static_cast<uint32_t>(runs.size());
                    std::memcpy(row.data(), &count, sizeof count);
                    row.insert(row.end(), runs.begin(), runs.end());

                    std::vector<uint8_t> expected = Expanded(runs, width);
                    std::vector<uint8_t> packed(expected.size() + 8, 0xA5);
                    expected.resize(packed.size(), 0xA5);
                    ASSERT_EQ(K_ExpandRows(row.data(), packed.data(), width, 1), SUCCESS);
                    ASSERT_EQ(packed, expected)
                        << "width " << width << ", runs up to " << longest << ", rarely " << rare;
                }
            }
        }
    }
}

TEST(CopyRow, EveryLengthAndPlaceWithinTheSlack) {
    std::vector<uint8_t> source(5 + 320 + standin::kRowSlack);
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = static_cast<uint8_t>(i * 7 + 1);
    for (size_t bytes = 0; bytes <= 320; ++bytes) {
        const size_t place = bytes % 37;
        std::vector<uint8_t> target(place + bytes + standin::kRowSlack, 0xAA);
        const std::vector<uint8_t> from(
            source.begin() + 5, source.begin() + static_cast<ptrdiff_t>(5 + bytes + standin::kRowSlack));
        standin::CopyRow(target.data() + place, from.data(), bytes);
        ASSERT_TRUE(std::equal(from.begin(), from.begin() + static_cast<ptrdiff_t>(bytes),
                               target.begin() + static_cast<ptrdiff_t>(place)))
            << bytes << " bytes";
        ASSERT_EQ(std::count(target.begin(), target.begin() + static_cast<ptrdiff_t>(place), 0xAA),
                  static_cast<ptrdiff_t>(place));
    }
}

} // namespace
