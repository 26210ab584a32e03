// The codec against the reference decoder on random, mostly damaged streams.
#include <algorithm>
#include <gtest/gtest.h>

#include "tests/reference_decoder.h"

namespace {

unsigned Below(std::mt19937& random, unsigned limit) {
    return static_cast<unsigned>(random() % limit);
}

// The decoder has two states it cannot leave; which of them a call ends in when both happen is open.
void ExpectSameState(const CodecRun& codec, const ReferenceDecoder& reference) {
    EXPECT_EQ(codec.record.DecodeStatus == 0, reference.decodeStatus == 0);
    EXPECT_EQ(codec.record.Width, reference.width);
    EXPECT_EQ(codec.dispatch->Status, reference.dispatchStatus);
    EXPECT_EQ(codec.record.NextLineTag, static_cast<int32_t>(reference.nextLineTag));
    EXPECT_EQ(codec.record.BytesRead, reference.bytesRead);
    if (reference.decodeStatus == 2 || codec.record.DecodeStatus == 2)
        return;
    EXPECT_EQ(codec.record.BitAccumulator, reference.Accumulator());
    EXPECT_EQ(codec.record.BitCount, reference.BitCount());
    EXPECT_EQ(codec.record.ReadPosition, reference.readPosition);
    EXPECT_EQ(codec.record.BytesInBuffer, reference.held.size());
    EXPECT_EQ(codec.record.RefillThreshold, reference.threshold);
}

void ExpectSameDecoding(CodecRun& codec, const Bytes& stream, const CodecSetup& setup, std::mt19937& random) {
    codec.Restart(stream, setup);
    ReferenceDecoder reference(stream, setup);
    for (int call = 0; call < 400 && !testing::Test::HasFailure(); ++call) {
        const unsigned lines = call % 3 == 0 ? 1 : 1 + Below(random, 40);
        const bool stopped = reference.decodeStatus != 0;
        ASSERT_EQ(codec.Decode(lines), reference.Decode(lines)) << "call " << call << ", lines " << lines;
        ExpectSameState(codec, reference);
        if (stopped)
            break;
    }
}

class RandomStreams : public testing::TestWithParam<unsigned> {
protected:
    void SetUp() override { ResetTestKernel(); }
};

TEST_P(RandomStreams, DecodeAsTheReferenceDoes) {
    const unsigned format = GetParam();
    CodecSetup setup;
    CodecRun codec({}, setup);
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        std::mt19937 random(seed * 1000 + format);
        setup.format = format;
        const unsigned widths[] = {
            Below(random, 70),       Below(random, 70), 1 + Below(random, 9), 1725, 70001,
            65534 + Below(random, 4)};
        setup.width = widths[Below(random, 6)];
        setup.flags = Below(random, 2);
        setup.smallBuffer = Below(random, 2);
        const size_t bits = Below(random, 8) == 0 ? 40000 : Below(random, 2000);
        Bytes stream = Packed(RandomCodes(random, format, setup.width, bits), setup.flags != 0);
        setup.byteLimit = Below(random, 5) == 0 ? 1 + Below(random, 300) : 0;
        if (Below(random, 16) == 0)
            std::generate(stream.begin(), stream.end(), [&] { return static_cast<uint8_t>(random()); });
        SCOPED_TRACE("seed " + std::to_string(seed) + " width " + std::to_string(setup.width) + " bytes " +
                     std::to_string(stream.size()));
        ExpectSameDecoding(codec, stream, setup, random);
        KernelInUse().trace.clear();
    }
}

TEST_P(RandomStreams, ProbeAsTheReferenceDoes) {
    CodecSetup setup;
    CodecRun codec({}, setup);
    for (unsigned seed = 0; seed < 2000 && !HasFailure(); ++seed) {
        std::mt19937 random(seed * 1000 + GetParam());
        setup = CodecSetup();
        setup.format = GetParam();
        setup.width = 0;
        setup.smallBuffer = Below(random, 2);
        const Bytes stream = Packed(RandomCodes(random, setup.format, seed % 5 == 0 ? 60000 : seed % 40,
                                                Below(random, 8) == 0 ? 40000 : Below(random, 2000)));
        SCOPED_TRACE("seed " + std::to_string(seed));
        codec.Restart(stream, setup);
        ReferenceDecoder reference(stream, setup);
        const int lines = reference.Probe();
        ASSERT_EQ(codec.Probe(), lines);
        if (lines != 0) // otherwise the probe broke off inside a line
            ExpectSameState(codec, reference);
        KernelInUse().trace.clear();
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, RandomStreams, testing::Values(66u, 67u, 68u, 117u, 162u));

// Streams that end near the places where the buffer fills, with reads that come back short.
TEST(RandomRefills, DecodeAsTheReferenceDoes) {
    ResetTestKernel();
    CodecSetup setup;
    CodecRun codec({}, setup);
    for (const size_t boundary : {8u, 1536u, 2048u, 3074u, 150000u, 200000u})
        for (size_t size = boundary - 6; size < boundary + 7; ++size)
            for (unsigned variant = 0; variant < 12 && !testing::Test::HasFailure(); ++variant) {
                if (boundary > 100000 && variant % 4 != size % 4)
                    continue;
                std::mt19937 random(static_cast<unsigned>(size) * 64 + variant);
                setup = CodecSetup();
                setup.format = variant % 3 == 0 ? 66 : variant % 3 == 1 ? 162 : 68;
                setup.width = 1728;
                setup.smallBuffer = boundary < 4000 && variant < 9;
                setup.flags = variant % 2;
                setup.byteLimit = variant % 5 == 0 ? static_cast<unsigned>(size) : 0;
                if (variant > 6)
                    setup.readScript = {static_cast<int>(1 + Below(random, 1600)),
                                        static_cast<int>(Below(random, 2)),
                                        static_cast<int>(Below(random, 700))};
                Bytes stream = Packed(RandomCodes(random, setup.format, 1728, size * 8), setup.flags != 0);
                stream.resize(size + (setup.byteLimit != 0 ? 10 : 0));
                // Where the buffer ends with the data, the last codes have no zeros after them: fill bits.
                for (size_t i = size < 12 ? 0 : size - 12; i < stream.size(); ++i)
                    stream[i] = 0;
                SCOPED_TRACE("size " + std::to_string(size) + " variant " + std::to_string(variant));
                ExpectSameDecoding(codec, stream, setup, random);
                KernelInUse().trace.clear();
            }
}

} // namespace
