// The global operator new and delete, which count where a limit is set and are as usual elsewhere.
#include "tools/kfax/memory_limit.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

struct Account {
    bool Limited = false;
    bool Reached = false;
    size_t Held = 0;
    size_t Most = 0;
};
thread_local Account account;

} // namespace

void* operator new(size_t size) {
    if (account.Limited && (size > account.Most || account.Held > account.Most - size)) {
        account.Reached = true;
        throw std::bad_alloc();
    }
    for (;;) {
        if (void* const block = std::malloc(std::max<size_t>(size, 1)); block) {
            if (account.Limited)
                account.Held += malloc_usable_size(block);
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
    if (account.Limited && block) // a block may be older than the limit
        account.Held -= std::min(account.Held, malloc_usable_size(block));
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

MemoryLimit::MemoryLimit(size_t& held, size_t most) : held_(held) {
    account = {true, false, held, most};
}

MemoryLimit::~MemoryLimit() {
    held_ = account.Held;
    account.Limited = false;
}

bool MemoryLimit::WasReached() {
    return account.Reached;
}

} // namespace kfax
