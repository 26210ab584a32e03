// Where code stands in two forms, both do the same: over pictures of every kind, and streams of them, whole
// and damaged.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_coding.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/row_scan.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"
#include "host/kernel.h"
#include "tests/pictures.h"

#include <gtest/gtest.h>

namespace {

constexpr unsigned kRows = 40;
constexpr unsigned kWidths[] = {1, 7, 8, 63, 64, 65, 127, 319, 320, 577, 1728, 2563, 4961};

class Forms : public testing::Test {
protected:
    void SetUp() override {
        if (!faxx::HasAvx2())
            GTEST_SKIP() << "the processor runs one form only";
    }
};

// A record set up for coding; what is coded stays in its buffer.
struct Encoder {
    CCITTG34 record{};

    Encoder(int format, unsigned width) {
        EXPECT_EQ(InitEncodeG34(nullptr, &record, static_cast<unsigned>(format), width, 0, nullptr), 0);
    }
    ~Encoder() {
        for (void* block : {static_cast<void*>(record.ReferenceLine), static_cast<void*>(record.CodingLine),
                            static_cast<void*>(record.Buffer)})
            K_LocalFree(block, 0, "");
    }
    Bytes Coded() const { return Bytes(record.Buffer, record.Buffer + record.BufferCount); }
    std::vector<uint32_t> List() const {
        size_t entries = 0;
        while (record.CodingLine[entries] != 0)
            ++entries;
        return std::vector<uint32_t>(record.CodingLine, record.CodingLine + entries + 3);
    }
};

TEST_F(Forms, OfTheRowScanListEveryChange) {
    for (const unsigned width : kWidths)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind)
            for (const Bytes& row : PictureOf(width, kRows, kind)) {
                std::vector<uint32_t> expected;
                for (const uint32_t column : ChangesOf(row, width))
                    expected.push_back(width - column);
                expected.insert(expected.end(), 3, 0);
                for (const auto list : {faxx::ListChangesBaseline, faxx::ListChangesAvx2}) {
                    Encoder encoder(FORMAT_FAX_G4, width);
                    list(&encoder.record, row.data());
                    ASSERT_EQ(encoder.List(), expected) << "width " << width << ", kind " << kind;
                }
            }
}

// One black pixel in a white row, wherever both are: rows are looked at by vectors, words and what is left.
TEST_F(Forms, OfTheRowScanFindALonePixel) {
    for (const unsigned width : {256u, 263u, 503u, 1024u, 1728u, 2480u}) {
        Encoder encoder(FORMAT_FAX_G4, width);
        const unsigned rowBytes = (width + 7) / 8;
        for (unsigned column = 0; column < rowBytes * 8; ++column) {
            const unsigned place = column % 33;
            Bytes area(place + rowBytes);
            area[place + column / 8] = static_cast<uint8_t>(0x80 >> column % 8);
            std::vector<uint32_t> expected;
            if (column < width)
                expected.push_back(width - column);
            if (column + 1 < width)
                expected.push_back(width - column - 1);
            const auto changes = static_cast<uint32_t>(expected.size());
            expected.insert(expected.end(), 3, 0);
            for (const auto list : {faxx::ListChangesBaseline, faxx::ListChangesAvx2}) {
                std::fill_n(encoder.record.CodingLine, 8, 7);
                ASSERT_EQ(list(&encoder.record, area.data() + place), changes) << "width " << width;
                ASSERT_EQ(encoder.List(), expected) << "width " << width << ", column " << column;
            }
        }
    }
}

template <const faxx::CodecFunctions& functions, faxx::LineEnd end>
void Modes(CCITTG34* record, const uint8_t* row) {
    functions.encodeModes(record, row, end);
}

TEST_F(Forms, OfTheCodersWriteTheSameBits) {
    using faxx::kAvx2Functions;
    using faxx::kBaselineFunctions;
    using faxx::LineEnd;
    const struct {
        int format;
        void (*baseline)(CCITTG34*, const uint8_t*);
        void (*avx2)(CCITTG34*, const uint8_t*);
    } coders[] = {
        {FORMAT_FAX_G4, Modes<kBaselineFunctions, LineEnd::None>, Modes<kAvx2Functions, LineEnd::None>},
        {FORMAT_FAX_G3_2D, Modes<kBaselineFunctions, LineEnd::Eol>, Modes<kAvx2Functions, LineEnd::Eol>},
        {FORMAT_FAX_G3_1D, kBaselineFunctions.encodeRuns, kAvx2Functions.encodeRuns},
        {FORMAT_FAX_G3_1D_NOEOL, kBaselineFunctions.encodeRuns, kAvx2Functions.encodeRuns}};
    for (const auto& coder : coders)
        for (const unsigned width : kWidths)
            for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
                Encoder baseline(coder.format, width);
                Encoder avx2(coder.format, width);
                for (const Bytes& row : PictureOf(width, kRows, kind)) {
                    coder.baseline(&baseline.record, row.data());
                    coder.avx2(&avx2.record, row.data());
                    ASSERT_EQ(baseline.Coded(), avx2.Coded()) << "width " << width << ", kind " << kind;
                    ASSERT_EQ(baseline.record.BitAccumulator, avx2.record.BitAccumulator);
                    ASSERT_EQ(baseline.record.BitCount, avx2.record.BitCount);
                }
            }
}

TEST_F(Forms, OfTheRowWriterWriteTheSameRuns) {
    std::mt19937 random(6);
    for (const uint32_t entries : {1u, 8u, 9u, 15u, 16u, 17u, 24u, 25u, 33u, 400u})
        for (unsigned round = 0; round < 200; ++round) {
            std::vector<uint32_t> list(entries + 3);
            uint32_t left = 65534;
            for (uint32_t i = 0; i < entries; ++i)
                list[i] = left -= static_cast<uint32_t>(random()) % (left / (entries - i));
            if (round % 4 == 1) // to the right edge, past it, or to the left
                list[random() % entries] = std::array<uint32_t, 4>{0, UINT32_MAX, 65534, 65535}[random() % 4];
            std::vector<uint16_t> anywhere(entries + 9, 0xAAAA);
            std::vector<uint16_t> faster = anywhere;
            const uint32_t written = faxx::WriteRunsBaseline(list.data(), entries, 65534, anywhere.data());
            ASSERT_EQ(faxx::WriteRunsAvx2(list.data(), entries, 65534, faster.data()), written);
            ASSERT_EQ(anywhere, faster);
            for (uint32_t i = 0; i < written; ++i)
                ASSERT_EQ(anywhere[i], (i == 0 ? 65534 : list[i - 1]) - list[i]) << "entry " << i;
            ASSERT_TRUE(round % 4 == 1 || written == (entries > 8 ? entries : 0));
        }
}

// A G4 line under way in a record of its own, and where a decoder left it.
struct Decoder {
    std::vector<uint32_t> reference = std::vector<uint32_t>(250000);
    std::vector<uint32_t> coding = std::vector<uint32_t>(250000);
    CCITTG34 record{};

    Decoder(Bytes& stream, unsigned width) {
        record.Width = width;
        record.ReferenceLine = reference.data();
        record.CodingLine = coding.data();
        record.Buffer = stream.data();
        record.BytesInBuffer = static_cast<uint32_t>(stream.size() - 64); // zeros behind the data
        record.RefillThreshold = record.BytesInBuffer + 2;
    }
};

TEST_F(Forms, OfTheG4DecoderStopAtTheSameBit) {
    std::mt19937 random(5);
    for (const unsigned width : kWidths)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            Encoder encoder(FORMAT_FAX_G4, width);
            for (const Bytes& row : PictureOf(width, kRows, kind)) {
                faxx::EncodeModesAvx2(&encoder.record, row.data(), faxx::LineEnd::None);
            }
            Bytes stream = encoder.Coded();
            for (auto damage = random() % 3; damage != 0 && !stream.empty(); --damage)
                stream[random() % stream.size()] ^= static_cast<uint8_t>(1 << random() % 8);
            stream.resize(stream.size() + 64);

            Decoder one(stream, width);
            Decoder two(stream, width);
            faxx::g4::Line a(&one.record);
            faxx::g4::Line b(&two.record);
            a.input.MoveTo(0);
            b.input.MoveTo(0);
            for (unsigned row = 0; row < kRows; ++row) {
                const faxx::RowOutput output{nullptr, 200000, 200000, kRows};
                a.Begin(output, width);
                b.Begin(output, width);
                const faxx::g4::After after = faxx::g4::ReadModesBaseline(a);
                ASSERT_EQ(after, faxx::g4::ReadModesAvx2(b)) << "width " << width << ", kind " << kind;
                ASSERT_EQ(a.input.Position(), b.input.Position());
                ASSERT_EQ(std::tie(a.written, a.a0, a.b1), std::tie(b.written, b.a0, b.b1));
                ASSERT_TRUE(std::equal(a.coding, a.coding + a.written, b.coding));
                if (after != faxx::g4::After::LineEnd)
                    break;
                for (faxx::g4::Line* line : {&a, &b}) {
                    std::fill_n(line->coding + line->written, 3, 0);
                    std::swap(line->record->ReferenceLine, line->record->CodingLine);
                }
            }
        }
}

} // namespace
