// Tracked memory, for use inside the kernel.
#pragma once

#include <cstddef>

namespace standin {

// K_LocalAlloc and K_LocalFree for the kernel itself: a program that replaces those does not replace these.
// zeroed: the contents are 0, and pages that are never touched take no memory.
void* AllocateTracked(size_t bytes, bool zeroed, int line, const char* path);
void FreeTracked(void* memory, int line, const char* path);

} // namespace standin
