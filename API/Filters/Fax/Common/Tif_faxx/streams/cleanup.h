// How a call gives back what it holds, also when a kernel function throws or ends the thread.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/memory.h"

#include <exception>
#include <utility>

namespace faxx {

// Runs a step under its own catch. False when it threw. The unwinding of a thread that is cancelled or exits
// is no C++ exception, though it can be caught: the C library aborts the process where it is not passed on.
template <typename Step>
bool RunGuarded(Step step) {
    try {
        step();
        return true;
    } catch (...) {
        if (!std::current_exception())
            throw;
        return false;
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
            RunGuarded(step_);
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
        RunGuarded([this] { Release(); });
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
    if (!RunGuarded([&] { runs.Release(); }))
        result = ERROR_EXCEPTION;
    if (!RunGuarded([&] { mirrored.Release(); }))
        result = ERROR_EXCEPTION;
    if (!RunGuarded([&] { QuitDecodeG34(codec, 1); }))
        result = ERROR_EXCEPTION;
    return result;
}

} // namespace faxx
