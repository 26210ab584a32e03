// A container filter in small: a page as Group 4 strips of 64 rows in a format of this program's own. The
// filter codes and decodes each strip in memory; what surrounds the strips is the container's business.
//
// A file: "STRP", then as 32-bit numbers, low byte first, the width, the height and the size of each strip;
// then the strips.
#include "API/Filters/Fax/Fax.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned kStripRows = 64;
constexpr unsigned kMaxHeight = 1000000;

struct Page {
    unsigned width = 0;
    unsigned height = 0;
    Bytes rows; // (width + 7) / 8 bytes each, 1 = black: as PBM has them, and as the filter wants them
    size_t RowBytes() const { return (size_t{width} + 7) / 8; }
};

Page MakePage(unsigned width, unsigned height) {
    if (width == 0 || width > MAX_BUFFER_WIDTH || height == 0 || height > kMaxHeight)
        throw std::runtime_error("the page is empty or too large");
    Page page{width, height, {}};
    page.rows.resize(page.RowBytes() * height);
    return page;
}

Bytes ReadFile(const char* name) {
    std::ifstream file(name, std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file || bytes.empty())
        throw std::runtime_error("cannot be read, or is empty");
    return bytes;
}

void WriteFile(const char* name, const Bytes& bytes) {
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot be written");
}

Page ParsePbm(const Bytes& bytes) {
    std::istringstream text(std::string(bytes.begin(), bytes.end()));
    std::string magic;
    unsigned width = 0;
    unsigned height = 0;
    if (!(text >> magic >> width >> height) || magic != "P4" || text.get() == EOF)
        throw std::runtime_error("not a binary PBM file without comments");
    Page page = MakePage(width, height);
    const auto wanted = static_cast<std::streamsize>(page.rows.size());
    if (!text.read(reinterpret_cast<char*>(page.rows.data()), wanted))
        throw std::runtime_error("the PBM file ends too early");
    return page;
}

Bytes FormatPbm(const Page& page) {
    const std::string header = "P4\n" + std::to_string(page.width) + ' ' + std::to_string(page.height) + '\n';
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), page.rows.begin(), page.rows.end());
    return bytes;
}

void Put32(Bytes& bytes, size_t number) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<unsigned char>(number >> shift));
}

uint32_t Get32(const Bytes& bytes, size_t at) {
    if (bytes.size() < 4 || at > bytes.size() - 4)
        throw std::runtime_error("the file ends too early");
    return static_cast<uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16) |
           static_cast<uint32_t>(bytes[at + 3]) << 24;
}

unsigned RowsOfStrip(const Page& page, unsigned firstRow) {
    return std::min(kStripRows, page.height - firstRow);
}

Bytes CodeStrip(Page& page, unsigned firstRow) {
    const unsigned rows = RowsOfStrip(page, firstRow);
    _BITMAPINFOHEADER info{};
    info.Width = static_cast<int32_t>(page.width);
    info.Height = static_cast<int32_t>(rows);
    info.BitsPerPixel = 1;
    // At the worst a line takes 13 bits for every two pixels; the end of the stream some bytes more.
    Bytes strip((page.RowBytes() * 8 + 2) * rows + 16);
    unsigned long long size = strip.size();
    const int status = fltSaveBuffer(page.rows.data() + page.RowBytes() * firstRow, &info, strip.data(),
                                     &size, 0, FAX_BYTE_TRAILER, FORMAT_FAX_G4, 0, 0);
    if (status != SUCCESS)
        throw std::runtime_error("a strip cannot be coded, status " + std::to_string(status));
    strip.resize(size);
    return strip;
}

Bytes Save(Page page) {
    Bytes file{'S', 'T', 'R', 'P'};
    Put32(file, page.width);
    Put32(file, page.height);
    Bytes strips;
    for (unsigned row = 0; row < page.height; row += kStripRows) {
        const Bytes strip = CodeStrip(page, row);
        Put32(file, strip.size());
        strips.insert(strips.end(), strip.begin(), strip.end());
    }
    file.insert(file.end(), strips.begin(), strips.end());
    return file;
}

Page Load(Bytes file) {
    if (file.size() < 4 || !std::equal(file.begin(), file.begin() + 4, "STRP"))
        throw std::runtime_error("not a file of strips");
    Page page = MakePage(Get32(file, 4), Get32(file, 8));
    const size_t strips = (page.height + kStripRows - 1) / kStripRows;
    size_t size = 12;
    size_t data = size + 4 * strips;
    for (unsigned row = 0; row < page.height; row += kStripRows, size += 4) {
        const size_t stripSize = Get32(file, size);
        if (data > file.size() || stripSize > file.size() - data)
            throw std::runtime_error("the file ends too early");
        // Rows that a damaged strip does not yield stay white.
        const int status = fltLoadBuffer(
            file.data() + data, stripSize, page.rows.data() + page.RowBytes() * row, FORMAT_FAX_G4,
            static_cast<int>(page.width), static_cast<int>(RowsOfStrip(page, row)), 0, 0, 0);
        if (status != SUCCESS)
            throw std::runtime_error("a strip cannot be decoded, status " + std::to_string(status));
        data += stripSize;
    }
    return page;
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc == 4 ? argv[1] : "";
    if (command != "save" && command != "load") {
        std::cerr << "usage: page_strips save IN.pbm OUT.strips\n       page_strips load IN.strips OUT.pbm\n";
        return 2;
    }
    const char* file = argv[2];
    try {
        const Bytes input = ReadFile(file);
        const Bytes output = command == "save" ? Save(ParsePbm(input)) : FormatPbm(Load(input));
        file = argv[3];
        WriteFile(file, output);
        std::cout << argv[3] << ": " << output.size() << " bytes of " << input.size() << '\n';
    } catch (const std::exception& failure) {
        std::cerr << "page_strips: " << file << ": " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
