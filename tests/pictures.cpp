#include "tests/pictures.h"

#include <utility>

namespace {

bool Pixel(const Bytes& row, size_t x) {
    return (row[x / 8] >> (7 - x % 8) & 1) != 0;
}

void SetPixel(Bytes& row, size_t x) {
    row[x / 8] |= static_cast<uint8_t>(0x80u >> x % 8);
}

// The row above with its changes moved by a few pixels, some of them gone and perhaps one new.
Bytes SteppedRow(std::mt19937& random, const Bytes& above, unsigned width) {
    Line line;
    const auto add = [&](int64_t x) {
        if (x < width && x >= (line.empty() ? 0 : int64_t{line.back()} + 1))
            line.push_back(static_cast<uint32_t>(x));
    };
    for (const uint32_t change : ChangesOf(above, width))
        if (random() % 12 != 0)
            add(int64_t{change} + static_cast<int64_t>(random() % 11) - 5);
    if (random() % 2 == 0)
        add(static_cast<int64_t>(random() % width));
    line.push_back(width);
    Row runs;
    for (uint32_t x = 0; const uint32_t change : line)
        runs.push_back(change - std::exchange(x, change));
    return PackedRow(runs);
}

} // namespace

Picture MakePicture(std::mt19937& random, int kind, unsigned width, size_t rows) {
    Picture picture(rows, Bytes((width + 7) / 8));
    const size_t grain = 1 + random() % 40;
    for (size_t y = 0; y < rows; ++y) {
        bool black = false;
        if (kind == STEPS && y != 0)
            picture[y] = SteppedRow(random, picture[y - 1], width);
        for (size_t x = 0; x < width && (kind != STEPS || y == 0); ++x) {
            switch (kind) {
            case ALL_WHITE:
            case ALL_BLACK:
                black = kind == ALL_BLACK;
                break;
            case ALTERNATING:
                black = (x + y / 3) % 2 != 0;
                break;
            case PAIRS:
                black = (x + y) / 2 % 2 != 0;
                break;
            case NOISE:
                black = random() % 2 != 0;
                break;
            default: // runs that mostly recur a little displaced, some blank rows
                if (y % 5 == 0)
                    black = random() % grain == 0 ? !black : black;
                else
                    black = y % 5 != 4 && x >= y % 5 && Pixel(picture[y - 1], x - y % 5 / 2) &&
                            random() % 50 != 0;
            }
            if (black)
                SetPixel(picture[y], x);
        }
        if (width % 8 != 0)
            picture[y].back() |= static_cast<uint8_t>(random() & (0xFFu >> width % 8));
    }
    return picture;
}

Picture PictureOf(unsigned width, size_t rows, int kind) {
    std::mt19937 random(width);
    return MakePicture(random, kind, width, rows);
}

Bytes Joined(const Picture& rows) {
    Bytes bytes;
    for (const Bytes& row : rows)
        bytes.insert(bytes.end(), row.begin(), row.end());
    return bytes;
}

Bytes PackedRow(const Row& runs) {
    size_t width = 0;
    for (const unsigned run : runs)
        width += run;
    Bytes row((width + 7) / 8);
    size_t x = 0;
    for (size_t i = 0; i < runs.size(); ++i)
        for (unsigned n = 0; n < runs[i]; ++n, ++x)
            if (i % 2 != 0)
                SetPixel(row, x);
    return row;
}

Line ChangesOf(const Bytes& row, unsigned width) {
    Line changes;
    for (uint32_t x = 0; x < width; ++x)
        if (Pixel(row, x) != (changes.size() % 2 != 0))
            changes.push_back(x);
    return changes;
}

Line ChangesOf(const Row& runs) {
    Line changes;
    uint32_t x = 0;
    for (size_t i = 0; i + 1 < runs.size(); ++i) {
        x += runs[i];
        if (!changes.empty() && changes.back() == x)
            changes.pop_back();
        else
            changes.push_back(x);
    }
    if (!runs.empty())
        x += runs.back();
    if (!changes.empty() && changes.back() == x)
        changes.pop_back(); // the right edge is no change
    return changes;
}

std::vector<Line> LinesOf(const Picture& picture, unsigned width) {
    std::vector<Line> lines;
    for (const Bytes& row : picture)
        lines.push_back(ChangesOf(row, width));
    return lines;
}

std::vector<Line> LinesOf(const Rows& rows) {
    std::vector<Line> lines;
    for (const Row& row : rows)
        lines.push_back(ChangesOf(row));
    return lines;
}
