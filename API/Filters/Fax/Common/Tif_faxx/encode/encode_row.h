// The steps that both codings share. A Coding has four static functions:
// - IsBlank(record, changes): whether a row of so many changing elements has a code of its own,
// - PutBlank(output, record): that code,
// - PutListed(output, record): the code of the row that CodingLine lists,
// - PutEnd(output, record, end): what follows a row's code.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_output.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_coding.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/row_scan.h"

#include <utility>

namespace faxx {

template <typename Coding>
[[gnu::always_inline]] inline void PutListedRow(CCITTG34* record) {
    BitOutput output(record);
    Coding::PutListed(output, record);
    output.Store();
}

// Not inlined: blank rows would set up the registers of the loop.
template <typename Coding>
[[gnu::noinline]] void PutListedRowBaseline(CCITTG34* record) {
    PutListedRow<Coding>(record);
}

template <typename Coding>
[[gnu::noinline]] FAXX_AVX2 void PutListedRowAvx2(CCITTG34* record) {
    PutListedRow<Coding>(record);
}

// Ends a row, and codes it where it is blank. Apart from the loop of a listed row, which needs all registers.
template <typename Coding>
[[gnu::always_inline]] inline void EndRow(CCITTG34* record, bool blank, LineEnd end) {
    BitOutput output(record);
    if (blank)
        Coding::PutBlank(output, record);
    Coding::PutEnd(output, record, end);
    output.Store();
    std::swap(record->ReferenceLine, record->CodingLine);
}

template <InstructionSet set, typename Coding>
[[gnu::always_inline]] inline void EncodeRow(CCITTG34* record, const uint8_t* row, LineEnd end) {
    constexpr bool kAvx2 = set == InstructionSet::Avx2;
    FlushIfFull(record);
    const uint32_t changes = kAvx2 ? ListChangesAvx2(record, row) : ListChangesBaseline(record, row);
    const bool blank = Coding::IsBlank(record, changes);
    if (!blank)
        kAvx2 ? PutListedRowAvx2<Coding>(record) : PutListedRowBaseline<Coding>(record);
    EndRow<Coding>(record, blank, end);
}

} // namespace faxx
