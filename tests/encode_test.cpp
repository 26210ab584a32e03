// The encoders: the bytes they write, the record after every call, and the calls they make.
#include <gtest/gtest.h>

#include "tests/encode_run.h"

namespace {

constexpr unsigned kFormats[] = {66, 67, 68, 117, 162};

class Encoder : public KernelTest {};

struct Described {
    const char* name;
    unsigned format;
    unsigned width;
    unsigned flags;
    const char* rows; // as run lengths
    Bits stream;
    int resolution = 0;
};

const Bits kStart = "0000 000000000001";
const Bits kLoneEol = "0000 000000000001"; // behind whole bytes

const Described kDescribed[] = {
    {"G4 without rows", 68, 8, 0, "", kEofb + "00000000"},
    {"G4 without rows, odd", 68, 8, FAX_BYTE_TRAILER, "", kEofb},
    {"G4 reversed", 68, 8, FAX_REVERSE_BITS, "", "00000000 00001000 10000000 00000000"},
    {"G3 without rows", 66, 8, 0, "", kStart + "00000000" + kEofb},
    {"G3 without rows, aligned", 66, 8, FAX_ALIGN_EOL, "", kStart + kLoneEol + kLoneEol},
    {"G3 reversed", 66, 8, FAX_REVERSE_BITS, "", "00000000 10000000 00000000 00000000 00001000 10000000"},
    {"G3 2D without rows", 67, 8, FAX_BYTE_TRAILER, "", kStart + "00000000" + kEofb},
    {"all 2D without rows", 117, 8, FAX_BYTE_TRAILER, "", kStart + kEofb},
    {"no EOL without rows", 162, 8, 0, "", ""},
    {"another number is G4", 4711, 8, 0, "8", "1" + kEofb + "0000000"},
    {"a white page line", 66, 1728, 0, "1728",
     "00000000 00000001 01001101 10011010 10000000 00000001" + Bits("00000000") + kEofb},
    {"G3 from black", 66, 12, FAX_BYTE_TRAILER, "0 5 7",
     kStart + "00110101 0011 1111" + kLoneEol + "00000000" + kEofb},
    {"no EOL, odd", 162, 12, FAX_BYTE_TRAILER, "0 5 7", "00110101 0011 1111"},
    {"no EOL, filled", 162, 13, 0, "0 5 8|13", "00110101 0011 1001 10000000 00001100"},
    {"no EOL, an odd row", 162, 3, 0, "3", "10000000 00000000"},
    {"G4 white", 68, 100, 0, "100", "1" + kEofb + "0000000"},
    {"G4 black", 68, 100, FAX_BYTE_TRAILER, "0 100", "001 00110101 0000001111 000011010100" + kEofb},
    {"G4 the row above", 68, 20, 0, "10 1 9|10 1 9", "001 00111 010 1 111" + kEofb},
    {"G4 every offset", 68, 140, 0, "20 20 20 20 20 20 20|17 26 15 24 17 22 19|17 26 15 24 17 22 19",
     Repeated("001 0001000 00001101000", 3) + "1 0000010 0000011 000010 000011 010 011 1 1111111" + kEofb},
    {"G4 vertical before pass", 68, 20, 0, "10 1 9|12 1 7", "001 00111 010 1 000011 001 010 1111" + kEofb},
    {"G4 pass", 68, 40, 0, "10 1 29|20 5 15", "001 00111 010 1 0001 001 10100 0011 1" + kEofb},
    {"K of 2", 67, 8, 0, "8|8|8",
     kStart + "1 10011 000000 000000000001 0 1 00 000000000001 1 10011 000000 000000000001" + "00000000" +
         kEofb},
    {"K of 4", 67, 8, 0, "8|8|8|8|8",
     kStart + "1 10011 000000 000000000001" + Repeated("0 1 00 000000000001", 3) +
         "1 10011 000000 000000000001" + "00000000" + kEofb,
     200},
    {"all 2D", 117, 8, 0, "8|8|8|8", kStart + "1 10011 000000 000000000001 0 1 1 1" + kEofb},
};

TEST_F(Encoder, WritesTheDescribedStreams) {
    for (const Described& d : kDescribed) {
        SCOPED_TRACE(d.name);
        ResetTestKernel();
        EncoderRun run(d.format, d.width, d.flags, d.resolution);
        for (const Row& row : RowsFromText(d.rows))
            run.Encode(PackedRow(row));
        Bytes stream = Packed(d.stream);
        if ((d.flags & FAX_BYTE_TRAILER) == 0 && stream.size() % 2 != 0)
            stream.push_back(0);
        EXPECT_EQ(run.Finish(), stream);
    }
}

TEST_F(Encoder, WritesEveryRunOfBothColours) {
    constexpr unsigned kWidth = 5300;
    EncoderRun mixed(162, kWidth);
    Bits wanted;
    for (unsigned run = 0; run <= kWidth; ++run) {
        const Row row = run == kWidth ? Row{kWidth} : Row{run, kWidth - run};
        mixed.Encode(PackedRow(row));
        wanted += AlignedToByte(Line1D(row));
    }
    EXPECT_EQ(mixed.Finish(), Packed(wanted));
}

TEST_F(Encoder, SetsTheRecordUp) {
    struct {
        unsigned format, width;
        size_t listEntries, bufferSize, lineEstimate;
    } const setups[] = {{66, 1, 250000, 200000, 8},
                        {162, 1728, 250000, 200000, 1410},
                        {67, 82039, 250000, 200000, 66663},
                        {117, 82045, 250000, 200004, 66668},
                        {68, 249997, 250000, 609387, 203129},
                        {68, 249998, 250001, 609387, 203129},
                        {4711, 249999, 250002, 609393, 203131}};
    for (const auto& s : setups) {
        SCOPED_TRACE(s.width);
        ResetTestKernel();
        EncoderRun run(s.format, s.width, 5, 1199);
        const CCITTG34& r = run.record;
        const Bits list = "Alloc " + std::to_string(s.listEntries) + " 4";
        EXPECT_EQ(KernelInUse().trace,
                  (std::vector<Bits>{list, list, "Alloc " + std::to_string(s.bufferSize) + " 1"}));
        EXPECT_EQ(run.setupStatus, 0);
        EXPECT_EQ(r.FlushThreshold, s.bufferSize - s.lineEstimate);
        EXPECT_EQ(r.Format, s.format);
        EXPECT_EQ(r.Width, s.width);
        EXPECT_EQ(r.Flags, 5u);
        EXPECT_EQ(r.Handle, run.file.Handle());
        EXPECT_EQ(r.SaveDispatch, run.dispatch.get());
        const bool eol = s.format == 66 || s.format == 67 || s.format == 117;
        EXPECT_EQ(r.BufferCount, eol ? 2u : 0u);
        EXPECT_EQ(r.BitCount, 16);
        EXPECT_EQ(static_cast<unsigned>(r.NextLineTag) + r.TotalBytes + r.WriteStatus + r.BitAccumulator, 0u);
        EXPECT_EQ(r.KFactor, s.format == 67 ? 16u : 0u);
        EXPECT_EQ(r.ReferenceLine[0] + r.ReferenceLine[1] + r.ReferenceLine[2], 0u);
        if (eol) {
            EXPECT_EQ(r.Buffer[0] * 256 + r.Buffer[1], 1);
        }
    }
}

TEST_F(Encoder, ChoosesKByTheResolution) {
    const std::pair<int, unsigned> table[] = {{0, 2},    {196, 2},  {199, 2},   {200, 4},   {299, 4},
                                              {300, 6},  {399, 6},  {400, 8},   {599, 8},   {600, 12},
                                              {799, 12}, {800, 16}, {1199, 16}, {1200, 24}, {9600, 24}};
    for (const auto& [resolution, k] : table) {
        EncoderRun run(67, 8, 0, resolution);
        EXPECT_EQ(run.record.KFactor, k) << resolution;
        for (unsigned row = 0; row < 2 * k + 1; ++row)
            run.Encode({0x18});
    }
    _SAVEDISPATCH noBitmap = {};
    for (_SAVEDISPATCH* dispatch : {static_cast<_SAVEDISPATCH*>(nullptr), &noBitmap}) {
        EncoderRun run(67, 8, 0, 1200);
        QuitEncodeG34(&run.record);
        EXPECT_EQ(InitEncodeG34(dispatch, &run.record, 67, 8, 0, run.file.Handle()), 0);
        EXPECT_EQ(run.record.KFactor, 2u);
    }
}

// Further lines of format 117 by EncodeG3 keep their tags and have no EOL; where a tag ends a word, too.
TEST_F(Encoder, TagsEveryLineOfFormat117) {
    for (const unsigned lines : {0u, 1u}) {
        SCOPED_TRACE(lines);
        ResetTestKernel();
        EncoderRun run(117, 8);
        Bytes row = {0};
        EncodeG3(&run.record, row.data());
        for (unsigned i = 0; i < lines; ++i)
            EncodeG4(&run.record, row.data());
        for (int i = 0; i < 8; ++i)
            EncodeG3(&run.record, row.data());
        EXPECT_EQ(run.record.NextLineTag, 9);
        QuitEncodeG34(&run.record);
        Bits wanted =
            "0000" + kEol + "110011000000" + kEol + Repeated("1", lines) + Repeated("01", 8) + kEofb;
        wanted.resize((wanted.size() + 15) / 16 * 16, '0');
        EXPECT_EQ(run.file.bytes, Packed(wanted));
    }
}

// A row is looked through for black by pieces of every size.
TEST_F(Encoder, FindsALonePixel) {
    for (const unsigned width : {511u, 2047u})
        for (const unsigned format : {66u, 68u}) {
            ResetTestKernel();
            EncoderRun run(format, width);
            for (unsigned column = 0; column < width; ++column)
                run.Encode(PackedRow({column, 1, width - column - 1}));
            run.Finish();
        }
}

// The buffer leaves before a line that finds it above the threshold, never in one.
TEST_F(Encoder, FlushesAtTheThreshold) {
    std::mt19937 random(5);
    for (const unsigned format : kFormats)
        for (const unsigned threshold : {0u, 2u, 14u, 150u}) {
            SCOPED_TRACE(testing::Message() << format << " threshold " << threshold);
            ResetTestKernel();
            EncoderRun run(format, 37, FAX_REVERSE_BITS, 200);
            run.record.FlushThreshold = threshold;
            run.expected.flushThreshold = threshold;
            for (const Bytes& row : MakePicture(random, NOISE, 37, 400))
                run.Encode(row);
            EXPECT_GT(run.expected.writes.size(), 5u);
            const Bytes stream = run.expected.Finish();
            QuitEncodeG34(&run.record);
            EXPECT_EQ(run.file.bytes, stream);
        }
}

TEST_F(Encoder, FillsTheWholeBuffer) {
    // One bit a row: from 199992 bytes on the trailer needs room made for it.
    for (const unsigned bytes : {199990u, 199992u, 199994u}) {
        ResetTestKernel();
        EncoderRun run(68, 1);
        uint8_t row = 0;
        for (unsigned i = 0; i < bytes * 8; ++i)
            EncodeG4(&run.record, &row);
        EXPECT_EQ(run.record.BufferCount, bytes);
        run.expected.bits.assign(size_t{bytes} * 8, '1');
        run.Finish();
    }
}

} // namespace
