// The global operator new and delete, which count where a limit is set and are as usual elsewhere.
#include "tools/kfax/read/memory_limit.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

constexpr size_t kShareStep = size_t{1} << 20; // bytes asked for at once

thread_local kfax::HeldMemory* account = nullptr;
thread_local kfax::MemoryRefusal refusal = kfax::MemoryRefusal::None;

kfax::MemoryRefusal RefusalOf(kfax::HeldMemory& held, size_t size) noexcept {
    if (size > held.Most || held.Bytes > held.Most - size)
        return kfax::MemoryRefusal::OwnBound;
    if (held.Bytes + size <= held.Shared)
        return kfax::MemoryRefusal::None;
    const size_t more = std::max(held.Bytes + size - held.Shared, kShareStep);
    if (!held.Share.TryAdd(more))
        return kfax::MemoryRefusal::WholeBudget;
    held.Shared += more;
    return kfax::MemoryRefusal::None;
}

} // namespace

void* operator new(size_t size) {
    if (account) {
        if (const auto refused = RefusalOf(*account, size); refused != kfax::MemoryRefusal::None) {
            refusal = refused;
            throw std::bad_alloc();
        }
    }
    for (;;) {
        if (void* const block = std::malloc(std::max<size_t>(size, 1)); block) {
            if (account)
                account->Bytes += malloc_usable_size(block);
            return block;
        }
        const std::new_handler handler = std::get_new_handler();
        if (!handler)
            throw std::bad_alloc();
        handler();
    }
}

// All forms, though the library's call the two above and below: a sanitizer has its own of each.
void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* block) noexcept {
    if (account && block) // a block may be older than the limit
        account->Forget(malloc_usable_size(block));
    std::free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept {
    operator delete(block);
}

void operator delete[](void* block) noexcept {
    operator delete(block);
}

void operator delete[](void* block, size_t /*size*/) noexcept {
    operator delete(block);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(block);
}

void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(block);
}

namespace kfax {

MemoryLimit::MemoryLimit(HeldMemory& held) {
    MemoryBudget(); // TryAdd needs it chosen
    account = &held;
    refusal = MemoryRefusal::None;
}

MemoryLimit::~MemoryLimit() {
    account = nullptr;
}

MemoryRefusal MemoryLimit::Refusal() {
    return refusal;
}

} // namespace kfax
