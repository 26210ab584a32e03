// Freed blocks that a thread keeps for its next requests.
//
// A filter takes working areas of a few fixed sizes on every call. Without this, each call would pay for
// fresh pages: mapping them, and the page faults when they are first written.
#pragma once

#include "host/standin/block_list.h"

namespace standin {

// Whether blocks of this size are kept.
bool IsKeptSize(size_t bytes);

// A kept block of exactly this size, or null.
BlockHeader* TakeKeptBlock(size_t bytes);

// Keeps a block of a kept size, marked as kept. One block is dropped when there are too many; all are when
// the thread ends.
void KeepBlock(BlockHeader* block);

// How far behind its usual place a new block of this size should begin. All large blocks of the C library
// begin at the same offset in a page, where they compete for the same cache sets.
size_t NextShift(size_t bytes);

} // namespace standin
