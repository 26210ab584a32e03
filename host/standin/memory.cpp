// Tracked memory: every block carries a header that links it into a list of what is held, so that
// tracking costs no allocation of its own. The lists are sharded by address to keep threads apart.
//
// Filters take working areas of a few fixed sizes on every call. Each thread keeps the last large blocks it
// gave back and hands them out again, or every call would pay for mapping and clearing fresh pages.
#include "host/standin/memory.h"

#include "host/kernel.h"
#include "host/standin/standin.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

namespace standin {

namespace {

struct alignas(std::max_align_t) BlockHeader {
    BlockHeader* Previous;
    BlockHeader* Next;
    size_t Bytes;
    const char* Path;
    int Line;
    unsigned Mark; // HELD while the block is held
};

constexpr unsigned HELD = 0x4B484C44;
constexpr size_t SHARDS = 16;

struct alignas(64) Shard {
    std::mutex Mutex;
    BlockHeader* First = nullptr;
};

std::array<Shard, SHARDS> shards;

#if defined(__SANITIZE_ADDRESS__)
#define STANDIN_WATCHED 1
#elif defined(__has_feature) // clang's way
#define STANDIN_WATCHED __has_feature(address_sanitizer)
#else
#define STANDIN_WATCHED 0
#endif
#if STANDIN_WATCHED
constexpr bool KEEPS_BLOCKS = false; // a block that is used after it was given back is to be noticed
#else
constexpr bool KEEPS_BLOCKS = true;
#endif
constexpr size_t SMALLEST_KEPT = 64 << 10;
constexpr size_t LARGEST_KEPT = 2 << 20;

// What a thread gave back, sorted by nothing: there are few.
struct KeptBlocks {
    std::array<BlockHeader*, 8> Slots{};
    size_t Next = 0; // the slot to give up

    KeptBlocks() = default;
    KeptBlocks(const KeptBlocks&) = delete;
    KeptBlocks& operator=(const KeptBlocks&) = delete;
    ~KeptBlocks() {
        for (BlockHeader* block : Slots)
            std::free(block);
    }
};

thread_local KeptBlocks kept;

bool IsKept(size_t bytes) {
    return KEEPS_BLOCKS && bytes >= SMALLEST_KEPT && bytes <= LARGEST_KEPT;
}

BlockHeader* TakeKept(size_t bytes) {
    if (IsKept(bytes))
        for (BlockHeader*& slot : kept.Slots)
            if (slot != nullptr && slot->Bytes == bytes)
                return std::exchange(slot, nullptr);
    return nullptr;
}

void FreeBlock(BlockHeader* block) {
    if (!IsKept(block->Bytes)) {
        std::free(block);
        return;
    }
    for (BlockHeader*& slot : kept.Slots)
        if (slot == nullptr) {
            slot = block;
            return;
        }
    std::free(std::exchange(kept.Slots[kept.Next], block));
    kept.Next = (kept.Next + 1) % kept.Slots.size();
}

Shard& ShardOf(const BlockHeader* block) {
    const auto address = reinterpret_cast<uintptr_t>(block);
    return shards[(address >> 12 ^ address >> 6) % SHARDS];
}

} // namespace

void* AllocateTracked(size_t bytes, bool zeroed, int line, const char* path) {
    if (bytes > SIZE_MAX - sizeof(BlockHeader)) {
        errno = ENOMEM;
        return nullptr;
    }
    const size_t whole = bytes + sizeof(BlockHeader);
    BlockHeader* block = zeroed ? nullptr : TakeKept(bytes);
    if (block == nullptr)
        block = static_cast<BlockHeader*>(zeroed ? std::calloc(1, whole) : std::malloc(whole));
    if (block == nullptr)
        return nullptr;
    block->Bytes = bytes;
    block->Path = path;
    block->Line = line;
    block->Mark = HELD;
    block->Previous = nullptr;
    Shard& shard = ShardOf(block);
    const std::lock_guard lock(shard.Mutex);
    block->Next = shard.First;
    if (block->Next != nullptr)
        block->Next->Previous = block;
    shard.First = block;
    return block + 1;
}

void FreeTracked(void* memory, int line, const char* path) {
    if (memory == nullptr)
        return;
    auto* block = static_cast<BlockHeader*>(memory) - 1;
    Shard& shard = ShardOf(block);
    {
        const std::lock_guard lock(shard.Mutex);
        if (block->Mark != HELD) {
            std::fprintf(stderr, "kernel: %s:%d frees a block that is not held\n",
                         path != nullptr ? path : "?", line);
            std::abort();
        }
        block->Mark = 0;
        (block->Previous != nullptr ? block->Previous->Next : shard.First) = block->Next;
        if (block->Next != nullptr)
            block->Next->Previous = block->Previous;
    }
    FreeBlock(block);
}

HeldMemory HeldAllocations() {
    HeldMemory held;
    for (Shard& shard : shards) {
        const std::lock_guard lock(shard.Mutex);
        for (const BlockHeader* block = shard.First; block != nullptr; block = block->Next) {
            held.Bytes += block->Bytes;
            held.Blocks.push_back({block->Bytes, block->Line, block->Path != nullptr ? block->Path : ""});
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
