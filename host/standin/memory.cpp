// Tracked memory: every block carries a header that links it into a list of what is held, so that tracking
// costs no allocation of its own. There are several lists, chosen by address, so that threads seldom wait for
// each other.
//
// A thread may keep a block that is given back, for its next request (fast/kept_blocks.h). The block stays in
// its list, marked as kept.
#include "host/standin/memory.h"

#include "host/kernel.h"
#include "host/standin/block_list.h"
#include "host/standin/fast/kept_blocks.h"
#include "host/standin/standin.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

namespace standin {

namespace {

constexpr size_t kLists = 16;
constexpr size_t kCacheLine = 64; // what is not zeroed begins with one

struct alignas(kCacheLine) BlockList {
    std::mutex Mutex;
    BlockHeader* First = nullptr;
};

std::array<BlockList, kLists> lists;

BlockList& ListOf(const BlockHeader* block) {
    const auto address = reinterpret_cast<uintptr_t>(block);
    return lists[(address >> 12 ^ address >> 6) % kLists];
}

void Link(BlockHeader* block) {
    BlockList& list = ListOf(block);
    const std::lock_guard lock(list.Mutex);
    block->Previous = nullptr;
    block->Next = list.First;
    if (block->Next)
        block->Next->Previous = block;
    list.First = block;
}

void* AllocateAtCacheLine(size_t bytes) {
    void* memory = nullptr;
    const int failure = posix_memalign(&memory, kCacheLine, bytes);
    if (failure == 0)
        return memory;
    errno = failure;
    return nullptr;
}

BlockHeader* MakeBlock(size_t bytes, bool zeroed) {
    const size_t gap = zeroed ? 0 : kCacheLine - sizeof(BlockHeader) + NextShift(bytes);
    const size_t whole = bytes + sizeof(BlockHeader) + gap;
    void* const memory = zeroed ? std::calloc(1, whole) : AllocateAtCacheLine(whole);
    if (!memory)
        return nullptr;
    auto* const block = new (static_cast<char*>(memory) + gap) BlockHeader;
    block->Bytes = bytes;
    block->Memory = memory;
    return block;
}

} // namespace

void DropBlock(BlockHeader* block) {
    {
        BlockList& list = ListOf(block);
        const std::lock_guard lock(list.Mutex);
        (block->Previous ? block->Previous->Next : list.First) = block->Next;
        if (block->Next)
            block->Next->Previous = block->Previous;
    }
    std::free(block->Memory);
}

void* AllocateTracked(size_t bytes, bool zeroed, int line, const char* path) {
    if (bytes > SIZE_MAX / 2) { // room for the header and a gap
        errno = ENOMEM;
        return nullptr;
    }
    BlockHeader* block = zeroed ? nullptr : TakeKeptBlock(bytes);
    const bool isNew = !block;
    if (isNew)
        block = MakeBlock(bytes, zeroed);
    if (!block)
        return nullptr;
    block->Path.store(path, std::memory_order_relaxed);
    block->Line.store(line, std::memory_order_relaxed);
    block->Mark.store(kHeld, std::memory_order_relaxed);
    if (isNew)
        Link(block);
    return block + 1;
}

void FreeTracked(void* memory, int line, const char* path) {
    if (!memory)
        return;
    auto* block = static_cast<BlockHeader*>(memory) - 1;
    unsigned mark = kHeld;
    if (!block->Mark.compare_exchange_strong(mark, kKept, std::memory_order_relaxed)) {
        std::fprintf(stderr, "kernel: %s:%d frees a block that is not held\n", path ? path : "?", line);
        std::abort();
    }
    if (IsKeptSize(block->Bytes)) {
        KeepBlock(block);
    } else {
        block->Mark.store(0, std::memory_order_relaxed);
        DropBlock(block);
    }
}

HeldMemory HeldAllocations() {
    HeldMemory held;
    for (BlockList& list : lists) {
        const std::lock_guard lock(list.Mutex);
        for (const BlockHeader* block = list.First; block; block = block->Next) {
            if (block->Mark.load(std::memory_order_relaxed) != kHeld)
                continue;
            held.Bytes += block->Bytes;
            const char* const path = block->Path.load(std::memory_order_relaxed);
            held.Blocks.push_back(
                {block->Bytes, block->Line.load(std::memory_order_relaxed), path ? path : ""});
        }
    }
    return held;
}

} // namespace standin

extern "C" {

void* K_LocalAlloc(size_t count, size_t elementSize, int line, const char* path) {
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, elementSize, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return standin::AllocateTracked(bytes, false, line, path);
}

void K_LocalFree(void* block, int line, const char* path) {
    standin::FreeTracked(block, line, path);
}

void K_MemorySet(void* destination, int value, size_t count) {
    if (count != 0)
        std::memset(destination, value, count);
}

void K_MemoryCopy(void* destination, const void* source, size_t count) {
    if (count != 0)
        std::memmove(destination, source, count);
}

} // extern "C"
