#include "tests/encode_run.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <span>
#include <stdexcept>
#include <sys/mman.h>

#include "tests/codec_run.h"

namespace {

size_t LineEstimate(size_t width) {
    return (13 * ((width + 1) / 2) + 35) / 8 + 2;
}

void FillTo(Bits& bits, size_t boundary, size_t ahead) {
    while ((bits.size() + ahead) % boundary != 0)
        bits += '0';
}

} // namespace

ReferenceEncoder::ReferenceEncoder(unsigned f, unsigned w, unsigned fl, unsigned k)
    : format(f), width(w), flags(fl), kFactor(k), bufferSize(std::max(3 * LineEstimate(w), size_t{200000})) {
    flushThreshold = bufferSize - LineEstimate(w);
    if (format == 66 || format == 67 || format == 117)
        bits = "0000" + kEol;
}

bool ReferenceEncoder::UsesG3() const {
    return IsG3(format) && !(format == 117 && nextLineTag > 1);
}

Bits Coded1D(const Line& line, unsigned width) {
    std::vector<unsigned> runs;
    unsigned x = 0;
    for (const unsigned change : line) {
        runs.push_back(change - x);
        x = change;
    }
    runs.push_back(width - x);
    return Line1D(runs);
}

Bits Coded2D(const Line& reference, const Line& line, unsigned width) {
    static const Bits vertical[] = {kVL3, kVL2, kVL1, kV0, kVR1, kVR2, kVR3};
    const auto at = [width](const Line& list, size_t i) -> int64_t {
        return i < list.size() ? list[i] : width;
    };
    Bits bits;
    int64_t a0 = -1;
    bool black = false;
    size_t i = 0, j = 0; // the first changes right of a0
    for (;;) {
        while (i < line.size() && line[i] <= a0)
            ++i;
        while (j < reference.size() && reference[j] <= a0)
            ++j;
        const size_t b = j + ((j % 2 != 0) != black);
        const int64_t a1 = at(line, i), a2 = at(line, i + 1), b1 = at(reference, b),
                      b2 = at(reference, b + 1);
        if (std::abs(a1 - b1) <= 3) {
            bits += vertical[a1 - b1 + 3];
            if (a1 == width)
                return bits;
            a0 = a1;
            black = !black;
        } else if (b2 < a1) {
            bits += kPass;
            a0 = b2;
        } else {
            bits += kHorizontal + RunBits(black, static_cast<unsigned>(a1 - std::max<int64_t>(a0, 0))) +
                    RunBits(!black, static_cast<unsigned>(a2 - a1));
            if (a2 == width)
                return bits;
            a0 = a2;
        }
    }
}

void ReferenceEncoder::Add(const Line& line) {
    const bool g3 = UsesG3();
    const bool tagged = g3 && (format == 67 || format == 117);
    const bool twoDimensional = !g3 || (tagged && nextLineTag != 0);
    if (tagged) {
        bits += twoDimensional ? '0' : '1';
        ++nextLineTag;
        if (format == 67 && twoDimensional && nextLineTag >= kFactor)
            nextLineTag = 0;
    }
    if (Waiting() > flushThreshold) {
        writes.push_back(Waiting());
        written += Waiting();
    }
    bits += twoDimensional ? Coded2D(reference, line, width) : Coded1D(line, width);
    reference = line;
    if (format == 162) {
        FillTo(bits, 8, 0);
    } else if (g3 && !(format == 117 && twoDimensional)) {
        FillTo(bits, 8, kEol.size());
        bits += kEol;
    }
}

Bytes ReferenceEncoder::Finish() {
    if (Waiting() + 8 > bufferSize) {
        writes.push_back(Waiting());
        written += Waiting();
    }
    if (format == 66 || format == 67) {
        if ((flags & FAX_ALIGN_EOL) == 0)
            FillTo(bits, 16, kEofb.size());
        for (int i = 0; i < 2; ++i) {
            if ((flags & FAX_ALIGN_EOL) != 0)
                FillTo(bits, 8, kEol.size());
            bits += kEol;
        }
    } else if (format == 162) {
        FillTo(bits, 8, 0);
    } else {
        bits += kEofb;
    }
    Bytes stream = Packed(bits, (flags & FAX_REVERSE_BITS) != 0);
    if ((flags & FAX_BYTE_TRAILER) == 0 && stream.size() % 2 != 0)
        stream.push_back(0);
    if (stream.size() != written)
        writes.push_back(stream.size() - written);
    return stream;
}

Bytes CodedPicture(const Picture& picture, unsigned width, unsigned format, unsigned flags,
                   unsigned kFactor) {
    ReferenceEncoder encoder(format, width, flags, kFactor);
    for (const Bytes& row : picture)
        encoder.Add(ChangesOf(row, width));
    return encoder.Finish();
}

EncoderRun::EncoderRun(unsigned format, unsigned width, unsigned flags, int resolution)
    : file({}), expected(format, width, flags, 0) {
    bitmap.YResolution = resolution;
    dispatch->Bitmap = &bitmap;
    setupStatus = InitEncodeG34(dispatch.get(), &record, format, width, flags, file.Handle());
    expected.kFactor = record.KFactor;
}

EncoderRun::~EncoderRun() {
    QuitEncodeG34(&record);
}

namespace {

// A copy of a row in front of a page that nobody may touch: sanitizers do not see what masked vectors read.
std::span<uint8_t> AtTheEndOfMemory(const Bytes& row) {
    constexpr size_t kRoom = 1 << 16;
    constexpr size_t kPage = 1 << 12;
    static uint8_t* const end = [] {
        void* const memory =
            mmap(nullptr, kRoom + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        uint8_t* const behind = static_cast<uint8_t*>(memory) + kRoom;
        if (memory == MAP_FAILED || mprotect(behind, kPage, PROT_NONE) != 0)
            throw std::runtime_error("no guarded memory");
        return behind;
    }();
    if (row.size() > kRoom)
        throw std::runtime_error("the row is too long");
    const std::span copy(end - row.size(), row.size());
    std::copy(row.begin(), row.end(), copy.begin());
    return copy;
}

} // namespace

void EncoderRun::Encode(const Bytes& row) {
    const std::span<uint8_t> copy = AtTheEndOfMemory(row);
    const uint32_t* const coding = record.CodingLine;
    (expected.UsesG3() ? EncodeG3 : EncodeG4)(&record, copy.data());
    expected.Add(ChangesOf(row, record.Width));
    EXPECT_TRUE(std::equal(copy.begin(), copy.end(), row.begin()));

    const size_t pending = expected.Pending();
    ASSERT_EQ(record.BitCount, 16 - static_cast<int>(pending));
    ASSERT_EQ(record.BufferCount, expected.Waiting());
    ASSERT_EQ(record.TotalBytes, expected.written);
    ASSERT_EQ(static_cast<unsigned>(record.NextLineTag), expected.nextLineTag);
    if (pending != 0) {
        const Bits bits = expected.bits.substr(expected.bits.size() - pending);
        ASSERT_EQ(record.BitAccumulator >> 16 & ((1u << pending) - 1), std::stoul(bits, nullptr, 2));
    }
    ASSERT_EQ(record.ReferenceLine, coding);
    for (size_t i = 0; i < expected.reference.size() + 3; ++i)
        ASSERT_EQ(record.ReferenceLine[i],
                  i < expected.reference.size() ? record.Width - expected.reference[i] : 0u)
            << i;
}

Bytes EncoderRun::Finish() {
    const Bytes stream = expected.Finish();
    QuitEncodeG34(&record);
    EXPECT_EQ(record.ReferenceLine, nullptr);
    EXPECT_EQ(record.CodingLine, nullptr);
    EXPECT_EQ(record.Buffer, nullptr);
    EXPECT_EQ(record.Format, expected.format);
    EXPECT_EQ(record.TotalBytes, stream.size());
    EXPECT_EQ(record.WriteStatus, 0u);
    EXPECT_TRUE(file.bytes == stream) << file.bytes.size() << " bytes for " << stream.size();
    Trace writes;
    for (const size_t count : expected.writes)
        writes.push_back("Write " + std::to_string(count));
    EXPECT_EQ(CallsNamed("Write"), writes);
    return file.bytes;
}

Bytes EncoderRun::Save(const Picture& picture) {
    for (const Bytes& row : picture)
        Encode(row);
    return Finish();
}
