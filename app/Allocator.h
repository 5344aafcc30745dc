// What the program asks of the C library's heap.

#pragma once

namespace kvmpd::app {

// Has blocks of the size of the component's ring buffers go back to the system when they are freed. For the program's
// first lines, while there is one thread.
void GiveBackLargeBlocks();

}  // namespace kvmpd::app
