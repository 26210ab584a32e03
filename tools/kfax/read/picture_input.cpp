// Reading a picture to be saved as fax: which kind of file it is, and the PBM kind.
#include "tools/kfax/read/picture_input.h"
#include "tools/kfax/base/messages.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/picture.h"
#include "tools/kfax/read/input.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace kfax {

namespace {

[[noreturn]] void ThrowShort(std::FILE* file) {
    throw std::runtime_error(std::ferror(file) != 0 ? SystemReason(errno)
                                                    : "the picture ends early; fetch it again");
}

bool IsSpace(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// The next character of a PBM header or plain body that is neither white space nor in a comment.
int NextCharacter(std::FILE* file) {
    int c = std::getc(file);
    while (IsSpace(c) || c == '#') {
        if (c == '#')
            while (c != '\n' && c != '\r' && c != EOF)
                c = std::getc(file);
        if (c != EOF)
            c = std::getc(file);
    }
    if (c == EOF)
        ThrowShort(file);
    return c;
}

// A number and the single character behind it.
uint64_t ReadNumber(std::FILE* file) {
    uint64_t value = 0;
    int c = NextCharacter(file);
    if (c < '0' || c > '9')
        throw std::runtime_error("the PBM header is damaged; make the picture again");
    for (; c >= '0' && c <= '9'; c = std::getc(file))
        value = value > UINT32_MAX ? value : value * 10 + static_cast<unsigned>(c - '0');
    if (!IsSpace(c))
        throw std::runtime_error("the PBM header is damaged; make the picture again");
    return value;
}

void ReadPackedRow(std::FILE* file, unsigned char* row, size_t width) {
    const size_t bytes = (width + 7) / 8;
    if (std::fread(row, 1, bytes, file) != bytes)
        ThrowShort(file);
    for (size_t i = 0; i < bytes; ++i)
        row[i] = static_cast<unsigned char>(~row[i]);
}

void ReadPlainRow(std::FILE* file, unsigned char* row, size_t width) {
    for (size_t x = 0; x < width; ++x) {
        const int c = NextCharacter(file);
        if (c != '0' && c != '1')
            throw std::runtime_error("the PBM picture has a pixel that is neither 0 nor 1; make it again");
        if (c == '0')
            row[x / 8] |= static_cast<unsigned char>(0x80 >> (x % 8));
    }
}

enum class Kind { Other, Png, Pbm };

Kind KindOf(std::FILE* file) {
    unsigned char start[8] = {};
    const size_t got = std::fread(start, 1, sizeof start, file);
    std::rewind(file);
    if (got == sizeof start && std::memcmp(start, "\x89PNG\r\n\x1a\n", sizeof start) == 0)
        return Kind::Png;
    if (got > 2 && start[0] == 'P' && (start[1] == '1' || start[1] == '4') &&
        (IsSpace(start[2]) || start[2] == '#'))
        return Kind::Pbm;
    return Kind::Other;
}

} // namespace

standin::BitmapPtr ReadPbm(std::FILE* file, MemoryShare& memory) {
    std::getc(file); // P
    const bool plain = std::getc(file) == '1';
    const uint64_t width = ReadNumber(file);
    const uint64_t height = ReadNumber(file);
    standin::BitmapPtr bitmap = MakeReservedBitmap(width, height, memory);
    for (size_t y = 0; y < height; ++y)
        (plain ? ReadPlainRow : ReadPackedRow)(file, standin::BitmapRow(*bitmap, y), width);
    return bitmap;
}

bool IsPicture(const std::string& name) {
    const FileHandle file = OpenInput(name);
    return file && KindOf(file.get()) != Kind::Other;
}

standin::BitmapPtr MakeReservedBitmap(uint64_t width, uint64_t height, MemoryShare& memory) {
    if (width <= MAX_IMAGE_WIDTH && height <= INT_MAX)
        ReservePicture(memory, static_cast<unsigned>(width), static_cast<int>(height));
    return MakePictureBitmap(width, height);
}

standin::BitmapPtr ReadPicture(const std::string& name, std::optional<int> threshold, MemoryShare& memory) {
    CheckInput(name);
    const FileHandle file = OpenInput(name);
    if (!file)
        throw std::runtime_error(SystemReason(errno));
    switch (KindOf(file.get())) {
    case Kind::Png:
        return ReadPng(file.get(), threshold, memory);
    case Kind::Pbm:
        return ReadPbm(file.get(), memory);
    case Kind::Other:
        break;
    }
    throw std::runtime_error("neither a PNG nor a PBM picture");
}

} // namespace kfax
