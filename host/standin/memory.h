// Tracked memory within the kernel.
#pragma once

#include <cstddef>

namespace standin {

// K_LocalAlloc and K_LocalFree with a choice of contents, and beyond the reach of a program that puts its
// own functions in front of the kernel's. zeroed: untouched pages then cost nothing.
void* AllocateTracked(size_t bytes, bool zeroed, int line, const char* path);
void FreeTracked(void* memory, int line, const char* path);

} // namespace standin
