// Finds a raw G3 stream by its first EOL: at each of the first offsets of a file where one could begin, the
// stream is decoded from there, first as one-dimensional, then as two-dimensional G3. The first trial that
// finds enough lines and a width is believed.
#include "API/Filters/Fax/Common/Tif_faxx/streams/stream_search.h"

#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/description.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/g3_probe.h"
#include "host/kernel.h"

namespace faxx {
namespace {

constexpr int64_t kProbedOffsets = 2000;
constexpr int32_t kProbedResolution = 300; // dots per inch

enum class Eol : uint8_t { None, Normal, Reversed };

// An EOL that starts with the first of 16 bits or ends with the last of them, in either bit order.
Eol EolAt(const uint8_t bytes[2]) {
    const unsigned word = static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
    if ((word & 0xFFF0) == 0x0010 || word == 0x0001)
        return Eol::Normal;
    if ((word & 0xFF0F) == 0x0008 || word == 0x0080)
        return Eol::Reversed;
    return Eol::None;
}

// The arguments of a search.
struct Search {
    CCITTG34* record;
    tagHANDLE* handle;
    _LOADINFO* info;
    unsigned short* rows;
    TrialHistory& history;
};

// Decodes the stream at offset as the given format to find its size. SUCCESS with a positive Width where it
// is convincing, SUCCESS with Width 0 where not; anything else is the decoder set-up's failure.
int TryFormat(const Search& search, int64_t offset, int format) {
    CCITTG34* record = search.record;
    _LOADINFO* info = search.info;
    info->Format = format;
    K_RedirectedSeek(search.handle, offset, 0);
    const int status = SetUpDecoder(nullptr, record, static_cast<unsigned>(format), 0,
                                    ReversedBits(info->Flags), search.handle, 0, 0);
    if (status != SUCCESS)
        return status;
    TrialNotes notes(search.history, record, offset);
    info->Height = ProbeStream(record, search.rows, notes);
    if (IsConvincing(record->Width, info->Height)) {
        info->Width = static_cast<int32_t>(record->Width);
        return SUCCESS;
    }
    info->Width = 0;
    QuitDecodeG34(record, 0);
    return SUCCESS;
}

} // namespace

int FindStream(CCITTG34* record, tagHANDLE* handle, _LOADINFO* info, unsigned short* rows,
               TrialHistory& history) {
    const Search search{record, handle, info, rows, history};
    info->BitsPerPixel = 1;
    info->XResolution = kProbedResolution;
    info->YResolution = kProbedResolution;
    for (info->Offset = 0; info->Offset < kProbedOffsets; ++info->Offset) {
        const int64_t offset = info->Offset;
        uint8_t bytes[2];
        K_RedirectedSeek(handle, offset, 0);
        if (K_RedirectedRead(handle, bytes, sizeof bytes) != sizeof bytes)
            break;
        const Eol eol = EolAt(bytes);
        if (eol == Eol::None)
            continue;
        info->Flags = LOADINFO_ORIENTATION_1 | (eol == Eol::Reversed ? LOADINFO_REVERSED_BITS : 0);
        for (const int format : {FORMAT_FAX_G3_1D, FORMAT_FAX_G3_2D}) {
            const int status = TryFormat(search, offset, format);
            if (status != SUCCESS || info->Width > 0)
                return status;
        }
    }
    return info->Width > 0 ? SUCCESS : FAILURE;
}

} // namespace faxx
