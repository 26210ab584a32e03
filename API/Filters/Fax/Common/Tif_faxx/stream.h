// What the loaders and savers of streams have in common.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/memory.h"
#include "API/Filters/Fax/Common/Tif_faxx/run_rows.h"

#include <cxxabi.h>

#include <utility>

namespace faxx {

// Every format number that is not one of the four G3 formats is G4.
inline bool IsG3(unsigned format) {
    return format == FORMAT_FAX_G3_1D || format == FORMAT_FAX_G3_2D || format == FORMAT_FAX_G3_2D_ALL2D ||
           format == FORMAT_FAX_G3_1D_NOEOL;
}

inline LineDecoder* LineDecoderFor(int format) {
    return IsG3(static_cast<unsigned>(format)) ? DecodeG3 : DecodeG4;
}

using LineEncoder = void(CCITTG34* record, unsigned char* row);

inline LineEncoder* LineEncoderFor(unsigned format) {
    return IsG3(format) ? EncodeG3 : EncodeG4;
}

// After a row: the lines of a G3 stream without further EOLs are the G4 encoder's from the third on.
inline LineEncoder* NextLineEncoder(const CCITTG34* record, LineEncoder* encode) {
    return record->Format == FORMAT_FAX_G3_2D_ALL2D && record->NextLineTag > 1 ? EncodeG4 : encode;
}

inline constexpr unsigned kBatchLines = 100;
inline constexpr unsigned kAllLines = 2147483647;

inline unsigned ReversedBits(uint32_t loadInfoFlags) {
    return loadInfoFlags & LOADINFO_REVERSED_BITS ? FAX_REVERSE_BITS : 0;
}

// The orientation that the Flags of a _LOADINFO stand for.
int OrientationFromFlags(uint32_t flags);

// Gives the bitmap the resolution, where it is given, and the orientation of the description.
void ApplyDescription(const _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap);

// Runs a step under its own catch. True when it threw. The unwinding of a thread that is cancelled or exits
// is no exception: the C library aborts the process where it is not passed on.
template <typename Step>
bool Throws(Step step) {
    try {
        step();
        return false;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return true;
    }
}

// Runs a step when the scope is left by unwinding before Disarm.
template <typename Step>
class OnUnwind {
public:
    explicit OnUnwind(Step step) : step_(std::move(step)) {}
    OnUnwind(const OnUnwind&) = delete;
    OnUnwind& operator=(const OnUnwind&) = delete;
    ~OnUnwind() {
        if (armed_)
            Throws(step_);
    }
    void Disarm() { armed_ = false; }

private:
    Step step_;
    bool armed_ = true;
};

// A working buffer of one call. It is freed explicitly, where the call's clean-up says when and guards it;
// the destructor serves only unwinding that nothing stops.
template <typename T>
struct Buffer {
    T* data = nullptr;

    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() {
        Throws([this] { Release(); });
    }

    bool Allocate(size_t count, int line = __builtin_LINE()) {
        data = faxx::Allocate<T>(count, line);
        return data != nullptr;
    }

    void Release(int line = __builtin_LINE()) { Free(data, line); }
};

// A load's clean-up: gives its row buffers and the codec's back, each under its own catch. What throws makes
// the result ERROR_EXCEPTION.
inline int ReleaseLoad(Buffer<unsigned short>& runs, Buffer<unsigned short>& mirrored, CCITTG34* codec,
                       int result) {
    if (Throws([&] { runs.Release(); }))
        result = ERROR_EXCEPTION;
    if (Throws([&] { mirrored.Release(); }))
        result = ERROR_EXCEPTION;
    if (Throws([&] { QuitDecodeG34(codec, 1); }))
        result = ERROR_EXCEPTION;
    return result;
}

} // namespace faxx
