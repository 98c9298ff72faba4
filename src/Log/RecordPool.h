// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

// Memory for log entry records. The live log allocates a record per line and frees the oldest
// thousand at a time when the buffer prunes: a pattern that defeats malloc's small per-thread
// caches and costs a fifth of the line path in its free lists. Blocks here come in size classes of
// 32 bytes up to 1 KiB, cached per thread and shared through one list per class; a block may be
// freed on any thread. Memory is kept for reuse, never returned to the system: the live log's
// capacity bounds it. Larger blocks go to operator new.
namespace RecordPool {

// Under the address sanitizer blocks go straight to operator new and delete, so that a record used
// after its release is still caught. The thread sanitizer does see the pool, hand-overs included.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool Enabled = false;
#else
inline constexpr bool Enabled = true;
#endif

void *allocate(std::size_t size);
void deallocate(void *block, std::size_t size); // size as given to allocate

} // namespace RecordPool
