// Grids of tiles over a picture.
#pragma once

#include <algorithm>

#include "tests/pictures.h"

// A grid of tiles over a picture, with the arrays of its description.
struct Grid {
    Grid(unsigned w, size_t h, unsigned tileWidth, unsigned tileHeight)
        : width(w), height(h), across((w + tileWidth - 1) / tileWidth),
          count(across * ((h + tileHeight - 1) / tileHeight)), offsets(count, 0xAAAAAAAA),
          counts(count, 0xAAAAAAAA), uncompressed(count, 0xAA) {
        info.TileWidth = tileWidth;
        info.TileHeight = tileHeight;
        info.TileOffsets = offsets.data();
        info.TileByteCounts = counts.data();
        info.TileCount = static_cast<uint32_t>(count);
    }
    size_t rowBytes() const { return (info.TileWidth + 7) / 8; }
    size_t rawSize() const { return rowBytes() * info.TileHeight; }
    // Tile columns begin on byte boundaries; what lies outside the picture is white.
    Picture tile(const Picture& picture, size_t index) const {
        Picture rows(info.TileHeight, Bytes(rowBytes()));
        for (size_t y = 0; y < info.TileHeight; ++y)
            for (size_t i = 0; i < rowBytes(); ++i) {
                const size_t row = index / across * info.TileHeight + y;
                const size_t byte = index % across * rowBytes() + i;
                if (row < height && byte < picture[row].size())
                    rows[y][i] = static_cast<uint8_t>(picture[row][byte] &
                                                      (byte == width / 8 ? ~(0xFFu >> width % 8) : 0xFFu));
            }
        return rows;
    }

    unsigned width;
    size_t height, across, count;
    std::vector<uint32_t> offsets, counts;
    Bytes uncompressed;
    _FAXTILEINFO info = {};
};

inline Bytes joined(const Picture& rows) {
    Bytes bytes;
    for (const Bytes& row : rows)
        bytes.insert(bytes.end(), row.begin(), row.end());
    return bytes;
}

inline size_t callsNamed(const char* name) {
    return static_cast<size_t>(
        std::count_if(testKernel().trace.begin(), testKernel().trace.end(),
                      [name](const std::string& entry) { return entry.rfind(name, 0) == 0; }));
}
