// What the fuzz targets share.
//
// An input begins with the parameters of a call, a few bytes with defaults where it ends early; what follows
// is the data. Sizes are cut so that one input stays cheap: no picture has more than MOST_PIXELS, and widths
// beyond 4096 are the ones at the edges of what the filter accepts.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/standin/standin.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// A target: one input. Throws nothing; what is wrong aborts the process, and the fuzzer keeps the input.
void RunInput(const uint8_t* data, size_t size);

void Require(bool holds, const char* what);

inline constexpr unsigned kMostSimpleWidth = 4096;
inline constexpr unsigned kMostPixels = 1 << 21;

class Input {
public:
    Input(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}
    uint8_t Byte() { return next_ != end_ ? *next_++ : uint8_t{0}; }
    uint16_t Word() { // least significant byte first
        const unsigned low = Byte();
        const unsigned high = Byte();
        return static_cast<uint16_t>(low | high << 8);
    }
    // Everything left, in a block of just that size.
    Bytes Rest() { return {next_, end_}; }

private:
    const uint8_t* next_;
    const uint8_t* end_;
};

// A stream's description, and the bits that each target reads its own choices from.
struct Stream {
    int Format = 68;
    unsigned Width = 0;
    unsigned Height = 0;
    uint32_t Flags = 0; // LOADINFO_ bits
    uint8_t Offset = 0;
    uint8_t Choice = 0;
};

Stream TakeStream(Input& input);
unsigned TakeWidth(Input& input);
// The same backwards, for seeds.
void PutStream(Bytes& input, const Stream& stream);
void PutWidth(Bytes& input, unsigned width);
void PutWord(Bytes& input, unsigned value);

_LOADINFO LoadInfoOf(const Stream& stream);

// Whether a stream ends just where a decoder refills its input buffer. Nothing is left then to append zeros
// to, and its last bits are dropped: all that may depend on the size of the buffer.
bool EndsAtRefill(size_t bytes, bool smallBuffer);

// The filter that the target is linked with.
const standin::Filter& TheFilter();

// A file in memory with a name.
class NamedFile {
public:
    explicit NamedFile(const Bytes& contents);
    NamedFile(const NamedFile&) = delete;
    NamedFile& operator=(const NamedFile&) = delete;
    ~NamedFile();
    const std::string& Name() const { return name_; }

private:
    int descriptor_;
    std::string name_;
};

// A handle to a block of memory.
class MemoryHandle {
public:
    MemoryHandle(unsigned mode, Bytes& bytes);
    MemoryHandle(const MemoryHandle&) = delete;
    MemoryHandle& operator=(const MemoryHandle&) = delete;
    ~MemoryHandle();
    tagHANDLE* Get() const { return handle_; }

private:
    void* redirect_ = nullptr;
    tagHANDLE* handle_ = nullptr;
};

// Takes the rows of a load through CheckRows, checks them, and keeps them where Pixels has room.
struct RowSink {
    unsigned Width = 0;      // of the rows that are kept
    unsigned Height = 0;     // rows that are kept
    unsigned LeastWidth = 0; // the runs of each row add up to this at least
    unsigned MostWidth = MAX_CODEC_WIDTH;
    Bytes Pixels;
    int Delivered = 0;
    int Calls = 0;
    bool Ended = false;
    enum class Upset { None, Stop, Throw, CutHeight } What = Upset::None;
    int UpsetAt = 1;               // the call that it happens at
    _LOADINFO* LoadInfo = nullptr; // whose height CutHeight lowers
};
inline constexpr int kStopped = -4711;

void KeepRows(RowSink& sink, unsigned width, unsigned height);
extern "C" RowCallbackFn CheckRows; // userData: the RowSink

} // namespace fuzz
