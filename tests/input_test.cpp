// Set-up, tear-down and refill of the decoder's input, and the code tables through one-run lines.
#include <gtest/gtest.h>

#include "tests/codec_run.h"

namespace {

class DecoderInput : public KernelTest {};

TEST_F(DecoderInput, SetUpTakesAndReturnsThreeBuffers) {
    CCITTG34 record = {};
    MemoryFile file({0xAB, 0xCD, 0xEF});
    EXPECT_EQ(InitDecodeG34(nullptr, &record, 68, 250001, 0, file.Handle(), 0, 0), ERROR_WIDTH_LIMIT);
    EXPECT_TRUE(KernelInUse().trace.empty());
    EXPECT_EQ(InitDecodeG34(nullptr, &record, 68, 250000, 4, file.Handle(), 0, 0), SUCCESS);
    EXPECT_EQ(KernelInUse().trace,
              (Trace{"Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1", "Read 200000"}));
    EXPECT_EQ(record.BitAccumulator, 0xABCDEF00u);
    EXPECT_EQ(record.Flags, 4u);
    QuitDecodeG34(&record, 1);
    QuitDecodeG34(&record, 1);
    EXPECT_EQ(KernelInUse().trace.size(), 7u);
    EXPECT_TRUE(NothingHeld());
}

TEST_F(DecoderInput, SetUpAgainAfterAFailedOne) {
    for (const unsigned failing : {2u, 3u}) {
        ResetTestKernel();
        CCITTG34 record = {};
        MemoryFile file({0xAB});
        KernelInUse().faultAt = failing;
        EXPECT_EQ(InitDecodeG34(nullptr, &record, 68, 10, 0, file.Handle(), 0, 0), ERROR_NO_MEMORY);
        EXPECT_EQ(InitDecodeG34(nullptr, &record, 68, 10, 0, file.Handle(), 0, 0), SUCCESS);
        EXPECT_EQ(CallsNamed("Free").size(), failing - 1);
        EXPECT_EQ(KernelInUse().held, 2200000u);
        QuitDecodeG34(&record, 1);
    }
}

TEST_F(DecoderInput, FieldsAfterSetUp) {
    CodecRun run({0xAB, 0xCD, 0xEF}, {});
    EXPECT_EQ(run.record.BitAccumulator, 0xABCDEF00u);
    EXPECT_EQ(run.record.BitCount, 16);
    EXPECT_EQ(run.record.ReadPosition, 4u);
    EXPECT_EQ(run.record.BytesInBuffer, 3u);
    EXPECT_EQ(run.record.RefillThreshold, 5u);
    EXPECT_EQ(run.record.BufferCapacity, 200000u);
    EXPECT_EQ(run.record.NextLineTag, INT32_MIN);
    run.Restart({0x01, 0xC8}, {.flags = FAX_REVERSE_BITS, .smallBuffer = 7});
    EXPECT_EQ(run.record.BitAccumulator, 0x80130000u);
    EXPECT_EQ(run.record.BufferCapacity, 2048u);
    run.Restart(Bytes(1536), {.smallBuffer = 1});
    EXPECT_EQ(run.record.RefillThreshold, 1536u);
}

TEST_F(DecoderInput, ReadsAskForTheRoom) {
    const auto reads = [](const CodecSetup& setup, size_t size) {
        CodecRun run(Bytes(size, 0xFF), setup);
        const size_t setUp = KernelInUse().trace.size();
        while (run.record.DecodeStatus == 0)
            run.Decode(80000);
        EXPECT_GE(run.record.BitCount, 1);
        Trace trace(KernelInUse().trace.begin() + static_cast<ptrdiff_t>(setUp) - 1,
                    KernelInUse().trace.end());
        KernelInUse().trace.clear();
        return trace;
    };
    EXPECT_EQ(reads({.smallBuffer = 1}, 5000),
              (Trace{"Read 2048", "Read 1538", "Read 1538", "Read 1662", "Read 2048"}));
    EXPECT_EQ(reads({}, 100), (Trace{"Read 200000", "Read 200000"}));
    EXPECT_EQ(reads({}, 200000), (Trace{"Read 200000", "Read 150002", "Read 200000"}));
    // The limit is met by asking for less; once reached nothing is asked any more.
    EXPECT_EQ(reads({.byteLimit = 3000}, 5000), (Trace{"Read 3000"}));
    EXPECT_EQ(reads({.smallBuffer = 1, .byteLimit = 3000}, 5000), (Trace{"Read 2048", "Read 952"}));
}

TEST(CodeTables, EveryCodeAsALine) {
    ResetTestKernel();
    CodecRun run(Bytes(), {});
    for (const bool black : {false, true}) {
        uint64_t covered = 0;
        for (const RunCode& code : RunCodes(black)) {
            covered += 8192u >> code.bits.size();
            const Bits rest = code.run >= 64 ? RunBits(black, 0) : "";
            const Bits bits = (black ? RunBits(false, 7) : "") + code.bits + rest;
            const unsigned lead = black ? 7 : 0;
            run.Restart(Packed(bits + kEol + kEol), {.format = 66, .width = lead + code.run + 5});
            Row expected = black ? Row{7, code.run, 5} : Row{code.run, 5};
            EXPECT_EQ(run.Decode(1), Rows{expected}) << code.run << (black ? " black" : " white");
        }
        EXPECT_EQ(covered, 8192u - 32); // all but the indices that begin with eight zeros
        KernelInUse().trace.clear();
    }
}

} // namespace
