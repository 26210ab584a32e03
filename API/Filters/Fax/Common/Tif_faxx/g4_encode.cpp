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

[[gnu::always_inline]] inline void Encode(CCITTG34* record) {
    BitOutput output(record);
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
    output.Store();
}

} // namespace

void EncodeModesAnywhere(CCITTG34* record, const uint8_t* row) {
    ListChangesAnywhere(record, row);
    Encode(record);
}

FAXX_FASTER_FORM void EncodeModesFaster(CCITTG34* record, const uint8_t* row) {
    ListChangesFaster(record, row);
    Encode(record);
}

} // namespace faxx

void EncodeG4(CCITTG34* record, unsigned char* row) {
    using namespace faxx;
    static const auto kEncodeModes = ChooseForm(EncodeModesAnywhere, EncodeModesFaster);
    FlushIfFull(record);
    kEncodeModes(record, row);
    std::swap(record->ReferenceLine, record->CodingLine);
}
