// The budget is one counter of the bytes that are promised.
#include "tools/kfax/base/memory_budget.h"

#include "tools/kfax/base/errors.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

namespace kfax {

namespace {

std::atomic<uint64_t> budget = 0; // 0: not chosen yet
std::atomic<uint64_t> promised = 0;

// The bound of the control group, as in a container; UINT64_MAX: none.
uint64_t GroupLimit() {
    uint64_t least = UINT64_MAX;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (!line.starts_with("0::"))
            continue;
        std::ifstream limit("/sys/fs/cgroup" + line.substr(3) + "/memory.max");
        uint64_t bytes = 0;
        if (limit >> bytes) // "max" is no number
            least = std::min(least, bytes);
    }
    return least;
}

uint64_t AvailableMemory() {
    uint64_t bytes =
        static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            bytes = std::min<uint64_t>(bytes, limit.rlim_cur);
    }
    return std::min(bytes, GroupLimit());
}

} // namespace

void SetMemoryBudget(uint64_t bytes) {
    budget = bytes;
}

uint64_t MemoryBudget() {
    if (budget == 0)
        budget = std::max<uint64_t>(AvailableMemory() / 2, 1);
    return budget;
}

MemoryShare::MemoryShare(MemoryShare&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}

MemoryShare& MemoryShare::operator=(MemoryShare&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
}

MemoryShare::~MemoryShare() {
    GiveBack();
}

bool MemoryShare::TryAdd(uint64_t bytes) noexcept {
    const uint64_t most = budget; // chosen before the first file is opened
    uint64_t before = promised;
    do {
        if (bytes > most || before > most - bytes)
            return false;
    } while (!promised.compare_exchange_weak(before, before + bytes));
    bytes_ += bytes;
    return true;
}

void MemoryShare::Add(uint64_t bytes) {
    const uint64_t most = MemoryBudget();
    if (!TryAdd(bytes))
        throw MemoryShortage("takes " + std::to_string(bytes >> 20) +
                             " MB of memory more, and kfax is to use at most " + std::to_string(most >> 20) +
                             " MB (--memory)");
}

void MemoryShare::GiveBack() noexcept {
    promised -= std::exchange(bytes_, 0);
}

} // namespace kfax
