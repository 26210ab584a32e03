// Codes one row of a Group 3 stream (T.4 § 4): the tag bit, the line in one or two dimensions, and its end.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/encode_row.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/put_runs.h"

namespace faxx {
namespace {

// Modified Huffman: white and black runs in turn, the first white, the last reaching the right edge.
struct RunCoding {
    static bool IsBlank(const CCITTG34*, uint32_t changes) { return changes == 0; }

    static void PutBlank(BitOutput& output, const CCITTG34* record) {
        if (record->Width < kLongestCodeRun) [[likely]]
            output.PutBits(kWhiteRunCodes[record->Width]);
        else
            PutRun<Colour::White>(output, record->Width);
    }

    static void PutEnd(BitOutput& output, const CCITTG34* record, LineEnd) {
        if (RowsBeginOnBytes(record->Format))
            output.PutFill(output.BitsFree() % 8);
        else
            output.PutAlignedEol();
    }

    [[gnu::always_inline]] static void PutListed(BitOutput& output, const CCITTG34* record) {
        uint32_t position = record->Width;
        const uint32_t* change = record->CodingLine;
        for (; change[0] != 0; change += 2) {
            PutRunPair<Colour::White>(output, position - change[0], change[0] - change[1]);
            if (change[1] == 0)
                return;
            position = change[1];
        }
        PutRun<Colour::White>(output, position);
    }
};

// Counts the line. True where it is coded in two dimensions: all but the first of every KFactor lines
// (T.4 § 4.2.1), or all but the first of the image.
bool NextLineIsTwoDimensional(CCITTG34* record) {
    const uint32_t coded = static_cast<uint32_t>(record->NextLineTag);
    const bool groupEnds = HasLineGroups(record->Format) && coded != 0 && coded + 1 >= record->KFactor;
    record->NextLineTag = groupEnds ? 0 : static_cast<int32_t>(coded + 1);
    return coded != 0;
}

void EncodeTagged(CCITTG34* record, const uint8_t* row) {
    if (!NextLineIsTwoDimensional(record)) {
        PutBit(record, kTagOneDimensional);
        kFunctions.encodeRuns(record, row);
        return;
    }
    PutBit(record, kTagTwoDimensional);
    kFunctions.encodeModes(record, row, HasTwoDimensionalTail(record->Format) ? LineEnd::None : LineEnd::Eol);
}

} // namespace

void EncodeRunsBaseline(CCITTG34* record, const uint8_t* row) {
    EncodeRow<InstructionSet::Baseline, RunCoding>(record, row, LineEnd::Eol);
}

FAXX_AVX2 void EncodeRunsAvx2(CCITTG34* record, const uint8_t* row) {
    EncodeRow<InstructionSet::Avx2, RunCoding>(record, row, LineEnd::Eol);
}

} // namespace faxx

void EncodeG3(CCITTG34* record, unsigned char* row) {
    using namespace faxx;
    if (HasTagBits(record->Format))
        EncodeTagged(record, row);
    else
        kFunctions.encodeRuns(record, row);
}
