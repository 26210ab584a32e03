// The library's decoders against the plain ones, which are linked into this program without the fast loops:
// the same rows, fields and lists after every call, on pages of ordinary lines, with and without damage.
#include "tests/code_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <dlfcn.h>

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/kernel.h"

namespace {

struct Decoders {
    decltype(&InitDecodeG34) setUp;
    decltype(&QuitDecodeG34) quit;
    decltype(&DecodeG3) g3;
    decltype(&DecodeG4) g4;
    decltype(&InfoDecodeG3) probe;
};

constexpr Decoders kPlain{InitDecodeG34, QuitDecodeG34, DecodeG3, DecodeG4, InfoDecodeG3};

template <typename Function>
Function* Entry(void* library, const char* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

Decoders OfLibrary() {
    void* library = dlopen(KFFAX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(library, nullptr) << dlerror();
    return {Entry(library, "InitDecodeG34", kPlain.setUp), Entry(library, "QuitDecodeG34", kPlain.quit),
            Entry(library, "DecodeG3", kPlain.g3), Entry(library, "DecodeG4", kPlain.g4),
            Entry(library, "InfoDecodeG3", kPlain.probe)};
}

class PageOfCodes {
public:
    PageOfCodes(std::mt19937& random, unsigned format, unsigned width)
        : random_(random), format_(format), width_(width) {}

    unsigned Below(size_t limit) { return static_cast<unsigned>(random_() % limit); }

    Bits Lines(unsigned count, bool damaged) {
        const bool tags = format_ == FORMAT_FAX_G3_2D || format_ == FORMAT_FAX_G3_2D_ALL2D;
        const unsigned blanks = Below(3);
        Bits bits;
        bool blankAbove = true;
        for (unsigned line = 0; line < count; ++line) {
            const bool tail = format_ == FORMAT_FAX_G3_2D_ALL2D && line > 1;
            const bool two = format_ == FORMAT_FAX_G4 || tail || (tags && Below(2) != 0);
            if (format_ != FORMAT_FAX_G4 && format_ != FORMAT_FAX_G3_1D_NOEOL && !tail &&
                (!damaged || Below(20) != 0)) {
                bits += Repeated("0", Below(10) == 0 ? Below(9) : 0) + kEol;
                bits += !tags ? "" : two ? "0" : "1";
            }
            const bool blank = Below(4) < blanks * 2;
            bits += two ? Modes(blank && blankAbove) : Runs(blank);
            blankAbove = blank && (blankAbove || !two);
            if (format_ == FORMAT_FAX_G3_1D_NOEOL)
                bits += Repeated("0", (8 - bits.size() % 8) % 8);
            if (damaged && Below(15) == 0)
                bits += Repeated(Below(2) != 0 ? "1" : "0", Below(12));
        }
        return bits;
    }

private:
    Bits Modes(bool blank) {
        static const std::array<Bits, 8> kVertical = {kV0, kV0, kVR1, kVL1, kVR2, kVL2, kVR3, kVL3};
        Bits bits;
        for (unsigned codes = blank ? 0 : Below(30); codes != 0; --codes) {
            const unsigned kind = Below(12);
            if (kind < 8)
                bits += kVertical[kind];
            else if (kind < 10)
                bits += kPass;
            else
                bits += (kind == 10 ? Horizontal : HorizontalBlack)(Below(Below(2) != 0 ? 8 : width_ + 1),
                                                                    Below(Below(2) != 0 ? 8 : 100));
        }
        return bits + kV0;
    }

    Bits Runs(bool blank) {
        std::vector<unsigned> lengths;
        const unsigned longest = std::array{3u, 9u, 100u, 3000u}[Below(4)];
        for (unsigned left = width_; left != 0; left -= lengths.back())
            lengths.push_back(blank ? left
                                    : std::min(left, Below(50) == 0 ? Below(width_ + 1) : Below(longest)));
        const bool endsWhite = lengths.size() % 2 != 0;
        return Line1D(lengths) + (endsWhite && Below(12) == 0 ? RunBits(true, 0) : "");
    }

    std::mt19937& random_;
    unsigned format_;
    unsigned width_;
};

// One side's record and rows, on a stream in memory.
struct Side {
    const Decoders& decoders;
    Bytes stream;
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    _LOADDISPATCH dispatch{};
    CCITTG34 record{};
    std::vector<unsigned short> rows = std::vector<unsigned short>(250000);

    Side(const Decoders& which, const Bytes& bytes, unsigned format, unsigned width, unsigned small,
         unsigned limit)
        : decoders(which), stream(bytes) {
        stream.push_back(0); // an address for an empty one
        K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, stream.data(), bytes.size());
        decoders.setUp(&dispatch, &record, format, width, 0, handle, small, limit);
    }
    ~Side() {
        decoders.quit(&record, 1);
        K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    }
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    Rows Decode(unsigned lines) {
        const unsigned got =
            (record.Format == FORMAT_FAX_G4 ? decoders.g4 : decoders.g3)(&record, rows.data(), lines);
        return RowsFromWords(rows.data(), got);
    }
    std::vector<int64_t> Fields() const {
        return {record.NextLineTag,   record.Width,          record.BitAccumulator, record.BitCount,
                record.BytesInBuffer, record.ReadPosition,   record.DecodeStatus,   record.BytesRead,
                dispatch.Status,      record.RefillThreshold};
    }
    std::vector<uint32_t> Reference() const {
        size_t entries = 0;
        while (record.ReferenceLine[entries] != 0)
            ++entries;
        return std::vector<uint32_t>(record.ReferenceLine, record.ReferenceLine + entries + 3);
    }
};

class PlainLines : public testing::TestWithParam<int> {};

TEST_P(PlainLines, AgreeWithTheFastLoops) {
    const auto format = static_cast<unsigned>(GetParam());
    const Decoders library = OfLibrary();
    for (unsigned round = 0; round < 1200 && !HasFailure(); ++round) {
        std::mt19937 random(round * 1000 + format);
        const unsigned width = std::array{1u,    8u,    12u,   20u,   17u,    64u,    200u,  1000u,
                                          1728u, 1729u, 2560u, 5130u, 20000u, 65535u, 66000u}[random() % 15];
        PageOfCodes page(random, format, width);
        const bool damaged = page.Below(3) == 0;
        const Bits bits = page.Lines(page.Below(60), damaged) + Repeated(kEol, page.Below(7)) +
                          Repeated("00000000", page.Below(3) == 0 ? page.Below(300) : 0);
        Bytes stream = Packed(bits);
        for (unsigned faults = damaged && !stream.empty() ? page.Below(4) : 0; faults != 0; --faults)
            stream[page.Below(stream.size())] ^= static_cast<uint8_t>(1 << page.Below(8));

        const unsigned small = page.Below(2);
        const unsigned limit = page.Below(5) == 0 ? page.Below(stream.size() + 5) : 0;
        const bool probes = page.Below(8) == 0 && format != FORMAT_FAX_G4;
        Side plain(kPlain, stream, format, probes ? 0 : width, small, limit);
        Side fast(library, stream, format, probes ? 0 : width, small, limit);
        if (probes) {
            EXPECT_EQ(fast.decoders.probe(&fast.record, fast.rows.data()),
                      plain.decoders.probe(&plain.record, plain.rows.data()));
            EXPECT_EQ(fast.Fields(), plain.Fields()) << "probe, round " << round;
            continue;
        }
        const unsigned lines = std::array{1u, 1 + page.Below(10), 500u}[page.Below(3)];
        for (unsigned call = 0; call < 80 && plain.record.DecodeStatus == 0 && !HasFailure(); ++call) {
            ASSERT_EQ(fast.Decode(lines), plain.Decode(lines)) << "round " << round << ", call " << call;
            EXPECT_EQ(fast.Fields(), plain.Fields()) << "round " << round << ", call " << call;
            EXPECT_EQ(fast.Reference(), plain.Reference()) << "round " << round << ", call " << call;
        }
    }
}

// Rows whose code ends in zeros on a byte of their own, cut everywhere.
TEST(PlainDecoders, AgreeWhereTheFillIsMissing) {
    const Decoders library = OfLibrary();
    const Bytes stream = Packed(Repeated(AlignedToByte(Line1D({76})), 4));
    for (unsigned limit = 1; limit <= stream.size(); ++limit) {
        Side plain(kPlain, stream, FORMAT_FAX_G3_1D_NOEOL, 76, 0, limit);
        Side fast(library, stream, FORMAT_FAX_G3_1D_NOEOL, 76, 0, limit);
        EXPECT_EQ(fast.Decode(9), plain.Decode(9)) << limit << " bytes";
        EXPECT_EQ(fast.Fields(), plain.Fields()) << limit << " bytes";
    }
}

// Hundreds of blank lines over several fills of the small buffer, one bit wrong at one place after the other.
TEST(PlainDecoders, AgreeWhereAStretchOfBlankLinesBreaks) {
    const Decoders library = OfLibrary();
    const struct {
        int format;
        unsigned width;
        Bits line;
    } kStretches[] = {
        {FORMAT_FAX_G3_1D, 1728, kEol + Line1D({1728})},
        {FORMAT_FAX_G3_1D, 4960, kEol + Line1D({4960})},
        {FORMAT_FAX_G3_1D, 0, kEol + Line1D({0})},
        {FORMAT_FAX_G3_2D, 0, kEol + "1" + Line1D({0}) + kEol + "0" + kV0},
        {FORMAT_FAX_G3_1D_NOEOL, 76, AlignedToByte(Line1D({76}))},
        {FORMAT_FAX_G3_1D, 1728, "000" + kEol + Line1D({1728})},
        {FORMAT_FAX_G3_2D, 1728, kEol + "1" + Line1D({1728})},
        {FORMAT_FAX_G3_2D, 1728, "00" + kEol + "1" + Line1D({1728}) + "000000" + kEol + "0" + kV0},
        {FORMAT_FAX_G3_2D, 2480, kEol + "1" + Line1D({2480}) + kEol + "0" + kV0},
    };
    for (const auto& stretch : kStretches) {
        const Bytes whole = Packed(Repeated(stretch.line, 700) + kEol);
        const size_t step = whole.size() / 32 | 1; // odd: every bit of a byte gets its turn
        for (size_t wrong = 0; wrong < whole.size() * 8 && !HasFailure(); wrong += step) {
            Bytes stream = whole;
            stream[wrong / 8] ^= static_cast<uint8_t>(0x80 >> wrong % 8);
            const auto format = static_cast<unsigned>(stretch.format);
            Side plain(kPlain, stream, format, stretch.width, 1, 0);
            Side fast(library, stream, format, stretch.width, 1, 0);
            for (const unsigned lines : {100u, 900u, 900u}) {
                ASSERT_EQ(fast.Decode(lines), plain.Decode(lines)) << format << ", bit " << wrong;
                EXPECT_EQ(fast.Fields(), plain.Fields()) << format << ", bit " << wrong;
                EXPECT_EQ(fast.Reference(), plain.Reference()) << format << ", bit " << wrong;
            }
        }
    }
}

// Two lines to a call, and one every third time, over several fills of the small buffer; in front of them so
// much fill that one ends at each bit around the place where the buffer is filled again.
TEST(PlainDecoders, AgreeWherePairsOfBlankLinesMeetARefill) {
    const Decoders library = OfLibrary();
    for (const unsigned width : {1728u, 4960u, 9000u})
        for (unsigned fill = 0; fill < 80 && !HasFailure(); ++fill) {
            const Bits second = kEol + "0" + kV0;
            const Bits pair = kEol + "1" + Line1D({width}) + second;
            const Bytes stream = Packed(Repeated("0", fill) + Repeated(pair + pair + second, 250));
            Side plain(kPlain, stream, FORMAT_FAX_G3_2D, width, 1, 0);
            Side fast(library, stream, FORMAT_FAX_G3_2D, width, 1, 0);
            for (unsigned call = 0; plain.record.DecodeStatus == 0 && !HasFailure(); ++call) {
                ASSERT_EQ(fast.Decode(9), plain.Decode(9)) << width << " behind " << fill << ", " << call;
                EXPECT_EQ(fast.Fields(), plain.Fields()) << width << " behind " << fill << ", " << call;
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Formats, PlainLines,
                         testing::Values(FORMAT_FAX_G3_1D, FORMAT_FAX_G3_2D, FORMAT_FAX_G4,
                                         FORMAT_FAX_G3_2D_ALL2D, FORMAT_FAX_G3_1D_NOEOL));

} // namespace
