// What the process of a soak run takes, sampled while it runs.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace kvmpd::test {

/// Resident memory in bytes; 0 when the system does not tell.
std::size_t ResidentBytes();
/// Bytes that the allocator has given out and not got back; 0 where a sanitizer has replaced it.
std::size_t AllocatedBytes();
/// Lets large blocks go back to the system when they are freed; otherwise the allocator soon keeps some for itself, and
/// what is resident no longer tells what is in use.
void GiveBackLargeBlocks();
/// Gives free memory back to the system, so that what is resident is what is used.
void TrimMemory();
/// Processor time of the whole process so far.
std::chrono::microseconds ProcessCpuTime();
/// Whether memory is measured with a sanitizer's own in it, so that it says nothing about the component.
bool IsSanitized();

}  // namespace kvmpd::test
