// How much memory the files that are worked on at the same time may take together.
//
// What a file takes is asked for before it is allocated, so a file that says it is larger than the machine is
// refused, and a run of several jobs takes no more than a run of one.
#pragma once

#include <cstdint>

namespace kfax {

// In bytes. Before the first share is asked for; otherwise half of what this process may have.
void SetMemoryBudget(uint64_t bytes);
uint64_t MemoryBudget();

// A part of the budget, given back at the end of its life.
struct MemoryShare {
    MemoryShare() = default;
    MemoryShare(MemoryShare&& other) noexcept;
    MemoryShare& operator=(MemoryShare&& other) noexcept;
    MemoryShare(const MemoryShare&) = delete;
    MemoryShare& operator=(const MemoryShare&) = delete;
    ~MemoryShare();

    // False where the budget has not that much left. Allocates nothing.
    bool TryAdd(uint64_t bytes) noexcept;
    // Throws MemoryShortage instead.
    void Add(uint64_t bytes);
    void GiveBack() noexcept;

private:
    uint64_t bytes_ = 0;
};

} // namespace kfax
