// Grids of tiles over a picture, and loads from them.
#pragma once

#include "tests/encode_run.h"
#include "tests/load_run.h"

// A grid of tiles over a picture, with the arrays of its description.
struct Grid {
    Grid(unsigned w, size_t h, unsigned tileWidth, unsigned tileHeight)
        : width(w), height(h), across((w + tileWidth - 1) / tileWidth),
          count(across * ((h + tileHeight - 1) / tileHeight)), offsets(count, 0xAAAAAAAA),
          counts(count, 0xAAAAAAAA), uncompressed(count, 0xAA) {
        info = {tileWidth, tileHeight, offsets.data(), counts.data(), static_cast<uint32_t>(count)};
    }
    size_t RowBytes() const { return (info.TileWidth + 7) / 8; }
    size_t RawSize() const { return RowBytes() * info.TileHeight; }
    // Tile columns begin on byte boundaries; what lies outside the picture is white.
    Picture Tile(const Picture& picture, size_t index) const {
        Picture rows(info.TileHeight, Bytes(RowBytes()));
        for (size_t y = 0; y < info.TileHeight; ++y)
            for (size_t i = 0; i < RowBytes(); ++i) {
                const size_t row = index / across * info.TileHeight + y;
                const size_t byte = index % across * RowBytes() + i;
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

// A load from tiles that the reference encoder made, G4.
struct TiledLoad : LoadRun {
    TiledLoad(const Picture& p, unsigned width, unsigned tileWidth, unsigned tileHeight)
        : LoadRun({}, 68, 0, 0), grid(width, p.size(), tileWidth, tileHeight), picture(p) {
        for (size_t i = 0; i < grid.count; ++i)
            Put(i, CodedPicture(grid.Tile(p, i), tileWidth, 68));
        grid.uncompressed.assign(grid.count, 0);
        bitmap.Width = fileInfo->Width = width;
        bitmap.Height = fileInfo->Height = static_cast<int>(p.size());
    }
    void Put(size_t tile, const Bytes& data) {
        grid.offsets[tile] = static_cast<uint32_t>(file.bytes.size());
        grid.counts[tile] = static_cast<uint32_t>(data.size());
        file.bytes.insert(file.bytes.end(), data.begin(), data.end());
    }
    void MakeRaw(size_t tile) {
        Put(tile, Joined(grid.Tile(picture, tile)));
        grid.uncompressed[tile] = 1;
    }
    int Load() {
        return K_LoadTiledFax(dispatch.get(), file.Handle(), &Info(), &grid.info, fileInfo.get(), &bitmap,
                              callback, 1, this, grid.uncompressed.data());
    }

    Grid grid;
    Picture picture;
};
