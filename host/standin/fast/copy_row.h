// Copying a packed row in whole vectors.
#pragma once

#include <cstddef>

namespace standin {

// Bytes behind a row that CopyRow may read and write, whatever is in them. Row memory has them to spare.
inline constexpr size_t kRowSlack = 127;

// Copies a packed row of so many bytes, and up to kRowSlack behind it. The reader of the copy loads vectors:
// as the stores are whole vectors that do not overlap, these loads need not wait for them.
void CopyRow(unsigned char* target, const unsigned char* source, size_t bytes);

} // namespace standin
