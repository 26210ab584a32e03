// The search for a raw stream with trials that share what they know, against the same search in which every
// trial runs to its end: what is described is the same, wherever the file ends.
#include "tests/code_stream.h"

#include <gtest/gtest.h>

#include "API/Filters/Fax/Common/Tif_faxx/streams/stream_search.h"

namespace {

struct Found {
    int status;
    int format, width, height;
    int64_t offset;
    uint32_t flags;
    bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Found& f) {
    return out << "status " << f.status << ", format " << f.format << ", " << f.width << " x " << f.height
               << " at " << f.offset << ", flags " << f.flags;
}

constexpr uint64_t kNeverShare = UINT64_MAX;

Found Search(Bytes& file, uint64_t readUnshared) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, file.data(), file.size());
    CCITTG34 record{};
    std::vector<unsigned short> rows(faxx::kRawRowWords);
    std::vector<unsigned short> scratch(faxx::kRowWords);
    faxx::TrialHistory history(scratch.data(), readUnshared);
    _LOADINFO info{};
    info.Format = info.Width = info.Height = -1;
    const int status = faxx::FindStream(&record, handle, &info, rows.data(), history);
    QuitDecodeG34(&record, 1);
    K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    return {status, info.Format, info.Width, info.Height, info.Offset, info.Flags};
}

void ExpectTheSame(Bytes file) {
    EXPECT_EQ(Search(file, 0), Search(file, kNeverShare)) << file.size() << " bytes";
}

// Offsets at which a trial begins, then lines, then the rest of a file of size bytes: one line in the middle
// grows until it fits.
Bytes FileOfSize(const Bits& heads, const Bits& lines, const Bits& filler, const Bits& end, size_t size) {
    Bits bits = heads + lines;
    while (bits.size() + filler.size() + end.size() <= size * 8)
        bits += filler;
    bits += Repeated("0", size * 8 - bits.size() - end.size());
    return Packed(bits + end);
}

const Bits kHead = kEol + "0000";
const Bits kPixels = RunBits(false, 1) + RunBits(true, 1);
const Bits kNothing = RunBits(false, 0) + RunBits(true, 0);

// The last bits of a file are read or not by how its bytes fall into the input buffer, which differs from one
// offset to the next: 150,002 bytes later they fall alike.
TEST(Search, SharedTrialsEndWhereTheFileDoes) {
    const Bits ends[] = {kEol + Line1D({7, 9}), Line1D({7, 64000}), Line1D({5, 3, 7}), kEol + "1" + kEol};
    for (const unsigned fills : {1u, 2u})
        for (const unsigned offset : {0u, 4u, 20u}) // the first trial, one in the middle, the last
            for (const Bits& end : ends)
                for (const unsigned more : {0u, 1u, 2u, 3u, 4u}) {
                    const size_t size = size_t{150000} + 150002 * (fills - 1) + offset + more;
                    const unsigned lines = 96 + (more + fills) % 4;
                    ExpectTheSame(FileOfSize(Repeated(kHead, 10) + kEol,
                                             Repeated(Line1D({100, 100}) + kEol, lines), kNothing, end,
                                             size));
                    if (HasFailure())
                        return;
                }
}

// Trials that are sure to fail, and trials that are not.
TEST(Search, SharedTrialsFindWhatTheyWouldAlone) {
    std::mt19937 random(7);
    const auto below = [&](size_t limit) { return static_cast<unsigned>(random() % limit); };
    const Bits tooWide = kEol + Repeated(RunBits(false, 64) + RunBits(true, 0), 3500);
    for (unsigned round = 0; round < 400 && !HasFailure(); ++round) {
        const Bits heads[] = {kHead, kEol + "1000", kEol + "110110000000", kEol + kNothing + "000000",
                              kEol + "1" + kPixels};
        const Bits lines[] = {kEol + kNothing,
                              kEol + "1" + kNothing,
                              kEol + "0" + kV0 + kV0 + kV0,
                              kEol + "0" + Horizontal(3, 5) + kV0,
                              kEol + Repeated(kPixels, 1 + below(40)),
                              kEol + "1" + Line1D({65000, 3, 400, 7}),
                              kEol + "0" + Horizontal(64000, 700) + kVR1 + kV0};
        Bits bits = Repeated(heads[below(std::size(heads))], 20 + below(100));
        bits += Repeated(heads[below(std::size(heads))], below(40)) + Repeated("1", below(9));
        const unsigned kinds = 1 + below(3);
        const unsigned first = below(std::size(lines));
        for (unsigned count = 60 + below(80); count != 0; --count)
            bits += lines[(first + below(kinds)) % std::size(lines)];
        if (below(2) == 0)
            bits += tooWide;
        bits += Repeated(kNothing, below(300)) + Repeated("0", below(20));
        ExpectTheSame(Packed(bits, below(4) == 0));
    }
}

} // namespace
