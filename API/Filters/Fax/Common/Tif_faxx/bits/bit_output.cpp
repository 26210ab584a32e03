#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_output.h"

#include "API/Filters/Fax/Common/Tif_faxx/codes/bit_reverse.h"
#include "host/kernel.h"

namespace faxx {

void FlushBuffer(CCITTG34* record) {
    if (record->Flags & FAX_REVERSE_BITS)
        ReverseBits(record->Buffer, record->BufferCount);
    record->TotalBytes += record->BufferCount;
    const int written = K_RedirectedWrite(record->Handle, record->Buffer, record->BufferCount);
    if (written != static_cast<int>(record->BufferCount))
        record->WriteStatus = WRITE_STATUS_SHORT;
}

} // namespace faxx
