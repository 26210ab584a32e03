// Codes one row of a Group 3 stream (T.4 § 4): the tag bit, the line in one or two dimensions, and its end.
#include "API/Filters/Fax/Common/Tif_faxx/bit_output.h"
#include "API/Filters/Fax/Common/Tif_faxx/change_list.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode_forms.h"

#include <utility>

namespace faxx {
namespace {

// Modified Huffman: white and black runs in turn, the first white, the last reaching the right edge.
[[gnu::always_inline]] inline void PutRuns(BitOutput& output, const CCITTG34* record) {
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

// An EOL that ends on a byte boundary, or the byte boundary alone.
[[gnu::always_inline]] inline void PutLineEnd(BitOutput& output, const CCITTG34* record) {
    if (record->Format == FORMAT_FAX_G3_1D_NOEOL) {
        output.PutFill(output.BitsFree() % 8);
    } else {
        output.PutAlignedEol();
    }
}

[[gnu::always_inline]] inline void EndRow(BitOutput& output, CCITTG34* record) {
    PutLineEnd(output, record);
    output.Store();
    std::swap(record->ReferenceLine, record->CodingLine);
}

[[gnu::always_inline]] inline void EncodeListed(CCITTG34* record) {
    BitOutput output(record);
    PutRuns(output, record);
    EndRow(output, record);
}

// Codes the row whose list is there. Out of line, so that blank lines do not set up what that takes.
[[gnu::noinline]] void EncodeListedAnywhere(CCITTG34* record) {
    EncodeListed(record);
}

[[gnu::noinline]] FAXX_FASTER_FORM void EncodeListedFaster(CCITTG34* record) {
    EncodeListed(record);
}

// The same of a list without entries.
[[gnu::always_inline]] inline void EncodeBlank(CCITTG34* record) {
    BitOutput output(record);
    if (record->Width < kLongestCodeRun) [[likely]]
        output.Put(kWhiteRunWords[record->Width]);
    else
        PutRun<Colour::White>(output, record->Width);
    EndRow(output, record);
}

const auto kEncodeRuns = ChooseForm(EncodeRunsAnywhere, EncodeRunsFaster);

// Counts the line, and tells whether it leans on the one above it: all but the first of every KFactor lines
// (T.4 § 4.2.1), or all but the first of the image.
bool NextLineIsTwoDimensional(CCITTG34* record) {
    const uint32_t coded = static_cast<uint32_t>(record->NextLineTag);
    const bool groupEnds = record->Format == FORMAT_FAX_G3_2D && coded != 0 && coded + 1 >= record->KFactor;
    record->NextLineTag = groupEnds ? 0 : static_cast<int32_t>(coded + 1);
    return coded != 0;
}

void EncodeTagged(CCITTG34* record, const uint8_t* row) {
    if (!NextLineIsTwoDimensional(record)) {
        PutBit(record, kTagOneDimensional);
        kEncodeRuns(record, row);
        return;
    }
    PutBit(record, kTagTwoDimensional);
    EncodeTwoDimensional(record, row,
                         record->Format == FORMAT_FAX_G3_2D_ALL2D ? LineEnd::None : LineEnd::Eol);
}

} // namespace

void EncodeRunsAnywhere(CCITTG34* record, const uint8_t* row) {
    FlushIfFull(record);
    if (ListChangesAnywhere(record, row) == 0)
        EncodeBlank(record);
    else
        EncodeListedAnywhere(record);
}

FAXX_FASTER_FORM void EncodeRunsFaster(CCITTG34* record, const uint8_t* row) {
    FlushIfFull(record);
    if (ListChangesFaster(record, row) == 0)
        EncodeBlank(record);
    else
        EncodeListedFaster(record);
}

} // namespace faxx

void EncodeG3(CCITTG34* record, unsigned char* row) {
    using namespace faxx;
    const bool tagged = record->Format == FORMAT_FAX_G3_2D || record->Format == FORMAT_FAX_G3_2D_ALL2D;
    if (tagged)
        EncodeTagged(record, row);
    else
        kEncodeRuns(record, row);
}
