// The header that stands in front of every tracked block and links it into a list.
#pragma once

#include <atomic>
#include <cstddef>

namespace standin {

struct alignas(std::max_align_t) BlockHeader {
    BlockHeader* Previous = nullptr;
    BlockHeader* Next = nullptr;
    size_t Bytes = 0;
    void* Memory = nullptr; // as it came from the C library
    // HeldAllocations reads these while the block's thread may change them.
    std::atomic<const char*> Path;
    std::atomic<int> Line;
    std::atomic<unsigned> Mark;
};

// Marks. A block that is neither is damaged, or was freed before.
inline constexpr unsigned kHeld = 0x4B484C44;
inline constexpr unsigned kKept = 0x4B455054; // freed, and kept by a thread (fast/kept_blocks.h)

// Takes a block out of its list and gives it back to the C library.
void DropBlock(BlockHeader* block);

} // namespace standin
