#include "tests/code_stream.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace {

const char* const kWhiteTerminating =
    "00110101 000111 0111 1000 1011 1100 1110 1111 10011 10100 00111 01000 001000 000011 110100 110101 "
    "101010 101011 0100111 0001100 0001000 0010111 0000011 0000100 0101000 0101011 0010011 0100100 0011000 "
    "00000010 00000011 00011010 00011011 00010010 00010011 00010100 00010101 00010110 00010111 00101000 "
    "00101001 00101010 00101011 00101100 00101101 00000100 00000101 00001010 00001011 01010010 01010011 "
    "01010100 01010101 00100100 00100101 01011000 01011001 01011010 01011011 01001010 01001011 00110010 "
    "00110011 00110100";
const char* const kWhiteMakeUp =
    "11011 10010 010111 0110111 00110110 00110111 01100100 01100101 01101000 01100111 011001100 011001101 "
    "011010010 011010011 011010100 011010101 011010110 011010111 011011000 011011001 011011010 011011011 "
    "010011000 010011001 010011010 011000 010011011";
const char* const kBlackTerminating =
    "0000110111 010 11 10 011 0011 0010 00011 000101 000100 0000100 0000101 0000111 00000100 00000111 "
    "000011000 0000010111 0000011000 0000001000 00001100111 00001101000 00001101100 00000110111 00000101000 "
    "00000010111 00000011000 000011001010 000011001011 000011001100 000011001101 000001101000 000001101001 "
    "000001101010 000001101011 000011010010 000011010011 000011010100 000011010101 000011010110 000011010111 "
    "000001101100 000001101101 000011011010 000011011011 000001010100 000001010101 000001010110 000001010111 "
    "000001100100 000001100101 000001010010 000001010011 000000100100 000000110111 000000111000 000000100111 "
    "000000101000 000001011000 000001011001 000000101011 000000101100 000001011010 000001100110 000001100111";
const char* const kBlackMakeUp =
    "0000001111 000011001000 000011001001 000001011011 000000110011 000000110100 000000110101 0000001101100 "
    "0000001101101 0000001001010 0000001001011 0000001001100 0000001001101 0000001110010 0000001110011 "
    "0000001110100 0000001110101 0000001110110 0000001110111 0000001010010 0000001010011 0000001010100 "
    "0000001010101 0000001011010 0000001011011 0000001100100 0000001100101";
const char* const kExtendedMakeUp =
    "00000001000 00000001100 00000001101 000000010010 000000010011 000000010100 000000010101 000000010110 "
    "000000010111 000000011100 000000011101 000000011110 000000011111";

void AppendCodes(std::vector<RunCode>& codes, const char* text, unsigned run, unsigned step) {
    std::istringstream words(text);
    for (Bits bits; words >> bits; run += step)
        codes.push_back({run, bits});
}

std::vector<RunCode> CodesOf(const char* terminating, const char* makeUp) {
    std::vector<RunCode> codes;
    AppendCodes(codes, terminating, 0, 1);
    AppendCodes(codes, makeUp, 64, 64);
    AppendCodes(codes, kExtendedMakeUp, 1792, 64);
    return codes;
}

} // namespace

const std::vector<RunCode>& RunCodes(bool black) {
    static const std::vector<RunCode> codes[] = {CodesOf(kWhiteTerminating, kWhiteMakeUp),
                                                 CodesOf(kBlackTerminating, kBlackMakeUp)};
    return codes[black];
}

Bits RunBits(bool black, unsigned run) {
    const std::vector<RunCode>& codes = RunCodes(black);
    Bits bits;
    for (; run >= 2560 + 64; run -= 2560)
        bits += codes.back().bits;
    if (run >= 64) {
        bits += codes[63 + run / 64].bits;
        run %= 64;
    }
    return bits + codes[run].bits;
}

Bits Line1D(const std::vector<unsigned>& runs) {
    Bits bits;
    for (size_t i = 0; i < runs.size(); ++i)
        bits += RunBits(i % 2 != 0, runs[i]);
    return bits;
}

Bits Horizontal(unsigned white, unsigned black) {
    return kHorizontal + RunBits(false, white) + RunBits(true, black);
}

Bits HorizontalBlack(unsigned black, unsigned white) {
    return kHorizontal + RunBits(true, black) + RunBits(false, white);
}

Bits Repeated(const Bits& bits, size_t times) {
    Bits all;
    all.reserve(bits.size() * times);
    while (times-- > 0)
        all += bits;
    return all;
}

Bits AlignedToByte(Bits bits) {
    bits.resize((bits.size() + 7) / 8 * 8, '0');
    return bits;
}

Bytes Packed(std::string_view bits, bool reversed) {
    Bytes bytes;
    size_t count = 0;
    for (const char bit : bits) {
        if (bit == ' ')
            continue;
        if (count % 8 == 0)
            bytes.push_back(0);
        if (bit == '1')
            bytes.back() |= static_cast<uint8_t>(reversed ? 1u << (count % 8) : 0x80u >> (count % 8));
        ++count;
    }
    return bytes;
}

Rows RowsFromText(std::string_view text) {
    Rows rows;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line, '|');) {
        std::istringstream runs(line);
        Row row;
        for (unsigned run = 0; runs >> run;)
            row.push_back(run);
        rows.push_back(row);
    }
    return rows;
}

Rows RowsFromWords(const unsigned short* words, size_t rowCount) {
    Rows rows(rowCount);
    for (Row& row : rows) {
        uint32_t runCount = 0;
        std::memcpy(&runCount, words, sizeof runCount);
        words += 2;
        row.assign(words, words + runCount);
        words += runCount;
    }
    return rows;
}

size_t WordsOf(const Rows& rows) {
    size_t words = 0;
    for (const Row& row : rows)
        words += 2 + row.size();
    return words;
}

Bits RandomCodes(std::mt19937& random, unsigned format, unsigned width, size_t bits) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const auto run = [&](bool black) {
        const unsigned limit = below(4) == 0 ? width + 10 : width / 6 + 3;
        return below(30) == 0 ? RunCodes(black)[below(104)].bits : RunBits(black, below(limit));
    };
    const bool modified = format == 66 || format == 162;
    const unsigned damage = below(3) == 0 ? 40 : 400; // one flipped bit in so many, about
    Bits all;
    while (all.size() < bits) {
        const bool oneDimensional = modified || (format == 67 && below(3) == 0);
        const unsigned kind = below(200);
        Bits token;
        if (kind == 0)
            token = kEofb;
        else if (kind == 1)
            token = Bits(below(40), '0') + "1";
        else if (kind == 2)
            token = kUncompressed;
        else if (kind < 6 || (kind < 20 && (modified || format == 67 || format == 117)))
            token = Bits(below(3) == 0 ? below(12) : 0, '0') + kEol +
                    (format == 66 ? ""
                     : below(2)   ? "1"
                                  : "0");
        else if (oneDimensional)
            token = run(false) + run(true);
        else if (kind < 30)
            token = kUncompressed + Bits(below(5), '1') + (below(2) ? "000001" : "1") + "01" +
                    Bits(below(5), '0') + "0000001" + (below(2) ? "1" : "0");
        else if (kind < 60)
            token = kHorizontal + run(kind >= 50) + run(kind < 50);
        else {
            static const std::pair<unsigned, Bits> modes[] = {{70, kPass}, {130, kV0},  {145, kVR1},
                                                              {160, kVL1}, {170, kVR2}, {180, kVL2},
                                                              {190, kVR3}, {200, kVL3}};
            token =
                std::find_if(modes, std::end(modes), [&](const auto& m) { return kind < m.first; })->second;
        }
        all += token;
    }
    for (char& bit : all)
        if (below(damage) == 0)
            bit = bit == '0' ? '1' : '0';
    return all;
}
