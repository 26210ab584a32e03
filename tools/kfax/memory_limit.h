// A bound on what a library allocates with operator new, on this thread.
#pragma once

#include <cstddef>

namespace kfax {

// While it lives, an allocation beyond the bound throws std::bad_alloc. One at a time on each thread.
struct MemoryLimit {
    // held: bytes that earlier calls left allocated; the bytes of this one are added in the end.
    MemoryLimit(size_t& held, size_t most);
    ~MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

    // Whether an allocation was refused: the library may have caught the exception.
    static bool WasReached();

private:
    size_t& held_;
};

} // namespace kfax
