// A contact sheet: every page shrunk by the share of black in the box of pixels that becomes one, then the
// cells in rows.
#include "tools/kfax/contact_sheet.h"

#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/base/picture.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/pages.h"
#include "tools/kfax/write/output_file.h"
#include "tools/kfax/write/picture_output.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>

namespace kfax {

namespace {

constexpr int kSmallestCell = 16;
constexpr int kLargestCell = 4096;
constexpr size_t kMargin = 8;
constexpr uint8_t kPaper = 192;
constexpr uint8_t kFrame = 128;
constexpr uint8_t kBlack = 0;

constexpr auto kBlackBits = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned value = 0; value < 256; ++value)
        table[value] = static_cast<uint8_t>(std::popcount(value));
    return table;
}();

// The source pixels that become one, in one direction.
struct Span {
    size_t First, Last;
};

std::vector<Span> Spans(size_t count, size_t source) {
    std::vector<Span> spans(count);
    for (size_t i = 0; i < count; ++i) {
        const size_t first = i * source / count;
        spans[i] = {first, std::max(first + 1, (i + 1) * source / count)};
    }
    return spans;
}

// Adds the black pixels of each span of a row. before: work area, a number for each byte and one more.
void AddBlack(const uint8_t* row, size_t rowBytes, const std::vector<Span>& spans,
              std::vector<size_t>& before, std::vector<size_t>& black) {
    before[0] = 0;
    for (size_t byte = 0; byte < rowBytes; ++byte)
        before[byte + 1] = before[byte] + kBlackBits[row[byte]];
    const auto blackBefore = [&](size_t x) {
        return before[x / 8] + (x % 8 != 0 ? kBlackBits[unsigned{row[x / 8]} >> (8 - x % 8)] : 0u);
    };
    for (size_t i = 0; i < spans.size(); ++i)
        black[i] += blackBefore(spans[i].Last) - blackBefore(spans[i].First);
}

GreyPicture Shrink(const Picture& picture, size_t cell) {
    const bool known = picture.XResolution > 0 && picture.YResolution > 0;
    const double stretch = known ? static_cast<double>(picture.XResolution) / picture.YResolution : 1;
    const auto width = static_cast<double>(picture.Width);
    const double height = static_cast<double>(picture.Height) * stretch;
    const double scale =
        std::min({1.0, static_cast<double>(cell) / width, static_cast<double>(cell) / height});
    GreyPicture small;
    small.Width = std::clamp<size_t>(static_cast<size_t>(std::lround(width * scale)), 1, cell);
    small.Height = std::clamp<size_t>(static_cast<size_t>(std::lround(height * scale)), 1, cell);
    small.Pixels.reserve(small.Width * small.Height);
    const std::vector<Span> columns = Spans(small.Width, picture.Width);
    std::vector<size_t> before(picture.RowBytes + 1);
    std::vector<size_t> black(small.Width);
    for (const Span& rows : Spans(small.Height, picture.Height)) {
        std::fill(black.begin(), black.end(), 0);
        for (size_t row = rows.First; row < rows.Last; ++row)
            AddBlack(picture.Pixels.data() + row * picture.RowBytes, picture.RowBytes, columns, before,
                     black);
        for (size_t x = 0; x < small.Width; ++x) {
            const size_t area = (columns[x].Last - columns[x].First) * (rows.Last - rows.First);
            small.Pixels.push_back(static_cast<uint8_t>(255 - 255 * black[x] / area));
        }
    }
    return small;
}

struct Cell {
    MemoryShare Memory;
    GreyPicture Small; // empty: nothing could be read
    bool Damaged = false;
};

struct Canvas {
    GreyPicture& Sheet;
    size_t Left, Top;

    void Put(size_t x, size_t y, uint8_t grey) const {
        Sheet.Pixels[(Top + y) * Sheet.Width + Left + x] = grey;
    }
    void Frame(size_t width, size_t height, size_t thickness, uint8_t grey) const {
        for (size_t y = 0; y < height; ++y)
            for (size_t x = 0; x < width; ++x)
                if (std::min({x, y, width - 1 - x, height - 1 - y}) < thickness)
                    Put(x, y, grey);
    }
};

void DrawCell(const Canvas& canvas, const Cell& cell, size_t size) {
    if (cell.Small.Pixels.empty()) {
        canvas.Frame(size, size, 1, kFrame);
        for (size_t i = 0; i < size; ++i) {
            canvas.Put(i, i, kFrame);
            canvas.Put(size - 1 - i, i, kFrame);
        }
        return;
    }
    const Canvas centred{canvas.Sheet, canvas.Left + (size - cell.Small.Width) / 2,
                         canvas.Top + (size - cell.Small.Height) / 2};
    for (size_t y = 0; y < cell.Small.Height; ++y)
        for (size_t x = 0; x < cell.Small.Width; ++x)
            centred.Put(x, y, cell.Small.Pixels[y * cell.Small.Width + x]);
    if (cell.Damaged)
        centred.Frame(cell.Small.Width, cell.Small.Height, std::max<size_t>(size / 64, 2), kBlack);
}

GreyPicture LayOut(const std::vector<Cell>& cells, size_t size, MemoryShare& memory) {
    const auto columns =
        std::max<size_t>(static_cast<size_t>(std::ceil(std::sqrt(static_cast<double>(cells.size())))), 1);
    const size_t rows = (cells.size() + columns - 1) / columns;
    const size_t step = size + kMargin;
    GreyPicture sheet;
    sheet.Width = columns * step + kMargin;
    sheet.Height = rows * step + kMargin;
    memory.Add(uint64_t{sheet.Width} * sheet.Height);
    sheet.Pixels.assign(sheet.Width * sheet.Height, kPaper);
    for (size_t i = 0; i < cells.size(); ++i)
        DrawCell({sheet, kMargin + i % columns * step, kMargin + i / columns * step}, cells[i], size);
    return sheet;
}

} // namespace

int MakeContactSheet(const standin::Filter& filter, const BatchOptions& run, const InputOptions& in,
                     int cellSize, const Output& output) {
    if (cellSize < kSmallestCell || cellSize > kLargestCell)
        throw UsageError("--thumbnail must be " + std::to_string(kSmallestCell) + " to " +
                         std::to_string(kLargestCell) + " pixels");
    if (output.Kind != OutputKind::Png)
        throw UsageError("a sheet of thumbnails is a PNG picture: name it .png");
    const std::vector<std::string> inputs = ListInputs(run);
    KeepInputs(inputs);
    const auto size = static_cast<size_t>(cellSize);
    std::vector<std::vector<Cell>> cellsOf(inputs.size());
    const int result = RunBatch(inputs, run, "shown", [&](size_t index, Report& report) {
        const std::string& file = inputs[index];
        std::vector<Cell>& cells = cellsOf[index];
        cells.clear(); // of a trial that memory was short for
        Attempt(file, report, [&] {
            VisitPages(filter, file, in, {WantedPages::All, true}, [&](Page& page, unsigned /*number*/) {
                if (!page.Damage.empty()) {
                    Complain(file, "damaged: " + page.Damage);
                    report.Result = Outcome::Damaged;
                }
                const bool damaged = !page.Damage.empty();
                MemoryShare memory;
                memory.Add(uint64_t{size} * size);
                cells.push_back({std::move(memory), Shrink(FinishedPicture(page, output), size), damaged});
            });
        });
        if (report.Result == Outcome::Failed)
            cells.emplace_back();
    });

    std::vector<Cell> cells;
    for (std::vector<Cell>& some : cellsOf)
        std::move(some.begin(), some.end(), std::back_inserter(cells));
    const bool anything =
        std::any_of(cells.begin(), cells.end(), [](const Cell& cell) { return !cell.Small.Pixels.empty(); });
    if (!anything)
        throw FileError(output.File,
                        "none of the inputs can be shown; nothing is written; see the reasons above");
    OnBehalfOf(output.File, [&] {
        MemoryShare memory;
        const GreyPicture sheet = LayOut(cells, size, memory);
        if (output.File == "-")
            WritePng(sheet, stdout);
        else
            WriteWhole(output.File, [&](std::FILE* file) { WritePng(sheet, file); });
    });
    return result;
}

} // namespace kfax
