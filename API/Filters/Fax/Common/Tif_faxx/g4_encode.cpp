// Codes one row in two dimensions (T.6 § 2.2, T.4 § 4.2.1.3).
//
// Works on the change lists alone: positions are distances from the right edge, so x lies left of y when its
// distance is greater, and the right edge is 0.
#include "API/Filters/Fax/Common/Tif_faxx/bit_output.h"
#include "API/Filters/Fax/Common/Tif_faxx/change_list.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode_forms.h"

#include <utility>

namespace faxx {
namespace {

constexpr CodeWord kHorizontal = UnpackCode(kHorizontalCode);

// Puts the codes of the coding line.
[[gnu::always_inline]] inline void PutModes(BitOutput& output, const CCITTG34* record) {
    const uint32_t* const reference = record->ReferenceLine;
    const uint32_t* a1 = record->CodingLine; // a2 is the entry after it
    const uint32_t* b1 = reference;          // b2 is the entry after it
    uint32_t a0 = record->Width;
    const auto seekB1 = [&]() __attribute__((always_inline)) {
        while (*b1 >= a0) // a0 is left of the edge, so the closing zeros stop it
            b1 += 2;
    };
    for (;;) {
        // The order of the tests settles rows that more than one mode could code: vertical, pass, horizontal.
        const uint32_t vertical = *b1 - *a1 + 3; // a1 - b1 + 3 in columns
        if (vertical <= 6) {
            output.Put(kVerticalWords[vertical]);
            if (*a1 == 0)
                break;
            a0 = *a1++;
            b1 += b1 == reference ? 1 : -1;
            seekB1();
        } else if (b1[1] > *a1) {
            output.PutBits(kPassCode);
            a0 = b1[1];
            b1 += 2;
            seekB1();
        } else {
            if ((b1 - reference) % 2 == 0)
                PutRunPair<Colour::White>(output, a0 - a1[0], a1[0] - a1[1], kHorizontal);
            else
                PutRunPair<Colour::Black>(output, a0 - a1[0], a1[0] - a1[1], kHorizontal);
            a0 = a1[1];
            if (a0 == 0)
                break;
            a1 += 2;
            seekB1();
        }
    }
}

[[gnu::always_inline]] inline void EncodeListed(CCITTG34* record) {
    BitOutput output(record);
    PutModes(output, record);
    output.Store();
}

// Codes the row whose list is there. Out of line, so that blank lines do not set up what that takes.
[[gnu::noinline]] void EncodeListedAnywhere(CCITTG34* record) {
    EncodeListed(record);
}

[[gnu::noinline]] FAXX_FASTER_FORM void EncodeListedFaster(CCITTG34* record) {
    EncodeListed(record);
}

// Whether a listed row is a blank line below a blank one.
bool IsBlank(const CCITTG34* record, uint32_t changes) {
    return (changes | record->ReferenceLine[0]) == 0;
}

// Ends a row, which is still to be coded where it is a blank line below a blank one.
[[gnu::always_inline]] inline void EndRow(CCITTG34* record, bool blank, LineEnd end) {
    BitOutput output(record);
    if (blank)
        output.Put(kVerticalWords[kV0]);
    if (end == LineEnd::Eol)
        output.PutAlignedEol();
    output.Store();
    std::swap(record->ReferenceLine, record->CodingLine);
}

} // namespace

void EncodeModesAnywhere(CCITTG34* record, const uint8_t* row, LineEnd end) {
    FlushIfFull(record);
    const bool blank = IsBlank(record, ListChangesAnywhere(record, row));
    if (!blank)
        EncodeListedAnywhere(record);
    EndRow(record, blank, end);
}

FAXX_FASTER_FORM void EncodeModesFaster(CCITTG34* record, const uint8_t* row, LineEnd end) {
    FlushIfFull(record);
    const bool blank = IsBlank(record, ListChangesFaster(record, row));
    if (!blank)
        EncodeListedFaster(record);
    EndRow(record, blank, end);
}

static const auto kEncodeModes = ChooseForm(EncodeModesAnywhere, EncodeModesFaster);

void EncodeTwoDimensional(CCITTG34* record, const uint8_t* row, LineEnd end) {
    kEncodeModes(record, row, end);
}

} // namespace faxx

void EncodeG4(CCITTG34* record, unsigned char* row) {
    faxx::EncodeTwoDimensional(record, row, faxx::LineEnd::None);
}
