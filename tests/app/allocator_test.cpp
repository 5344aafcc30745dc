#include "app/Allocator.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace kvmpd::app {
namespace {

constexpr std::size_t kRing = 16u << 20;

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
using Block = std::unique_ptr<void, Free>;

Block TakeRing() {
    Block block(std::malloc(kRing));
    std::memset(block.get(), 1, kRing);
    return block;
}

std::size_t MappedBytes() {
    return mallinfo2().hblkhd;
}

TEST(LargeBlocks, GoBackToTheSystemEachTime) {
    GiveBackLargeBlocks();
    const std::size_t before = MappedBytes();
    Block first = TakeRing();
    if (MappedBytes() == before) {
        GTEST_SKIP() << "the heap is not the C library's, but a sanitizer's";
    }
    for (int i = 0; i < 3; ++i) {
        first.reset();
        EXPECT_EQ(MappedBytes(), before);
        first = TakeRing();
        EXPECT_GE(MappedBytes(), before + kRing) << "taken from the heap, where it would stay";
    }
}

}  // namespace
}  // namespace kvmpd::app
