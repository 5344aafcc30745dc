#include <malloc.h>

#include "app/Allocator.h"

namespace kvmpd::app {

// Each source that a recording follows has two rings of 16 MiB. glibc maps such blocks from the system at first; but
// when the first of them is freed it takes that size for usual and from then on carves blocks up to 32 MiB from its
// heaps, where they stay after they are freed: a recording that goes through a few sources would keep a few times 32
// MiB for nothing. A threshold that was set is not moved.
void GiveBackLargeBlocks() {
    constexpr int kLarge = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, kLarge);
}

}  // namespace kvmpd::app
