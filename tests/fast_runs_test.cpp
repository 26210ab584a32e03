// The two forms of the fast G3 reader against each other, and against the codes it was given.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using namespace faxx;

constexpr uint32_t kWidth = 60000;

struct Stream {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(4096);
    uint64_t bits = 0;

    void Put(CodeWord code) {
        for (uint32_t i = code.length; i-- != 0; ++bits)
            bytes[bits / 8] |= static_cast<uint8_t>((code.bits >> i & 1) << (7 - bits % 8));
    }

    void PutRun(Colour colour, uint32_t run) {
        for (; run >= kTerminatingCodes; run -= std::min(run / 64 * 64, kLongestCodeRun))
            Put(RunCode(colour, std::min(run / 64 * 64, kLongestCodeRun)));
        Put(RunCode(colour, run));
    }
};

// A line's state after a reader, and the changes that it wrote.
struct Outcome {
    bool complete;
    int64_t position;
    uint32_t remaining;
    std::vector<uint32_t> changes;

    bool operator==(const Outcome&) const = default;
};

Outcome Read(bool (*reader)(g3::Line&, g3::Edge), Stream& stream, int format) {
    std::vector<uint32_t> coding(stream.bytes.size() * 8);
    CCITTG34 record{};
    record.Format = static_cast<uint32_t>(format);
    record.NextLineTag = INT32_MIN;
    record.Width = kWidth;
    record.CodingLine = coding.data();
    record.Buffer = stream.bytes.data();
    record.RefillThreshold = static_cast<uint32_t>(stream.bytes.size()) - 64;
    g3::Line line(&record);
    line.input.MoveTo(0);
    line.Begin(kWidth, static_cast<uint32_t>(coding.size()));
    const bool complete = reader(line, g3::Edge::EndsLine);
    coding.resize(line.written);
    return {complete, line.input.Position(), line.remaining, coding};
}

TEST(FastRuns, BothFormsReadEveryLengthAndStopAtTheSameBit) {
    if (!HasAvx2())
        GTEST_SKIP() << "the processor has one form only";
    std::mt19937 random(3);
    for (unsigned round = 0; round < 600; ++round) {
        const uint32_t longest[] = {3, 70, 700, 6000};
        Stream stream;
        Outcome expected{true, 0, kWidth, {}};
        Colour colour = Colour::White;
        while (expected.remaining != 0 && stream.bits < 24000) {
            const uint32_t run = std::min<uint32_t>(
                expected.remaining, static_cast<uint32_t>(random()) % longest[(round + random() % 2) % 4]);
            stream.PutRun(colour, run);
            colour = Opposite(colour);
            expected.remaining -= run;
            if (expected.remaining != 0)
                expected.changes.push_back(expected.remaining);
        }
        expected.position = static_cast<int64_t>(stream.bits);
        const Outcome clean = Read(g3::ReadRunsBaseline, stream, FORMAT_FAX_G3_1D);
        ASSERT_EQ(clean.complete, expected.remaining == 0) << "round " << round;
        if (clean.complete) {
            ASSERT_EQ(clean, expected) << "round " << round;
        }

        for (auto damage = random() % 3; damage != 0; --damage)
            stream.bytes[random() % (stream.bits / 8)] ^= static_cast<uint8_t>(random());
        for (const int format : {FORMAT_FAX_G3_1D, FORMAT_FAX_G3_1D_NOEOL})
            ASSERT_EQ(Read(g3::ReadRunsBaseline, stream, format), Read(g3::ReadRunsAvx2, stream, format))
                << "round " << round;
    }
}

} // namespace
