#include "tests/soak/SoakFootprint.h"

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

namespace kvmpd::test {

std::size_t ResidentBytes() {
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void GiveBackLargeBlocks() {
    constexpr int kLarge = 256 * 1024;
    mallopt(M_MMAP_THRESHOLD, kLarge);
}

void TrimMemory() {
    malloc_trim(0);
}

std::chrono::microseconds ProcessCpuTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

bool IsSanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return true;
#else
    return false;
#endif
#else
    return false;
#endif
}

}  // namespace kvmpd::test
