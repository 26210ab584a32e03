// A bound on what a library allocates with operator new, on this thread.
#pragma once

#include "tools/kfax/base/memory_budget.h"

#include <cstddef>

namespace kfax {

// What a library holds for a file from one call to the next.
struct HeldMemory {
    explicit HeldMemory(size_t most) : Most(most) {}

    size_t Most;       // bytes that it may hold at most
    size_t Bytes = 0;  // that it holds
    size_t Shared = 0; // of these Share has asked for
    MemoryShare Share;

    // That many bytes belong to somebody else from now on.
    void Forget(size_t bytes) { Bytes -= bytes < Bytes ? bytes : Bytes; }
};

enum class MemoryRefusal {
    None,
    OwnBound,    // the file's Most
    WholeBudget, // other files have the memory, or there is no more
};

// While it lives, an allocation beyond the bound, or beyond the budget of the whole run, throws
// std::bad_alloc. One at a time on each thread.
struct MemoryLimit {
    explicit MemoryLimit(HeldMemory& held);
    ~MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

    // Whether and why an allocation was refused: the library may have caught the exception.
    static MemoryRefusal Refusal();
};

} // namespace kfax
