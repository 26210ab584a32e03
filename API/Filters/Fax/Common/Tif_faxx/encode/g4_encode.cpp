// Codes one row in two dimensions (T.6 § 2.2, T.4 § 4.2.1.3).
//
// Works on the change lists alone: positions are distances from the right edge, so x lies left of y when its
// distance is greater, and the right edge is 0.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/mode_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/encode_row.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/put_runs.h"

namespace faxx {
namespace {

struct ModeCoding {
    // A blank row below a blank one.
    static bool IsBlank(const CCITTG34* record, uint32_t changes) {
        return (changes | record->ReferenceLine[0]) == 0;
    }

    static void PutBlank(BitOutput& output, const CCITTG34*) { output.PutBits(kV0Code); }

    static void PutEnd(BitOutput& output, const CCITTG34*, LineEnd end) {
        if (end == LineEnd::Eol)
            output.PutAlignedEol();
    }

    [[gnu::always_inline]] static void PutListed(BitOutput& output, const CCITTG34* record) {
        const uint32_t* const reference = record->ReferenceLine;
        const uint32_t* a1 = record->CodingLine; // a2 is the entry after it
        const uint32_t* b1 = reference;          // b2 is the entry after it
        uint32_t a0 = record->Width;
        const auto seekB1 = [&]() __attribute__((always_inline)) {
            while (*b1 >= a0) // a0 is left of the edge, so the closing zeros stop it
                b1 += 2;
        };
        for (;;) {
            // The order of the tests settles rows that more than one mode could code: vertical, pass,
            // horizontal.
            const uint32_t vertical = *b1 - *a1 + 3; // a1 - b1 + 3 in columns
            if (vertical <= 6) {
                output.PutBits(VerticalCodes[vertical]);
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
                    PutRunPair<Colour::White>(output, a0 - a1[0], a1[0] - a1[1], kHorizontalCode);
                else
                    PutRunPair<Colour::Black>(output, a0 - a1[0], a1[0] - a1[1], kHorizontalCode);
                a0 = a1[1];
                if (a0 == 0)
                    break;
                a1 += 2;
                seekB1();
            }
        }
    }
};

} // namespace

void EncodeModesBaseline(CCITTG34* record, const uint8_t* row, LineEnd end) {
    EncodeRow<InstructionSet::Baseline, ModeCoding>(record, row, end);
}

FAXX_AVX2 void EncodeModesAvx2(CCITTG34* record, const uint8_t* row, LineEnd end) {
    EncodeRow<InstructionSet::Avx2, ModeCoding>(record, row, end);
}

} // namespace faxx

void EncodeG4(CCITTG34* record, unsigned char* row) {
    faxx::kFunctions.encodeModes(record, row, faxx::LineEnd::None);
}
