// Finds damaged lines by decoding a stream with one call for each line.
//
// A decoder writes a data error into the dispatch's Status and goes on, so Status is read and cleared after
// every line. A one-dimensional decoder accepts any sequence of codes. In streams with an EOL behind each
// line, the EOLs are therefore checked as well: when the decoder stops right behind an EOL, the line ended
// before its right edge; when no EOL follows, the line goes on past the edge. No line's codes contain an EOL
// (T.4 § 4.1.2).
#include "tools/kfax/line_faults.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/kernel.h"
#include "host/standin/memory_handle.h"

#include <algorithm>
#include <dlfcn.h>

namespace kfax {

namespace {

constexpr size_t kRowWords = 251000; // the most that one call writes
constexpr uint64_t kEolZeros = 11;

struct Bits {
    const CodedStream& Stream;

    uint64_t Count() const { return uint64_t{Stream.Size} * 8; }
    bool At(uint64_t position) const {
        const unsigned bit = position % 8;
        return (Stream.Bytes[position / 8] >> (Stream.Reversed ? bit : 7 - bit) & 1) != 0;
    }
    // Fill and an EOL.
    bool EolBegins(uint64_t position) const {
        uint64_t zeros = 0;
        while (position + zeros < Count() && !At(position + zeros))
            ++zeros;
        return zeros >= kEolZeros && position + zeros < Count();
    }
    bool AnySetFrom(uint64_t position) const {
        while (position < Count() && !At(position))
            ++position;
        return position < Count();
    }
    bool EolEnds(uint64_t position) const {
        if (position <= kEolZeros || position > Count() || !At(position - 1))
            return false;
        for (uint64_t i = 2; i <= kEolZeros + 1; ++i)
            if (At(position - i))
                return false;
        return true;
    }
};

// The bits consumed since the set-up.
uint64_t Position(const CCITTG34& codec) {
    return (uint64_t{codec.BytesRead} - codec.BytesInBuffer + codec.ReadPosition) * 8 - 16 -
           static_cast<uint64_t>(codec.BitCount);
}

// The filter's codec, for a program that decodes by itself.
struct Codec {
    decltype(&InitDecodeG34) Init = nullptr;
    decltype(&QuitDecodeG34) Quit = nullptr;
    decltype(&::DecodeG3) DecodeG3 = nullptr;
    decltype(&::DecodeG4) DecodeG4 = nullptr;

    explicit Codec(void* library) {
        Find(library, "InitDecodeG34", Init);
        Find(library, "QuitDecodeG34", Quit);
        Find(library, "DecodeG3", DecodeG3);
        Find(library, "DecodeG4", DecodeG4);
    }
    bool IsComplete() const { return Init && Quit && DecodeG3 && DecodeG4; }

    template <typename Function>
    static void Find(void* library, const char* name, Function& function) {
        function = library ? reinterpret_cast<Function>(dlsym(library, name)) : nullptr;
    }
};

struct Inspection {
    const Codec& Functions;
    const CodedStream& Stream;
    std::vector<FaultyLines>& Faults;
    standin::Padded<_LOADDISPATCH> Dispatch{};
    CCITTG34 Record{};

    Inspection(const Codec& functions, const CodedStream& stream, std::vector<FaultyLines>& faults)
        : Functions(functions), Stream(stream), Faults(faults) {}
    ~Inspection() { Functions.Quit(&Record, 1); }
    Inspection(const Inspection&) = delete;
    Inspection& operator=(const Inspection&) = delete;

    void Add(LineFault fault, uint32_t first, uint32_t last) {
        if (!Faults.empty() && Faults.back().Last >= first)
            return; // known as faulty
        if (!Faults.empty() && Faults.back().Fault == fault && Faults.back().Last + 1 == first)
            Faults.back().Last = last;
        else
            Faults.push_back({fault, first, last});
    }
};

bool HasLineDecoder1D(int format) {
    return format == FORMAT_FAX_G3_1D || format == FORMAT_FAX_G3_2D || format == FORMAT_FAX_G3_2D_ALL2D ||
           format == FORMAT_FAX_G3_1D_NOEOL;
}

void InspectAll(Inspection& inspection) {
    const CodedStream& stream = inspection.Stream;
    CCITTG34& codec = inspection.Record;
    const Bits bits{stream};
    const auto decode =
        HasLineDecoder1D(stream.Format) ? inspection.Functions.DecodeG3 : inspection.Functions.DecodeG4;
    const bool tagged = stream.Format == FORMAT_FAX_G3_2D;
    const bool lineEnds = (stream.Format == FORMAT_FAX_G3_1D || tagged) && bits.EolBegins(0);
    std::vector<unsigned short> row(kRowWords);
    bool eolTaken = true; // the EOL before the line is consumed, or it is the first one's
    for (uint32_t line = 0; line < stream.Lines; ++line) {
        const uint32_t width = codec.Width;
        int32_t& status = inspection.Dispatch.Declared.Status;
        status = 0;
        if (lineEnds && !eolTaken && !bits.EolBegins(Position(codec)))
            inspection.Add(LineFault::NoLineEnd, line - 1, line - 1);
        const unsigned got = decode(&codec, row.data(), 1);
        const bool last = line + 1 == stream.Lines;
        if (got == 0 || codec.DecodeStatus == DECODE_STATUS_BAD_CODE ||
            (codec.DecodeStatus == DECODE_STATUS_NO_DATA && (!last || status != 0))) {
            const bool ended = codec.DecodeStatus == DECODE_STATUS_NO_DATA;
            inspection.Add(ended ? LineFault::DataEnds : LineFault::InvalidData, line, stream.Lines - 1);
            return;
        }
        if (codec.DecodeStatus != DECODE_STATUS_OK)
            return;
        eolTaken = lineEnds && bits.EolEnds(Position(codec) - (tagged ? 1 : 0));
        if (status == ERROR_FAX_WIDTH_CHANGED || (status == 0 && codec.Width != width))
            inspection.Add(LineFault::OtherWidth, line, line);
        else if (status != 0) // past the end there are zero bits, which are no code
            inspection.Add(Position(codec) < bits.Count() ? LineFault::InvalidData : LineFault::DataEnds,
                           line, line);
        else if (eolTaken)
            inspection.Add(LineFault::EndsShort, line, line);
    }
    // An EOFB and an RTC begin with an EOL (T.6 § 2.4.1.1, T.4 § 4.1.4); neither has to be there.
    if (stream.Lines != 0 && !eolTaken && !bits.EolBegins(Position(codec)) &&
        bits.AnySetFrom(Position(codec)))
        inspection.Add(LineFault::DataLeft, stream.Lines - 1, stream.Lines - 1);
}

} // namespace

const char* FaultText(LineFault fault) {
    switch (fault) {
    case LineFault::InvalidData:
        return "invalid codes";
    case LineFault::OtherWidth:
        return "coded with another width than the picture's";
    case LineFault::EndsShort:
        return "ends before its right edge";
    case LineFault::NoLineEnd:
        return "goes on past its right edge";
    case LineFault::DataEnds:
        return "the data ends";
    case LineFault::DataLeft:
        return "the last one, and more data behind it";
    }
    return "unknown fault";
}

int InspectLines(const standin::Filter& filter, const CodedStream& stream, std::vector<FaultyLines>& faults) {
    const Codec codec(filter.Library);
    if (!codec.IsComplete())
        return ERROR_FILE_FORMAT;
    const standin::MemoryHandle memory(REDIRECT_READ, stream.Bytes, stream.Size);
    if (memory.Status != SUCCESS)
        return memory.Status;
    Inspection inspection(codec, stream, faults);
    const int status =
        codec.Init(&inspection.Dispatch.Declared, &inspection.Record, static_cast<unsigned>(stream.Format),
                   stream.Width, stream.Reversed ? FAX_REVERSE_BITS : 0, memory.Handle, 0, 0);
    if (status == SUCCESS)
        InspectAll(inspection);
    return status;
}

void KeepRowsOfImage(std::vector<FaultyLines>& faults, uint32_t count) {
    std::erase_if(faults, [&](const FaultyLines& lines) {
        return lines.First >= count && lines.Fault != LineFault::DataLeft;
    });
    for (FaultyLines& lines : faults) {
        lines.First = std::min(lines.First, count - 1);
        lines.Last = std::min(lines.Last, count - 1);
    }
}

} // namespace kfax
