// Finds damaged lines by decoding a stream with one call for each line.
//
// A decoder writes a data error into the dispatch's Status and goes on, so Status is read and cleared after
// every line. A one-dimensional decoder accepts any sequence of codes. In streams with an EOL behind each
// line, the EOLs are therefore checked as well: when the decoder stops right behind an EOL, the line ended
// before its right edge; when no EOL follows, the line goes on past the edge. No line's codes contain an EOL
// (T.4 § 4.1.2).
#include "tools/kfax/read/line_faults.h"

#include "host/kernel.h"
#include "host/standin/memory_handle.h"
#include "tools/kfax/base/file_handle.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/read/input.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <sys/types.h>
#include <unistd.h>

namespace kfax {

namespace {

constexpr size_t kRowWords = 251000; // the most that one call writes
constexpr uint64_t kEolZeros = 11;
constexpr size_t kWindowBytes = 1 << 16;

// The bits of the stream, which lie near one another from one question to the next.
struct Bits {
    explicit Bits(const CodedStream& stream) : Stream(stream), Size(stream.Size) {
        if (stream.Bytes)
            return;
        File = OpenInput(stream.File);
        if (!File)
            throw std::runtime_error(SystemReason(errno));
        Window.resize(kWindowBytes);
    }

    uint64_t Count() const { return Size * 8; }
    unsigned char Byte(uint64_t index) const {
        if (Stream.Bytes)
            return Stream.Bytes[index];
        if (index - WindowStart >= WindowSize) { // also in front of it
            const ssize_t got = pread(fileno(File.get()), Window.data(), Window.size(),
                                      static_cast<off_t>(Stream.Offset + index));
            if (got < 0)
                throw std::runtime_error(SystemReason(errno));
            WindowStart = index;
            WindowSize = static_cast<size_t>(got);
            if (got == 0) { // the file shrank
                Size = index;
                return 0;
            }
        }
        return Window[index - WindowStart];
    }
    bool At(uint64_t position) const {
        const unsigned bit = position % 8;
        return (Byte(position / 8) >> (Stream.Reversed ? bit : 7 - bit) & 1) != 0;
    }
    // The first bit that is set, from position on; at least Count() where none is.
    uint64_t NextSet(uint64_t position) const {
        while (position < Count() && !At(position))
            position += position % 8 == 0 && Byte(position / 8) == 0 ? 8u : 1u;
        return position;
    }
    bool AnySetFrom(uint64_t position) const { return NextSet(position) < Count(); }
    // Fill and an EOL.
    bool EolBegins(uint64_t position) const {
        const uint64_t one = NextSet(position);
        return one < Count() && one >= position + kEolZeros;
    }
    bool EolEnds(uint64_t position) const {
        if (position <= kEolZeros || position > Count() || !At(position - 1))
            return false;
        for (uint64_t i = 2; i <= kEolZeros + 1; ++i)
            if (At(position - i))
                return false;
        return true;
    }

    const CodedStream& Stream;
    mutable uint64_t Size; // in bytes, less where the file shrinks
    FileHandle File;
    mutable std::vector<unsigned char> Window;
    mutable uint64_t WindowStart = 0;
    mutable size_t WindowSize = 0;
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

// The kernel's handle over the stream.
struct StreamHandle {
    explicit StreamHandle(const CodedStream& stream) {
        if (stream.Bytes) {
            Memory.emplace(REDIRECT_READ, stream.Bytes, stream.Size);
            Status = Memory->Status;
            return;
        }
        File = K_RedirectedOpen(stream.File.c_str(), O_RDONLY, 0);
        const auto offset = static_cast<long long>(stream.Offset);
        if (File == INVALID_KERNEL_HANDLE)
            Status = ERROR_FILE_OPEN;
        else if (K_RedirectedSeek(File, offset, SEEK_SET) != offset)
            Status = ERROR_FILE_READ;
    }
    ~StreamHandle() {
        if (File != INVALID_KERNEL_HANDLE)
            K_RedirectedClose(File);
    }
    StreamHandle(const StreamHandle&) = delete;
    StreamHandle& operator=(const StreamHandle&) = delete;
    tagHANDLE* Get() const { return Memory ? Memory->Handle : File; }

    std::optional<standin::MemoryHandle> Memory;
    tagHANDLE* File = INVALID_KERNEL_HANDLE;
    int Status = SUCCESS;
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

    void Add(LineFault fault, uint32_t first, uint32_t last, bool missing = false) {
        if (!Faults.empty() && Faults.back().Last >= first)
            return; // known as faulty
        if (!Faults.empty() && Faults.back().Fault == fault && Faults.back().Last + 1 == first &&
            Faults.back().Missing == missing)
            Faults.back().Last = last;
        else
            Faults.push_back({fault, first, last, missing});
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
    const bool mayHaveEols = stream.Format == FORMAT_FAX_G3_1D || tagged;
    bool lineEnds = mayHaveEols && bits.EolBegins(0);
    const auto row = std::make_unique_for_overwrite<unsigned short[]>(kRowWords);
    bool eolTaken = true; // the EOL before the line is consumed, or it is the first one's
    for (uint32_t line = 0; line < stream.Lines; ++line) {
        const uint32_t width = codec.Width;
        int32_t& status = inspection.Dispatch.Declared.Status;
        status = 0;
        if (lineEnds && !eolTaken && !bits.EolBegins(Position(codec)))
            inspection.Add(LineFault::NoLineEnd, line - 1, line - 1);
        const unsigned got = decode(&codec, row.get(), 1);
        const bool last = line + 1 == stream.Lines;
        if (got == 0 || codec.DecodeStatus == DECODE_STATUS_BAD_CODE ||
            (codec.DecodeStatus == DECODE_STATUS_NO_DATA && (!last || status != 0))) {
            const bool ended = codec.DecodeStatus == DECODE_STATUS_NO_DATA;
            inspection.Add(ended ? LineFault::DataEnds : LineFault::InvalidData, line, stream.Lines - 1,
                           true);
            return;
        }
        if (codec.DecodeStatus != DECODE_STATUS_OK)
            return;
        const uint64_t position = Position(codec);
        eolTaken = mayHaveEols && bits.EolEnds(position - (tagged ? 1 : 0));
        if (line == 0 && mayHaveEols) // writers leave out the EOL in front of the first line
            lineEnds = lineEnds || eolTaken || bits.EolBegins(position);
        if (status == ERROR_FAX_WIDTH_CHANGED || (status == 0 && codec.Width != width))
            inspection.Add(LineFault::OtherWidth, line, line);
        else if (status != 0 && position < bits.Count())
            inspection.Add(LineFault::InvalidData, line, line);
        else if (status != 0) // past the end there are zero bits, which are no code
            inspection.Add(LineFault::DataEnds, line, line, true);
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
    const StreamHandle handle(stream);
    if (handle.Status != SUCCESS)
        return handle.Status;
    Inspection inspection(codec, stream, faults);
    const int status =
        codec.Init(&inspection.Dispatch.Declared, &inspection.Record, static_cast<unsigned>(stream.Format),
                   stream.Width, stream.Reversed ? FAX_REVERSE_BITS : 0, handle.Get(), 0, 0);
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
