#include "platform/LargeBlocks.h"

#include <malloc.h>

namespace velmora {

void KeepLargeBlocksForReuse() {
  constexpr int kLargestHeapBlock = 32 << 20;  // the most glibc allows here
  constexpr int kKeptFreeMemory = 128 << 20;
  mallopt(M_MMAP_THRESHOLD, kLargestHeapBlock);
  mallopt(M_TRIM_THRESHOLD, kKeptFreeMemory);
}

}  // namespace velmora
