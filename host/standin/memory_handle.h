// A kernel handle over memory, for as long as it lives.
#pragma once

#include "host/kernel.h"

#include <cstddef>

namespace standin {

struct MemoryHandle {
    MemoryHandle(unsigned mode, unsigned char* bytes, size_t size) {
        Status = K_StartRedirectToBuffer(&Redirect, &Handle, mode, bytes, size);
    }
    ~MemoryHandle() {
        if (Redirect)
            K_StopRedirectToBuffer(Redirect, nullptr, nullptr);
    }
    MemoryHandle(const MemoryHandle&) = delete;
    MemoryHandle& operator=(const MemoryHandle&) = delete;

    void* Redirect = nullptr;
    tagHANDLE* Handle = nullptr;
    int Status;
};

} // namespace standin
