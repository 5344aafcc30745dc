#include "app/Allocator.h"

namespace kvmpd::app {

// This C library gives large blocks back by itself, or cannot be asked to.
void GiveBackLargeBlocks() {}

}  // namespace kvmpd::app
