// Tracked memory: every block carries a header that links it into a list of what is held, so that
// tracking costs no allocation of its own. The lists are sharded by address to keep threads apart.
//
// Filters take working areas of a few fixed sizes on every call. Each thread keeps the last large blocks it
// gave back and hands them out again, or every call would pay for mapping and clearing fresh pages. Such
// blocks stay in their list, marked as not held: giving them back and taking them again needs no lock.
#include "host/standin/memory.h"

#include "host/kernel.h"
#include "host/standin/standin.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

namespace standin {

namespace {

struct alignas(std::max_align_t) BlockHeader {
    BlockHeader* Previous = nullptr;
    BlockHeader* Next = nullptr;
    size_t Bytes = 0;
    void* Memory = nullptr; // as it came from the C library
    // Read by whoever asks what is held, while the block's thread may be at work on them.
    std::atomic<const char*> Path;
    std::atomic<int> Line;
    std::atomic<unsigned> Mark;
};

constexpr unsigned HELD = 0x4B484C44;
constexpr unsigned KEPT = 0x4B455054; // by the thread that gave it back
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
constexpr size_t CACHE_LINE = 64; // what is not zeroed begins with one
constexpr size_t SHIFTS = 7;
constexpr size_t SHIFT = 9 * CACHE_LINE;

Shard& ShardOf(const BlockHeader* block) {
    const auto address = reinterpret_cast<uintptr_t>(block);
    return shards[(address >> 12 ^ address >> 6) % SHARDS];
}

void Link(BlockHeader* block) {
    Shard& shard = ShardOf(block);
    const std::lock_guard lock(shard.Mutex);
    block->Previous = nullptr;
    block->Next = shard.First;
    if (block->Next != nullptr)
        block->Next->Previous = block;
    shard.First = block;
}

// Takes a block out of its list and gives it back to the C library.
void Drop(BlockHeader* block) {
    {
        Shard& shard = ShardOf(block);
        const std::lock_guard lock(shard.Mutex);
        (block->Previous != nullptr ? block->Previous->Next : shard.First) = block->Next;
        if (block->Next != nullptr)
            block->Next->Previous = block->Previous;
    }
    std::free(block->Memory);
}

// The blocks that a thread keeps, in no order: there are few. Without a destructor, so that it can be looked
// at until the thread's last instruction.
struct KeptBlocks {
    enum class State { Unused, Open, Closed } Use = State::Unused;
    size_t Next = 0; // the slot to reuse when all are taken
    std::array<BlockHeader*, 8> Slots{};
};
static_assert(std::is_trivially_destructible_v<KeptBlocks>);

// Few bytes, found without a call even in a library that is loaded late.
[[gnu::tls_model("initial-exec")]] constinit thread_local KeptBlocks kept;

// Frees a thread's kept blocks when the thread ends. Destructors that run later may still free memory: from
// then on nothing is kept.
struct CloseKeptBlocks {
    bool Armed = false;

    CloseKeptBlocks() = default;
    CloseKeptBlocks(const CloseKeptBlocks&) = delete;
    CloseKeptBlocks& operator=(const CloseKeptBlocks&) = delete;
    ~CloseKeptBlocks() {
        kept.Use = KeptBlocks::State::Closed;
        for (BlockHeader*& slot : kept.Slots)
            if (slot != nullptr)
                Drop(std::exchange(slot, nullptr));
    }
};

thread_local CloseKeptBlocks closeKept;

[[gnu::noinline]] void OpenKeptBlocks() {
    closeKept.Armed = true; // the first use registers the destructor
    kept.Use = KeptBlocks::State::Open;
}

bool IsKept(size_t bytes) {
    return KEEPS_BLOCKS && bytes >= SMALLEST_KEPT && bytes <= LARGEST_KEPT;
}

// Large blocks of the C library all begin at the same place in a page, where they would compete for the same
// cache lines: each begins a little further on than the one before.
size_t NextShift() {
    static std::atomic<unsigned> count{0};
    return count.fetch_add(1, std::memory_order_relaxed) % SHIFTS * SHIFT;
}

void* AtCacheLine(size_t bytes) {
    void* memory = nullptr;
    const int failure = posix_memalign(&memory, CACHE_LINE, bytes);
    if (failure == 0)
        return memory;
    errno = failure;
    return nullptr;
}

BlockHeader* TakeKept(size_t bytes) {
    if (IsKept(bytes))
        for (BlockHeader*& slot : kept.Slots)
            if (slot != nullptr && slot->Bytes == bytes)
                return std::exchange(slot, nullptr);
    return nullptr;
}

void Keep(BlockHeader* block) {
    if (kept.Use == KeptBlocks::State::Unused)
        OpenKeptBlocks();
    if (kept.Use == KeptBlocks::State::Closed) {
        Drop(block);
        return;
    }
    for (BlockHeader*& slot : kept.Slots)
        if (slot == nullptr) {
            slot = block;
            return;
        }
    Drop(std::exchange(kept.Slots[kept.Next], block));
    kept.Next = (kept.Next + 1) % kept.Slots.size();
}

} // namespace

void* AllocateTracked(size_t bytes, bool zeroed, int line, const char* path) {
    if (bytes > SIZE_MAX - CACHE_LINE) {
        errno = ENOMEM;
        return nullptr;
    }
    BlockHeader* block = zeroed ? nullptr : TakeKept(bytes);
    const bool fresh = block == nullptr;
    if (fresh) {
        const size_t shift =
            zeroed ? 0 : CACHE_LINE - sizeof(BlockHeader) + (IsKept(bytes) ? NextShift() : 0);
        const size_t whole = bytes + sizeof(BlockHeader) + shift;
        void* memory = zeroed ? std::calloc(1, whole) : AtCacheLine(whole);
        if (memory == nullptr)
            return nullptr;
        block = new (static_cast<char*>(memory) + shift) BlockHeader;
        block->Bytes = bytes;
        block->Memory = memory;
    }
    block->Path.store(path, std::memory_order_relaxed);
    block->Line.store(line, std::memory_order_relaxed);
    block->Mark.store(HELD, std::memory_order_relaxed);
    if (fresh)
        Link(block);
    return block + 1;
}

void FreeTracked(void* memory, int line, const char* path) {
    if (memory == nullptr)
        return;
    auto* block = static_cast<BlockHeader*>(memory) - 1;
    unsigned mark = HELD;
    if (!block->Mark.compare_exchange_strong(mark, KEPT, std::memory_order_relaxed)) {
        std::fprintf(stderr, "kernel: %s:%d frees a block that is not held\n", path != nullptr ? path : "?",
                     line);
        std::abort();
    }
    if (IsKept(block->Bytes)) {
        Keep(block);
    } else {
        block->Mark.store(0, std::memory_order_relaxed);
        Drop(block);
    }
}

HeldMemory HeldAllocations() {
    HeldMemory held;
    for (Shard& shard : shards) {
        const std::lock_guard lock(shard.Mutex);
        for (const BlockHeader* block = shard.First; block != nullptr; block = block->Next) {
            if (block->Mark.load(std::memory_order_relaxed) != HELD)
                continue;
            held.Bytes += block->Bytes;
            const char* const path = block->Path.load(std::memory_order_relaxed);
            held.Blocks.push_back(
                {block->Bytes, block->Line.load(std::memory_order_relaxed), path != nullptr ? path : ""});
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
