#include "tests/reference_decoder.h"

#include <algorithm>

namespace {

struct EndOfInput {};
constexpr size_t kBudget = 249998;
constexpr int kNoRun = -1;

// Input.

bool Fill(ReferenceDecoder& d) {
    d.held.erase(d.held.begin(),
                 d.held.begin() + static_cast<ptrdiff_t>(std::min(d.readPosition, d.held.size())));
    const size_t kept = d.held.size();
    size_t room = (d.setup.smallBuffer != 0 ? 2048 : 200000) - kept;
    if (d.setup.byteLimit != 0)
        room = std::min(room, d.setup.byteLimit - d.bytesRead);
    d.readPosition = 0;
    if (room == 0) {
        d.threshold = kept + 2;
        return kept != 0;
    }
    size_t count = std::min(room, d.stream.size() - d.streamPosition);
    if (d.reads < d.setup.readScript.size())
        count = std::min(count, static_cast<size_t>(std::max(0, d.setup.readScript[d.reads])));
    ++d.reads;
    if (count == 0 && kept == 0)
        return false;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t byte = d.stream[d.streamPosition++];
        uint8_t turned = 0;
        for (unsigned bit = 0; bit < 8; ++bit)
            turned = static_cast<uint8_t>(turned | (((byte >> bit) & 1u) << (7 - bit)));
        d.held.push_back((d.setup.flags & 1) != 0 ? turned : byte);
    }
    d.bytesRead += count;
    if (d.held.size() < d.threshold)
        d.threshold = d.held.size() + 2;
    return true;
}

void LoadPair(ReferenceDecoder& d) {
    if (d.readPosition > d.threshold && !Fill(d))
        throw EndOfInput();
    for (int i = 0; i < 2; ++i, ++d.readPosition)
        d.loaded.push_back(d.readPosition < d.held.size() ? d.held[d.readPosition] : uint8_t{0});
}

uint32_t Peek(const ReferenceDecoder& d, unsigned bits) {
    uint32_t value = 0;
    for (size_t i = d.position; i < d.position + bits; ++i)
        value = value << 1 | (i / 8 < d.loaded.size() ? uint32_t{d.loaded[i / 8]} >> (7 - i % 8) & 1u : 0u);
    return value;
}

void Consume(ReferenceDecoder& d, unsigned bits) {
    const size_t pairs = (d.position + bits) / 16 - d.position / 16;
    d.position += bits;
    if (pairs != 0)
        LoadPair(d);
}

// The length of the code word at the next bit and its run; {0, NO_RUN} for none.
struct Code {
    unsigned length;
    int run;
};

Code NextCode(const ReferenceDecoder& d, bool black) {
    static const auto tables = [] {
        std::vector<std::vector<Code>> both(2, std::vector<Code>(8192, Code{0, kNoRun}));
        for (size_t colour = 0; colour < 2; ++colour)
            for (const RunCode& code : RunCodes(colour != 0)) {
                const size_t low = std::stoul(code.bits, nullptr, 2) << (13 - code.bits.size());
                for (size_t i = 0; i < size_t{1} << (13 - code.bits.size()); ++i)
                    both[colour][low + i] = {static_cast<unsigned>(code.bits.size()),
                                             static_cast<int>(code.run)};
            }
        return both;
    }();
    return tables[black][Peek(d, 13)];
}

// Subtracts a whole run from distance; false at a missing code.
bool ReadRun(ReferenceDecoder& d, bool black, int64_t& distance) {
    for (;;) {
        const Code code = NextCode(d, black);
        if (code.run == kNoRun)
            return false;
        distance -= code.run;
        Consume(d, code.length);
        if (code.run < 64)
            return true;
    }
}

void SkipToOne(ReferenceDecoder& d) {
    while (Peek(d, 1) == 0)
        Consume(d, 1);
    Consume(d, 1);
}

void ReadTag(ReferenceDecoder& d) {
    if (d.setup.format == 67 || d.setup.format == 117) {
        d.nextLineTag = d.Accumulator();
        Consume(d, 1);
    }
}

// Rows.

void PushRun(Row& row, uint64_t run) {
    for (; run > 65534; run -= 65534) {
        row.push_back(65534);
        row.push_back(0);
    }
    row.push_back(static_cast<unsigned>(run));
}

// Closes the coding list, appends its row and makes it the reference line.
void EndLine(ReferenceDecoder& d, Rows& rows) {
    d.coding.insert(d.coding.end(), 3, 0);
    Row row;
    int64_t previous = d.width;
    for (size_t i = 0;; ++i) {
        const int64_t entry = d.coding[i];
        if (entry < 0 || entry > previous) {
            PushRun(row, static_cast<uint64_t>(previous));
            d.coding.resize(i);
            d.coding.insert(d.coding.end(), 3, 0);
            break;
        }
        PushRun(row, static_cast<uint64_t>(previous - entry));
        previous = entry;
        if (entry == 0)
            break;
    }
    rows.push_back(row);
    std::swap(d.reference, d.coding);
    d.coding.clear();
}

Rows WhiteRows(const ReferenceDecoder& d, unsigned lines) {
    Row row;
    PushRun(row, d.width);
    return Rows(std::min<size_t>(lines, kBudget / (2 + row.size())), row);
}

// Two-dimensional lines.

enum class Step { Next, Ended, Return, Fresh };

struct TwoDimensional {
    int64_t a0;
    size_t b1;
};

int64_t EntryAt(const ReferenceDecoder& d, size_t index) {
    return index < d.reference.size() ? d.reference[index] : 0;
}

Step Overshot(ReferenceDecoder& d, int64_t beyond) {
    if (beyond == 0)
        return Step::Ended;
    if (d.width % 8 != 0 && beyond == 8 - d.width % 8) {
        d.width += static_cast<uint32_t>(beyond);
        for (int64_t& entry : d.coding)
            entry += beyond;
        d.dispatchStatus = ERROR_FAX_WIDTH_CHANGED;
    } else {
        d.dispatchStatus = ERROR_FAX_DATA_CORRUPT;
        while (!d.coding.empty() && d.coding.back() < 1)
            d.coding.pop_back();
    }
    return Step::Ended;
}

Step Vertical(ReferenceDecoder& d, TwoDimensional& at, int right, unsigned bits) {
    Consume(d, bits);
    const int64_t b1 = EntryAt(d, at.b1);
    const int64_t a1 = b1 - right;
    if (right > 0 && a1 < 1)
        return Overshot(d, -a1);
    if (right < 0 && a1 > at.a0) {
        d.dispatchStatus = ERROR_FAX_DATA_CORRUPT;
        d.decodeStatus = 1;
        return Step::Ended;
    }
    d.coding.push_back(a1);
    at.a0 = a1;
    if (a1 == 0)
        return Step::Ended;
    if (right >= 0) {
        ++at.b1;
        while (right > 0 && EntryAt(d, at.b1) >= a1)
            at.b1 += 2;
    } else {
        at.b1 = at.b1 == 0 ? 1 : at.b1 - 1;
        if (EntryAt(d, at.b1) >= a1)
            at.b1 += 2;
    }
    return Step::Next;
}

Step HorizontalPair(ReferenceDecoder& d, TwoDimensional& at) {
    Consume(d, 3);
    const bool black = at.b1 % 2 != 0;
    int64_t a = at.a0;
    for (const bool second : {false, true}) {
        const bool colour = black != second;
        if (!ReadRun(d, colour, a)) {
            if (!colour || d.setup.format != 162) {
                SkipToOne(d);
                ReadTag(d);
            }
            return second || !d.coding.empty() ? Step::Ended : Step::Next;
        }
        d.coding.push_back(a);
    }
    if (a < 1)
        return Overshot(d, -a);
    at.a0 = a;
    while (EntryAt(d, at.b1) >= a)
        at.b1 += 2;
    return Step::Next;
}

Step Uncompressed(ReferenceDecoder& d, TwoDimensional& at) {
    Consume(d, 10);
    bool colour = at.b1 % 2 != 0;
    const auto pixel = [&](bool black) {
        if (black != colour)
            d.coding.push_back(at.a0);
        colour = black;
    };
    for (;;) {
        if (Peek(d, 6) == 1) {
            pixel(false);
            at.a0 = std::max<int64_t>(0, at.a0 - 5);
            Consume(d, 6);
        } else if (Peek(d, 7) == 1) {
            const bool tag = (Peek(d, 8) & 1) != 0;
            Consume(d, 8);
            if (at.a0 == 0)
                return Step::Ended;
            pixel(tag);
            at.b1 = tag;
            while (EntryAt(d, at.b1) >= at.a0)
                at.b1 += 2;
            return Step::Next;
        } else {
            pixel(Peek(d, 1) != 0);
            at.a0 = std::max<int64_t>(0, at.a0 - 1);
            Consume(d, 1);
        }
        if (at.a0 == 0)
            return Step::Ended;
    }
}

Step SevenZeros(ReferenceDecoder& d) {
    if (Peek(d, 16) != 0x0010) {
        d.dispatchStatus = ERROR_FAX_DATA_CORRUPT;
        Consume(d, 8);
        return Step::Ended;
    }
    Consume(d, 16);
    if (Peek(d, 8) != 1) {
        d.decodeStatus = 1;
        return Step::Return;
    }
    Consume(d, 8);
    Consume(d, static_cast<unsigned>(d.BitCount()) % 8);
    return Step::Fresh;
}

Step ReadMode(ReferenceDecoder& d, TwoDimensional& at) {
    static const std::pair<Bits, int> verticals[] = {{kV0, 0},   {kVR1, 1}, {kVL1, -1}, {kVR2, 2},
                                                     {kVL2, -2}, {kVR3, 3}, {kVL3, -3}};
    const auto comes = [&](const Bits& code) {
        return Peek(d, static_cast<unsigned>(code.size())) == std::stoul(code, nullptr, 2);
    };
    for (const auto& [code, right] : verticals)
        if (comes(code))
            return Vertical(d, at, right, static_cast<unsigned>(code.size()));
    if (comes(kHorizontal))
        return HorizontalPair(d, at);
    if (comes(kPass)) {
        Consume(d, 4);
        at.a0 = EntryAt(d, at.b1 + 1);
        at.b1 += 2;
        return at.a0 == 0 ? Step::Ended : Step::Next;
    }
    if (Peek(d, 7) == 0)
        return SevenZeros(d);
    if (comes(kUncompressed))
        return Uncompressed(d, at);
    d.dispatchStatus = ERROR_FAX_DATA_CORRUPT;
    return Step::Return;
}

Rows DecodeTwoDimensional(ReferenceDecoder& d, unsigned lines, size_t budget) {
    if (d.decodeStatus != 0)
        return WhiteRows(d, lines);
    Rows rows;
    TwoDimensional at = {d.width, 0};
    try {
        for (;;) {
            const Step step = ReadMode(d, at);
            if (step == Step::Return) {
                d.coding.clear();
                return rows;
            }
            if (step == Step::Next)
                continue;
            if (step == Step::Ended || !d.coding.empty())
                EndLine(d, rows);
            if (step == Step::Fresh)
                d.reference = {0, 0, 0};
            at = {d.width, 0};
            if (rows.size() == lines || budget < WordsOf(rows) + d.width + 3)
                return rows;
        }
    } catch (const EndOfInput&) {
        EndLine(d, rows);
        d.decodeStatus = 2;
        return rows;
    }
}

// One-dimensional lines.

void EndOneDimensional(ReferenceDecoder& d, Rows& rows, int64_t remaining) {
    if (d.setup.format == 162)
        Consume(d, static_cast<unsigned>(d.BitCount()) % 8);
    if (remaining != 0 && static_cast<int64_t>(d.width) - remaining <= (d.width + 7) / 8 * 8) {
        d.width = static_cast<uint32_t>(d.width - remaining);
        d.coding.back() = 0;
    }
    EndLine(d, rows);
}

// What an EOL at a run's place did: false when it stood in front of the line.
bool EndedByEol(ReferenceDecoder& d, bool black) {
    if (!black || d.setup.format != 162)
        SkipToOne(d);
    ReadTag(d);
    if (!black && d.coding.empty())
        return false;
    d.coding.push_back(0);
    return true;
}

Rows DecodeOneDimensional(ReferenceDecoder& d, unsigned lines) {
    if (d.decodeStatus != 0) {
        d.dispatchStatus = ERROR_FAX_DATA_CORRUPT;
        return WhiteRows(d, lines);
    }
    Rows rows;
    try {
        while (rows.size() < lines) {
            int64_t remaining = d.width;
            for (bool black = false;; black = !black) {
                if (!black && d.nextLineTag < 0x80000000u) {
                    unsigned count = lines - static_cast<unsigned>(rows.size());
                    if (d.setup.format != 117) {
                        d.nextLineTag = 0x80000000u;
                        count = 1;
                    }
                    const Rows more = DecodeTwoDimensional(d, count, kBudget - WordsOf(rows));
                    rows.insert(rows.end(), more.begin(), more.end());
                    return rows;
                }
                if (!ReadRun(d, black, remaining)) {
                    if (EndedByEol(d, black)) {
                        remaining = 0;
                        break;
                    }
                    black = true;
                    continue;
                }
                d.coding.push_back(remaining);
                if (remaining <= 0 && (black || d.setup.format == 162 || Peek(d, 10) != 0b0000110111))
                    break;
            }
            EndOneDimensional(d, rows, remaining);
            if (WordsOf(rows) + d.width + 1 >= kBudget)
                break;
        }
    } catch (const EndOfInput&) {
        EndLine(d, rows);
        d.decodeStatus = 2;
    }
    return rows;
}

} // namespace

ReferenceDecoder::ReferenceDecoder(Bytes bytes, const CodecSetup& s)
    : stream(std::move(bytes)), setup(s), threshold(s.smallBuffer != 0 ? 1536 : 150000), width(s.width) {
    if (!Fill(*this)) {
        decodeStatus = 2;
        return;
    }
    for (; readPosition < 4; ++readPosition)
        loaded.push_back(readPosition < held.size() ? held[readPosition] : uint8_t{0});
}

uint32_t ReferenceDecoder::Accumulator() const {
    const unsigned valid = static_cast<unsigned>(BitCount()) + 16;
    const uint32_t bits = Peek(*this, valid);
    return valid == 32 ? bits : bits << (32 - valid);
}

Rows ReferenceDecoder::Decode(unsigned lines) {
    return IsG3(setup.format) ? DecodeOneDimensional(*this, lines)
                              : DecodeTwoDimensional(*this, lines, kBudget);
}

int ReferenceDecoder::Probe() {
    width = 0;
    int count = 0;
    while (decodeStatus == 0) {
        Rows rows;
        int64_t remaining = 65535;
        try {
            for (bool black = false;; black = !black) {
                if (!black && nextLineTag < 0x80000000u) {
                    nextLineTag = 0x80000000u;
                    if (DecodeTwoDimensional(*this, 1, kBudget).empty())
                        return count;
                    break;
                }
                if (!ReadRun(*this, black, remaining)) {
                    if (EndedByEol(*this, black)) {
                        EndLine(*this, rows);
                        break;
                    }
                    black = true;
                    continue;
                }
                coding.push_back(remaining);
                if (remaining == 0) {
                    EndLine(*this, rows);
                    break;
                }
                width = std::max(width, static_cast<uint32_t>(65535 - remaining));
                if (width > 200000)
                    return 0;
            }
        } catch (const EndOfInput&) {
            EndLine(*this, rows);
            decodeStatus = 2;
        }
        ++count;
    }
    return count;
}
