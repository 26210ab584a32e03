// Codes one row of a Group 3 stream (T.4 § 4): the tag bit, the line in one or two dimensions, and its end.
#include "API/Filters/Fax/Common/Tif_faxx/bit_output.h"
#include "API/Filters/Fax/Common/Tif_faxx/change_list.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode_forms.h"

#include <utility>

namespace faxx {
namespace {

void PutTag(CCITTG34* record, uint32_t tag) {
    BitOutput output(record);
    output.PutBits(tag);
    output.Store();
}

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
        output.PutEol((output.BitsFree() + 4) % 8);
    }
}

[[gnu::always_inline]] inline void Encode(CCITTG34* record) {
    BitOutput output(record);
    PutRuns(output, record);
    PutLineEnd(output, record);
    output.Store();
}

void EncodeOneDimensional(CCITTG34* record, const uint8_t* row) {
    static const auto kEncodeRuns = ChooseForm(EncodeRunsAnywhere, EncodeRunsFaster);
    FlushIfFull(record);
    kEncodeRuns(record, row);
    std::swap(record->ReferenceLine, record->CodingLine);
}

// Counts the line, and tells whether it leans on the one above it: all but the first of every KFactor lines
// (T.4 § 4.2.1), or all but the first of the image.
bool NextLineIsTwoDimensional(CCITTG34* record) {
    const uint32_t coded = static_cast<uint32_t>(record->NextLineTag);
    const bool groupEnds = record->Format == FORMAT_FAX_G3_2D && coded != 0 && coded + 1 >= record->KFactor;
    record->NextLineTag = groupEnds ? 0 : static_cast<int32_t>(coded + 1);
    return coded != 0;
}

} // namespace

void EncodeRunsAnywhere(CCITTG34* record, const uint8_t* row) {
    ListChangesAnywhere(record, row);
    Encode(record);
}

FAXX_FASTER_FORM void EncodeRunsFaster(CCITTG34* record, const uint8_t* row) {
    ListChangesFaster(record, row);
    Encode(record);
}

} // namespace faxx

void EncodeG3(CCITTG34* record, unsigned char* row) {
    using namespace faxx;
    const bool tagged = record->Format == FORMAT_FAX_G3_2D || record->Format == FORMAT_FAX_G3_2D_ALL2D;
    if (!tagged || !NextLineIsTwoDimensional(record)) {
        if (tagged)
            PutTag(record, kTagOneDimensional);
        EncodeOneDimensional(record, row);
        return;
    }
    PutTag(record, kTagTwoDimensional);
    EncodeG4(record, row);
    if (record->Format != FORMAT_FAX_G3_2D_ALL2D) {
        BitOutput output(record);
        PutLineEnd(output, record);
        output.Store();
    }
}
