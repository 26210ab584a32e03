#include "host/standin/fast/kept_blocks.h"

#include "host/standin/thread_end.h"

#include <array>
#include <atomic>
#include <type_traits>
#include <utility>

namespace standin {

namespace {

// With the address sanitizer nothing is kept, so that it finds the use of a block that was freed.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kKeepsBlocks = false;
#elif defined(__has_feature) // clang
constexpr bool kKeepsBlocks = !__has_feature(address_sanitizer);
#else
constexpr bool kKeepsBlocks = true;
#endif

constexpr size_t kSmallestKept = 64 << 10;
constexpr size_t kLargestKept = 2 << 20;
constexpr size_t kShifts = 7;
constexpr size_t kShiftBytes = 9 * size_t{64}; // whole cache lines

// The blocks of a thread, in no order. It has no destructor: other destructors may free blocks after it.
struct KeptBlocks {
    enum class State { Unused, Open, Closed } Use = State::Unused;
    size_t Next = 0; // the slot to reuse when all are taken
    std::array<BlockHeader*, 8> Slots{};
};
static_assert(std::is_trivially_destructible_v<KeptBlocks>);

// Few bytes, found without a call even in a library that is loaded late.
[[gnu::tls_model("initial-exec")]] constinit thread_local KeptBlocks kept;

// From then on the thread keeps nothing.
void Close(void* /*kept*/) {
    kept.Use = KeptBlocks::State::Closed;
    for (BlockHeader*& slot : kept.Slots)
        if (slot)
            DropBlock(std::exchange(slot, nullptr));
}

const ThreadEnd closeAtEnd(Close);

[[gnu::noinline]] void Open() {
    kept.Use = closeAtEnd.Call(&kept) ? KeptBlocks::State::Open : KeptBlocks::State::Closed;
}

} // namespace

bool IsKeptSize(size_t bytes) {
    return kKeepsBlocks && bytes >= kSmallestKept && bytes <= kLargestKept;
}

BlockHeader* TakeKeptBlock(size_t bytes) {
    if (IsKeptSize(bytes))
        for (BlockHeader*& slot : kept.Slots)
            if (slot && slot->Bytes == bytes)
                return std::exchange(slot, nullptr);
    return nullptr;
}

void KeepBlock(BlockHeader* block) {
    if (kept.Use == KeptBlocks::State::Unused)
        Open();
    if (kept.Use == KeptBlocks::State::Closed) {
        DropBlock(block);
        return;
    }
    for (BlockHeader*& slot : kept.Slots)
        if (!slot) {
            slot = block;
            return;
        }
    DropBlock(std::exchange(kept.Slots[kept.Next], block));
    kept.Next = (kept.Next + 1) % kept.Slots.size();
}

size_t NextShift(size_t bytes) {
    static std::atomic<unsigned> count{0};
    return IsKeptSize(bytes) ? count.fetch_add(1, std::memory_order_relaxed) % kShifts * kShiftBytes : 0;
}

} // namespace standin
